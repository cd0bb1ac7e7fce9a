#!/usr/bin/env python3
"""Measures what one partmode process costs on the embedded firmware simulator.

With the built-in default board (no board file) and a scratch home folder:
  - instructions (valgrind's callgrind) of
    `partmode show partition pci_express_mode 0` and of /bin/true, in all and
    inside main() only, so the rest is loading, relocation and static set-up;
  - the median wall time of each over many runs, and their ratio;
  - the peak resident memory (/usr/bin/time -v) of each of the fourteen
    command forms, each run from the default firmware state.

    bench/startup.py [--build build] [--runs 200]

Needs Debian's valgrind and time. Nothing here is a test: it prints figures
for docs/performance.md.
"""

import argparse
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

SHOW = ["show", "partition", "pci_express_mode", "0"]

# The fourteen command forms; each set answers its prompt (if any) with "y".
# A LAN device mode set that was sent ends with exit status 1, by design.
FORMS = [
    ["set", "partition", "pci_express_mode", "0", "fixed"],
    ["show", "partition", "pci_express_mode", "0"],
    ["set", "partition", "lan_device_mode", "0", "0", "wol_disable", "quiet"],
    ["show", "partition", "lan_device_mode", "0"],
    ["set", "partition", "pci_address_mode", "0", "bus", "quiet"],
    ["show", "partition", "pci_address_mode", "0"],
    ["set", "partition", "memory_mirror_ras_mode", "0", "capacity_keep", "quiet"],
    ["show", "partition", "memory_mirror_ras_mode", "0"],
    ["set", "partition", "memory_operation_mode", "0", "full_mirror", "quiet"],
    ["show", "partition", "memory_operation_mode", "0"],
    ["set", "partition", "dynamic_reconfiguration", "0", "enable", "quiet"],
    ["show", "partition", "dynamic_reconfiguration", "0"],
    ["set", "partition", "memory_sparing_mode", "0", "auto", "quiet"],
    ["show", "partition", "memory_sparing_mode", "0"],
]


def environment(home):
    # Only what a login shell would surely have: no board file, the simulator
    # state, trace and audit below the scratch home.
    return {"PATH": "/usr/bin:/bin", "HOME": home, "LANG": "C"}


def run(command, env, stdin_text=None):
    result = subprocess.run(command, env=env, input=(stdin_text or "").encode(),
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return result


def callgrind(command, env, toggle=None):
    options = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    if toggle:
        options.append(f"--toggle-collect={toggle}")
    result = run(options + command, env)
    found = re.search(rb"Collected : (\d+)", result.stderr)
    if result.returncode != 0 or not found:
        sys.exit(f"callgrind of {' '.join(command)} failed: {result.stderr.decode(errors='replace')}")
    return int(found.group(1))


def wall_median(command, env, runs):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        result = subprocess.run(command, env=env, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        times.append(time.perf_counter() - start)
        if result.returncode != 0:
            sys.exit(f"{' '.join(command)} exited {result.returncode}")
    return statistics.median(times)


def peak_kib(command, env, stdin_text):
    result = run(["/usr/bin/time", "-v"] + command, env, stdin_text)
    found = re.search(rb"Maximum resident set size \(kbytes\): (\d+)", result.stderr)
    if not found:
        sys.exit(f"/usr/bin/time gave no peak for {' '.join(command)}")
    return int(found.group(1)), result.returncode


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build", help="the CMake build folder (default: build)")
    parser.add_argument("--runs", type=int, default=200, help="runs per wall-time median (default: 200)")
    args = parser.parse_args()

    partmode = os.path.abspath(os.path.join(args.build, "bin", "partmode"))
    partmode_sim = os.path.abspath(os.path.join(args.build, "bin", "partmode-sim"))
    true = shutil.which("true", path="/bin:/usr/bin")
    for program in (partmode, partmode_sim, "/usr/bin/time", shutil.which("valgrind") or "/usr/bin/valgrind"):
        if not os.access(program, os.X_OK):
            sys.exit(f"{program} is missing")
    if os.path.exists("/etc/partmode/board.json"):
        sys.exit("/etc/partmode/board.json exists; the figures are for the built-in default board")

    with tempfile.TemporaryDirectory(prefix="partmode-bench-") as home:
        env = environment(home)
        state = os.path.join(home, ".local", "state", "partmode", "firmware.json")
        show = [partmode] + SHOW
        # The first run creates the state file; the measured runs find it.
        if run(show, env).returncode != 0:
            sys.exit("partmode show failed")

        true_all = callgrind([true], env)
        true_main = callgrind([true], env, "main")
        show_all = callgrind(show, env)
        show_main = callgrind(show, env, "main")
        true_wall = wall_median([true], env, args.runs)
        show_wall = wall_median(show, env, args.runs)

        peaks = [("/bin/true", peak_kib([true], env, None)[0], 0)]
        for form in FORMS:
            subprocess.run([partmode_sim, "--state", state, "init"], check=True, stdout=subprocess.DEVNULL)
            if form[0] == "set" and form[2] == "memory_sparing_mode":
                # Sparing needs spare mode in force: register it, then power cycle.
                run([partmode, "set", "partition", "memory_operation_mode", "0", "spare", "quiet"], env)
                for step in ("on", "off"):
                    subprocess.run([partmode_sim, "--state", state, "power", step, "0"], check=True,
                                   stdout=subprocess.DEVNULL)
            kib, code = peak_kib([partmode] + form, env, "y\n")
            peaks.append(("partmode " + " ".join(form), kib, code))

    print(f"{platform.node()}, {platform.platform()}, {os.cpu_count()} cores, {time.strftime('%Y-%m-%d %H:%M %Z')}")
    print()
    print("| program | instructions | in main() | outside main() | wall median |")
    print("|---|---|---|---|---|")
    for name, total, inside, wall in (("/bin/true", true_all, true_main, true_wall),
                                      ("partmode " + " ".join(SHOW), show_all, show_main, show_wall)):
        print(f"| `{name}` | {total:,} | {inside:,} | {total - inside:,} | {wall * 1000:.2f} ms |")
    print()
    print(f"ratio partmode show / true: {show_all / true_all:.1f}x instructions, "
          f"{show_wall / true_wall:.2f}x wall ({args.runs} runs each)")
    print()
    print("| command | peak resident memory | exit |")
    print("|---|---|---|")
    for name, kib, code in peaks:
        print(f"| `{name}` | {kib:,} KiB | {code} |")


if __name__ == "__main__":
    main()
