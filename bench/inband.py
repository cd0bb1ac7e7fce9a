#!/usr/bin/env python3
"""Measures partmode in-band, through the kernel's IPMI driver in a machine.

Boots the machine of the in-band test pass (tests/inband/inband-vm.sh: QEMU
under TCG, Debian's kernel, the KCS interface reaching the firmware
simulator's BMC) and reports, as the median of many runs timed inside the
guest by its agent, the wall time of
  - partmode show partition pci_express_mode 0, in-band,
  - ipmi-raw --driver-type=OPENIPMI 00 30 b3 71 00 (FreeIPMI, the same
    request once, through the same /dev/ipmi0),
and the ratio of the two medians.

    bench/inband.py [--build build] [--runs 50]

The first run fetches the kernel and packages into BUILD/inband-cache.
"""

import argparse
import base64
import json
import os
import platform
import socket
import statistics
import subprocess
import sys
import tempfile


class Agent:
    """The host's end of the guest agent's serial port."""

    def __init__(self, path):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.connect(path)
        self.pending = b""
        self.next = 0

    def call(self, request, timeout=1800):
        self.next += 1
        request["id"] = f"bench-{os.getpid()}-{self.next}"
        self.sock.sendall(json.dumps(request).encode() + b"\n")
        self.sock.settimeout(timeout)
        while True:
            while b"\n" in self.pending:
                line, self.pending = self.pending.split(b"\n", 1)
                answer = json.loads(line)
                if answer.get("id") != request["id"]:
                    continue
                if "error" in answer:
                    raise RuntimeError(answer["error"])
                return answer
            chunk = self.sock.recv(65536)
            if not chunk:
                raise RuntimeError("the guest agent's serial port closed")
            self.pending += chunk


def timed(agent, program, argv, env, folder, runs):
    answer = agent.call({"program": program, "argv": argv, "env": env, "cwd": folder, "repeat": runs,
                         "timeout_ms": 60000})
    out = base64.b64decode(answer["stdout"]).decode(errors="replace")
    if answer["status"] != 0:
        err = base64.b64decode(answer["stderr"]).decode(errors="replace")
        sys.exit(f"{argv[0]} failed in the guest (wait status {answer['status']}):\n{out}{err}")
    return [ns / 1e9 for ns in answer["durations_ns"]], out


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build", help="the CMake build folder (default: build)")
    parser.add_argument("--runs", type=int, default=50, help="runs per measurement (default: 50)")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    source = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    script = os.path.join(source, "tests", "inband", "inband-vm.sh")
    partmode = os.path.join(build, "bin", "partmode")

    with tempfile.TemporaryDirectory(prefix="partmode-bench-") as scratch:
        machine = os.path.join(scratch, "vm")
        subprocess.run(["sh", script, "start", machine, os.path.join(build, "inband-cache"),
                        os.path.join(build, "bin", "partmode-sim"), partmode,
                        os.path.join(build, "bin", "partmode-guest-agent")], check=True)
        try:
            agent = Agent(os.path.realpath(os.path.join(machine, "agent.sock")))
            with open(os.path.join(machine, "firmware.json")) as f:
                firmware = json.load(f)
            folder = os.path.join(scratch, "run")
            board = json.dumps({"firmware": firmware, "trace": folder + "/trace.log",
                                "audit": folder + "/audit.log"}).encode()
            agent.call({"clear": folder, "entries": [
                {"path": folder, "type": "dir", "mode": 0o755, "uid": 0, "gid": 0},
                {"path": folder + "/board.json", "type": "file", "mode": 0o644, "uid": 0, "gid": 0,
                 "data": base64.b64encode(board).decode()}],
                "passwd": "root:x:0:0:root:/root:/bin/sh\n"})
            env = ["PATH=/usr/bin:/bin", "LANG=C", "HOME=" + folder, "PARTMODE_BOARD=" + folder + "/board.json"]
            show, out = timed(agent, partmode, ["partmode", "show", "partition", "pci_express_mode", "0"], env,
                              folder, args.runs)
            if out != "pci_express_mode: flexible\n":
                sys.exit(f"partmode printed {out!r}")
            raw, out = timed(agent, "/usr/sbin/ipmi-raw",
                             ["ipmi-raw", "--driver-type=OPENIPMI", "00", "30", "b3", "71", "00"], env, folder,
                             args.runs)
            if not out.startswith("rcvd: B3 00"):
                sys.exit(f"ipmi-raw printed {out!r}")
        finally:
            subprocess.run(["sh", script, "stop", machine], check=False)

    print(f"{args.runs} runs each, timed in the guest (QEMU TCG, 1 virtual CPU); host {platform.node()}, "
          f"{platform.platform()}, {os.cpu_count()} cores")
    print()
    print("| command | median | fastest | slowest |")
    print("|---|---|---|---|")
    for name, times in (("partmode show partition pci_express_mode 0", show),
                        ("ipmi-raw --driver-type=OPENIPMI 00 30 b3 71 00", raw)):
        print(f"| `{name}` | {statistics.median(times) * 1000:.1f} ms | {min(times) * 1000:.1f} ms "
              f"| {max(times) * 1000:.1f} ms |")
    print()
    print(f"ratio of the medians, partmode to ipmi-raw: {statistics.median(show) / statistics.median(raw):.2f}")


if __name__ == "__main__":
    main()
