#!/usr/bin/python3
"""Wall time of the partmode.fleet collection over a fleet of simulated BMCs.

For each fleet size N it starts N BMCs (partmode-sim serve, one state file
each, tests/fleet/bmcs.sh), writes one board file per BMC and an inventory of
local hosts, and measures with forks 16:

- converge: tests/fleet/converge.yml (eight modes, every feature) from a fresh
  state; then the same playbook again, with nothing left to change;
- the module against ansible.builtin.command: one task that sets the PCI
  Express mode of partition 0 on every host from a fresh state, once with
  partmode.fleet.mode (show, set, show) and once with ansible.builtin.command
  running the same `partmode set`; the difference per host is what reading
  before and after costs.

Each figure is the median of --runs runs, wall time and the CPU time of
ansible-playbook with everything it ran (workers, modules, partmode; not the
BMCs); the state is reset (not timed) before each. Runs on the Python of ansible-playbook:

    /usr/bin/python3 bench/fleet/fleet.py --build build --sizes 16 64 --runs 3
"""

import argparse
import json
import resource
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
TESTS = os.path.join(SOURCE, 'tests', 'fleet')
sys.path.insert(0, TESTS)
sys.dont_write_bytecode = True

import fleet_test  # noqa: E402  (the fleet tests' BMC and inventory helpers)

ONE_TASK = {
    'mode': {'partmode.fleet.mode': {'feature': 'pci_express_mode', 'partition': 0, 'mode': 'fixed',
                                     'board': '{{ board }}', 'executable': '{{ partmode }}'}},
    'command': {'ansible.builtin.command': {'argv': ['{{ partmode }}', 'set', 'partition', 'pci_express_mode',
                                                     '0', 'fixed']},
                'environment': {'PARTMODE_BOARD': '{{ board }}'}},
}


def write_one_task_playbook(work, kind):
    path = os.path.join(work, 'one-%s.yml' % kind)
    task = dict(name='PCI Express mode fixed on partition 0', **ONE_TASK[kind])
    with open(path, 'w') as f:
        json.dump([{'name': 'One task', 'hosts': 'boards', 'gather_facts': False, 'tasks': [task]}], f)
    return path


def run_playbook(work, playbook, forks):
    env = fleet_test.ansible_environment(work)
    env['ANSIBLE_FORKS'] = str(forks)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    run = subprocess.run(['ansible-playbook', '-i', os.path.join(work, 'inventory.yml'), playbook], cwd=work,
                         env=env, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    elapsed = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    if run.returncode != 0:
        sys.exit('ansible-playbook %s failed (%d):\n%s\n%s' % (playbook, run.returncode, run.stdout[-4000:],
                                                               run.stderr[-4000:]))
    stats = json.loads(run.stdout)['stats']
    return (elapsed, cpu), sum(s['changed'] for s in stats.values())


def median(runs):
    """(wall, CPU) medians of (wall, CPU) pairs."""
    return statistics.median(r[0] for r in runs), statistics.median(r[1] for r in runs)


def measure(args, size):
    folder = tempfile.mkdtemp(prefix='partmode-fleet-bench-')
    bmcs_dir = os.path.join(folder, 'bmcs')
    work = os.path.join(folder, 'work')
    simulator = os.path.join(args.build, 'bin', 'partmode-sim')
    partmode = os.path.join(args.build, 'bin', 'partmode')
    script = os.path.join(TESTS, 'bmcs.sh')
    subprocess.run(['sh', script, 'start', bmcs_dir, simulator, str(size)], check=True, stdout=subprocess.DEVNULL)
    try:
        bmcs = fleet_test.all_bmcs(bmcs_dir, simulator)
        os.makedirs(work)
        fleet_test.write_fleet(work, bmcs, partmode)
        figures = {}
        converge = os.path.join(TESTS, 'converge.yml')
        first, second, changes = [], [], []
        for _ in range(args.runs):
            for bmc in bmcs:
                bmc.reset()
            elapsed, changed = run_playbook(work, converge, args.forks)
            first.append(elapsed)
            changes.append(changed)
            elapsed, changed = run_playbook(work, converge, args.forks)
            second.append(elapsed)
            if changed:
                sys.exit('the second run changed %d modes' % changed)
        figures['converge'] = (median(first), changes[0])
        figures['again'] = (median(second), 0)
        for kind in ('mode', 'command'):
            playbook = write_one_task_playbook(work, kind)
            times = []
            for _ in range(args.runs):
                for bmc in bmcs:
                    bmc.reset()
                elapsed, changed = run_playbook(work, playbook, args.forks)
                times.append(elapsed)
            figures[kind] = (median(times), changed)
        return figures
    finally:
        subprocess.run(['sh', script, 'stop', bmcs_dir], check=False)
        shutil.rmtree(folder, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split('\n')[0])
    parser.add_argument('--build', default='build')
    parser.add_argument('--sizes', type=int, nargs='+', default=[16, 64])
    parser.add_argument('--forks', type=int, default=16)
    parser.add_argument('--runs', type=int, default=3)
    args = parser.parse_args()
    args.build = os.path.abspath(args.build)
    if shutil.which('ansible-playbook') is None:
        sys.exit('ansible-playbook is not installed (Debian package ansible-core)')
    fleet_test.PARTMODE_SIM = os.path.join(args.build, 'bin', 'partmode-sim')
    print('Wall time, and in brackets the CPU time of ansible-playbook and all it ran (not the BMCs).')
    print()
    print('| hosts | converge (modes changed) | again, nothing to change | mode, 1 task | command, 1 task '
          '| mode per host | command per host |')
    print('|---|---|---|---|---|---|---|')
    for size in args.sizes:
        f = measure(args, size)
        print('| %d | %.1f s [%.1f s] (%d) | %.1f s [%.1f s] | %.1f s [%.1f s] | %.1f s [%.1f s] '
              '| %.0f ms [%.0f ms] | %.0f ms [%.0f ms] |' % (
                  size, f['converge'][0][0], f['converge'][0][1], f['converge'][1], f['again'][0][0],
                  f['again'][0][1], f['mode'][0][0], f['mode'][0][1], f['command'][0][0], f['command'][0][1],
                  1000 * f['mode'][0][0] / size, 1000 * f['mode'][0][1] / size,
                  1000 * f['command'][0][0] / size, 1000 * f['command'][0][1] / size), flush=True)


if __name__ == '__main__':
    main()
