#!/usr/bin/env python3
"""Measures partmode over IPMI 2.0 LAN against the firmware simulator's BMC.

Starts `partmode-sim serve` on a free loopback port and reports, as the median
of many runs, the wall time of
  - partmode show partition pci_express_mode 0,
  - ipmi-raw (FreeIPMI) sending the equivalent raw request once,
  - partmode set partition pci_express_mode 0 fixed,
and the UDP datagrams each one exchanges with the BMC, counted by a relay on
the loopback port in front of the BMC (in separate runs, so the relay never
adds to the timings).

    bench/lan.py [--build build] [--runs 50]

Needs Debian's openipmi (ipmi_sim) and freeipmi-tools (ipmi-raw).
"""

import argparse
import json
import os
import platform
import select
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time


class Relay:
    """Passes datagrams between a client and the BMC and counts them."""

    def __init__(self, bmc_port):
        self.front = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.front.bind(("127.0.0.1", 0))
        self.back = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.back.connect(("127.0.0.1", bmc_port))
        self.port = self.front.getsockname()[1]
        self.client = None
        self.to_bmc = 0
        self.from_bmc = 0
        self.running = True
        self.thread = threading.Thread(target=self._pass, daemon=True)
        self.thread.start()

    def _pass(self):
        while self.running:
            ready, _, _ = select.select([self.front, self.back], [], [], 0.05)
            for sock in ready:
                if sock is self.front:
                    data, self.client = self.front.recvfrom(4096)
                    self.to_bmc += 1
                    self.back.send(data)
                else:
                    data = self.back.recv(4096)
                    self.from_bmc += 1
                    if self.client:
                        self.front.sendto(data, self.client)

    def count(self):
        # Answers still on their way are counted before the relay stops.
        time.sleep(0.2)
        return self.to_bmc, self.from_bmc

    def close(self):
        self.running = False
        self.thread.join()
        self.front.close()
        self.back.close()


def timed(command, env, stdin=subprocess.DEVNULL):
    start = time.perf_counter()
    result = subprocess.run(command, env=env, stdin=stdin, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    elapsed = time.perf_counter() - start
    if result.returncode != 0:
        sys.exit(f"{' '.join(command)} failed ({result.returncode}): {result.stderr.decode()}")
    return elapsed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build", help="the CMake build folder (default: build)")
    parser.add_argument("--runs", type=int, default=50, help="runs per measurement (default: 50)")
    args = parser.parse_args()

    partmode = os.path.join(args.build, "bin", "partmode")
    partmode_sim = os.path.join(args.build, "bin", "partmode-sim")
    ipmi_raw = shutil.which("ipmi-raw") or "/usr/sbin/ipmi-raw"
    for program in (partmode, partmode_sim, ipmi_raw):
        if not os.access(program, os.X_OK):
            sys.exit(f"{program} is missing")

    with tempfile.TemporaryDirectory(prefix="partmode-bench-") as folder:
        state = os.path.join(folder, "firmware.json")
        server = subprocess.Popen([partmode_sim, "serve", "--port", "0", "--state", state],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        try:
            firmware = json.loads(server.stdout.readline())
            with open(firmware["password_file"]) as secret:
                password = secret.readline().rstrip("\n")
            port = firmware["port"]

            def board(bmc_port):
                path = os.path.join(folder, f"board-{bmc_port}.json")
                with open(path, "w") as out:
                    json.dump({"firmware": dict(firmware, port=bmc_port),
                               "trace": os.path.join(folder, "trace.log"),
                               "audit": os.path.join(folder, "audit.log")}, out)
                return dict(os.environ, PARTMODE_BOARD=path, LANG="C")

            # ipmi-raw reads the password from its configuration file, not the command line.
            def raw_config(bmc_port):
                path = os.path.join(folder, f"freeipmi-{bmc_port}.conf")
                with open(path, "w") as out:
                    out.write(f"username {firmware['username']}\n"
                              f"password {password}\ndriver-type LAN_2_0\nprivilege-level ADMIN\n"
                              f"cipher-suite-id {firmware['cipher_suite']}\nworkaround-flags opensesspriv\n")
                os.chmod(path, 0o600)
                return [ipmi_raw, "--config-file", path, "-h", f"127.0.0.1:{bmc_port}", "00", "30", "b3", "71", "00"]

            def reset():
                subprocess.run([partmode_sim, "--state", state, "init"], check=True)

            show = [partmode, "show", "partition", "pci_express_mode", "0"]
            set_fixed = [partmode, "set", "partition", "pci_express_mode", "0", "fixed"]
            measurements = [
                ("partmode show partition pci_express_mode 0", lambda p: (show, board(p)), False),
                ("ipmi-raw 00 30 b3 71 00 (the same Get PCI Express Mode)",
                 lambda p: (raw_config(p), dict(os.environ)), False),
                ("partmode set partition pci_express_mode 0 fixed", lambda p: (set_fixed, board(p)), True),
            ]

            rows = []
            for name, make, resets in measurements:
                command, env = make(port)
                times = []
                for _ in range(args.runs):
                    if resets:
                        reset()
                    times.append(timed(command, env))
                relay = Relay(port)
                try:
                    command, env = make(relay.port)
                    if resets:
                        reset()
                    timed(command, env)
                    sent, received = relay.count()
                finally:
                    relay.close()
                rows.append((name, statistics.median(times), min(times), max(times), sent, received))
        finally:
            server.send_signal(signal.SIGTERM)
            server.wait(timeout=10)

    print(f"{args.runs} runs each; {platform.node()}, {platform.platform()}, {os.cpu_count()} cores, "
          f"{time.strftime('%Y-%m-%d %H:%M %Z')}")
    print()
    print("| command | median | fastest | slowest | UDP datagrams to the BMC | from the BMC |")
    print("|---|---|---|---|---|---|")
    for name, median, fastest, slowest, sent, received in rows:
        print(f"| `{name}` | {median * 1000:.1f} ms | {fastest * 1000:.1f} ms | {slowest * 1000:.1f} ms "
              f"| {sent} | {received} |")


if __name__ == "__main__":
    main()
