"""The partmode.fleet collection driving a fleet of simulated BMCs.

CTest starts the BMCs (bmcs.sh) before these tests and stops them after; each
test resets every BMC's state, writes one board file per BMC and an inventory
of local hosts, runs ansible-playbook with the callback of
callback/fleet_report.py, which reports in JSON, and checks that report against
the state files the BMCs hold.

Environment (set by CTest): FLEET_BMCS (the folder of bmcs.sh), FLEET_WORK (a
scratch folder), PARTMODE and PARTMODE_SIM (the programs).
"""

import copy
import fcntl
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

# Nothing of the tests' own Python is cached in the source tree.
sys.dont_write_bytecode = True

BMCS = os.environ.get('FLEET_BMCS', '')
WORK = os.environ.get('FLEET_WORK', '')
PARTMODE = os.environ.get('PARTMODE', '')
PARTMODE_SIM = os.environ.get('PARTMODE_SIM', '')
HERE = os.path.dirname(os.path.abspath(__file__))
COLLECTIONS = os.path.join(os.path.dirname(os.path.dirname(HERE)), 'ansible')

# Partition 2 runs its memory in spare mode (one rank), so that its sparing
# variant can be chosen; every other key keeps the simulator's default.
SPARE_MEMORY = [0, 4, 0, 1, 4, 0]

# What converge.yml makes of a fresh state.
CONVERGED = {
    'partitions': {
        '0': {'pci_express_mode': [0, 0], 'pci_address_mode': [1, 0], 'memory_mode': [0, 1, 0, 1, 1, 1]},
        '1': {'memory_mode': [0, 1, 0, 1, 3, 0], 'dynamic_reconfiguration': [0, 1]},
        '2': {'memory_mode': [0, 4, 0, 1, 36, 0]},
    },
    'lan_device_modes': {'1': 1, '2': 17},
}
CONVERGE_TASKS = 8

# The request codes of every set: PCI Express, PCI address, LAN device,
# partition mirror mode, dynamic partitioning enables.
SET_COMMANDS = (0xB2, 0x80, 0x61, 0x7E, 0x8D)

RUNNING = ('Unable to change the mode while the partition is running. '
           'Please try to change the mode after the partition is shutdown.')

# Odd hosts name their I/O units their own way.
ODD_UNIT_NAME = 'Unit %u, 100%% I/O'


def merged(base, change):
    """base with change laid over it, key by key."""
    result = copy.deepcopy(base)
    for key, value in change.items():
        if isinstance(value, dict) and isinstance(result.get(key), dict):
            result[key] = merged(result[key], value)
        else:
            result[key] = copy.deepcopy(value)
    return result


def unit_name(host_index, unit):
    if host_index % 2:
        return ODD_UNIT_NAME.replace('%u', str(unit)).replace('%%', '%')
    return 'IOU#%u' % unit


class Bmc:
    def __init__(self, index, folder, simulator=None):
        self.simulator = simulator or PARTMODE_SIM
        self.index = index
        self.name = 'bmc-%02d' % index
        self.folder = folder
        self.state = os.path.join(folder, 'state.json')
        with open(os.path.join(folder, 'firmware.json')) as f:
            self.firmware = json.load(f)

    def sim(self, *words):
        run = subprocess.run([self.simulator, '--state', self.state] + [str(w) for w in words],
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        if run.returncode != 0:
            raise AssertionError('partmode-sim %s: %d %s' % (' '.join(map(str, words)), run.returncode, run.stderr))
        return run.stdout

    def read_state(self):
        with open(self.state) as f:
            return json.load(f)

    def state_bytes(self):
        with open(self.state, 'rb') as f:
            return f.read()

    def write_state(self, state):
        # Under the simulator's own lock, replaced in one rename, as it does.
        with open(self.state + '.lock', 'a') as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            fd, temporary = tempfile.mkstemp(dir=self.folder, prefix='state.json.')
            with os.fdopen(fd, 'w') as f:
                json.dump(state, f)
            os.rename(temporary, self.state)

    def reset(self, change=None):
        """The defaults, partition 2 running spare memory, and change."""
        self.sim('init')
        state = merged(self.read_state(), {'partitions': {'2': {'memory_mode': SPARE_MEMORY}}})
        self.write_state(merged(state, change or {}))
        return self.read_state()


def ansible_environment(work):
    """Ansible kept inside work: its configuration, home, temporary files and
    the repository's collections only."""
    home = os.path.join(work, 'home')
    os.makedirs(home, exist_ok=True)
    config = os.path.join(work, 'ansible.cfg')
    with open(config, 'w') as f:
        f.write('[defaults]\n')
    return {
        'PATH': os.environ.get('PATH', '/usr/bin:/bin'),
        'LANG': 'C.UTF-8',
        'HOME': home,
        'ANSIBLE_CONFIG': config,
        'ANSIBLE_HOME': os.path.join(home, 'ansible'),
        'ANSIBLE_LOCAL_TEMP': os.path.join(work, 'tmp-local'),
        'ANSIBLE_REMOTE_TEMP': os.path.join(work, 'tmp-remote'),
        'ANSIBLE_COLLECTIONS_PATH': COLLECTIONS,
        'ANSIBLE_COLLECTIONS_SCAN_SYS_PATH': 'False',
        'ANSIBLE_CALLBACK_PLUGINS': os.path.join(HERE, 'callback'),
        'ANSIBLE_STDOUT_CALLBACK': 'fleet_report',
        'ANSIBLE_RETRY_FILES_ENABLED': 'False',
        'ANSIBLE_NOCOLOR': 'True',
        'ANSIBLE_FORKS': '16',
        'ANSIBLE_PIPELINING': 'True',
        'PYTHONDONTWRITEBYTECODE': '1',
    }


def failures(report):
    """What failed in a run, for a test's failure message."""
    return [{'task': task['name'], 'host': host, 'msg': result.get('msg')}
            for play in report['plays'] for task in play['tasks'] for host, result in task['hosts'].items()
            if result.get('failed') or result.get('unreachable')]


def write_fleet(work, bmcs, partmode, board_change=None):
    """One board file per BMC (work/NAME/board.json, tracing and auditing
    beside it) and work/inventory.yml, a local host per BMC."""
    hosts = {}
    for bmc in bmcs:
        board = {'firmware': bmc.firmware, 'trace': 'trace.log', 'audit': 'audit.log'}
        if bmc.index % 2:
            board['io_unit_name'] = ODD_UNIT_NAME
        board.update(board_change or {})
        path = os.path.join(work, bmc.name, 'board.json')
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'w') as f:
            json.dump(board, f)
        hosts[bmc.name] = {
            'ansible_connection': 'local',
            'ansible_python_interpreter': sys.executable,
            'board': path,
            'partmode': partmode,
        }
    # JSON is YAML, so the yaml inventory plugin reads it.
    with open(os.path.join(work, 'inventory.yml'), 'w') as f:
        json.dump({'boards': {'hosts': hosts}}, f, indent=1)


def all_bmcs(folder=None, simulator=None):
    folder = folder or BMCS
    names = sorted(d for d in os.listdir(folder) if d.startswith('bmc-'))
    return [Bmc(i, os.path.join(folder, d), simulator) for i, d in enumerate(names)]


class FleetTest(unittest.TestCase):
    def setUp(self):
        self.bmcs = all_bmcs()
        self.assertEqual(len(self.bmcs), int(os.environ.get('FLEET_COUNT', '16')))
        self.work = os.path.join(WORK, self.id().rsplit('.', 1)[-1])
        shutil.rmtree(self.work, ignore_errors=True)
        os.makedirs(self.work)
        self.write_inventory()

    # --- set-up ---------------------------------------------------------

    def write_inventory(self, board_change=None):
        write_fleet(self.work, self.bmcs, PARTMODE, board_change)

    def audit(self, bmc):
        try:
            with open(os.path.join(self.work, bmc.name, 'audit.log')) as f:
                return f.read()
        except FileNotFoundError:
            return ''

    def playbook(self, name, *options):
        run = subprocess.run(
            ['ansible-playbook', '-i', os.path.join(self.work, 'inventory.yml'), os.path.join(HERE, name)]
            + list(options),
            cwd=self.work, env=ansible_environment(self.work), stdin=subprocess.DEVNULL, capture_output=True, text=True,
            check=False, timeout=600)
        try:
            report = json.loads(run.stdout)
        except ValueError:
            self.fail('ansible-playbook %s printed no JSON report (exit %d):\n%s\n%s'
                      % (name, run.returncode, run.stdout, run.stderr))
        return run.returncode, report, run.stderr

    def converge(self, *options, expect_rc=0):
        rc, report, stderr = self.playbook('converge.yml', *options)
        self.assertEqual(rc, expect_rc, stderr + json.dumps(failures(report), indent=1))
        return report

    def task_results(self, report, index):
        return report['plays'][0]['tasks'][index]['hosts']

    def assert_changed(self, report, counts):
        """counts: host name -> the number of tasks that changed it."""
        self.assertEqual({host: stats['changed'] for host, stats in report['stats'].items()}, counts)

    def reset_all(self):
        return {bmc.name: bmc.reset() for bmc in self.bmcs}

    def assert_converged(self, fresh, bmcs=None):
        for bmc in bmcs or self.bmcs:
            self.assertEqual(bmc.read_state(), merged(fresh[bmc.name], CONVERGED), bmc.name)

    # --- tests ----------------------------------------------------------

    def test_converges_then_sends_nothing(self):
        fresh = self.reset_all()
        report = self.converge()
        self.assert_changed(report, {bmc.name: CONVERGE_TASKS for bmc in self.bmcs})
        for stats in report['stats'].values():
            self.assertEqual((stats['ok'], stats['failures'], stats['unreachable']), (CONVERGE_TASKS, 0, 0))
        self.assert_converged(fresh)
        # The LAN device set that was sent ended with 1 and still succeeded.
        for host, result in self.task_results(report, 2).items():
            self.assertEqual((result['changed'], result['rc']), (True, 1), host)
            self.assertEqual((result['current'], result['setting']), ('wol_disable', 'wol_disable'), host)
        for host, result in self.task_results(report, 4).items():
            self.assertEqual((result['current'], result['setting'], result['rc']),
                             ('mirror_keep', 'capacity_keep', 0), host)

        # Every set request now fails once if sent; none may be.
        for bmc in self.bmcs:
            for command in SET_COMMANDS:
                bmc.sim('fault', 'add', 0x30, command, 0xC0, 1)
        before = {bmc.name: (bmc.state_bytes(), self.audit(bmc)) for bmc in self.bmcs}
        report = self.converge()
        self.assert_changed(report, {bmc.name: 0 for bmc in self.bmcs})
        # Nothing set: rc and output are the show's.
        for host, result in self.task_results(report, 0).items():
            self.assertEqual((result['rc'], result['stdout'], result['stderr']), (0, 'pci_express_mode: fixed\n', ''))
        for host, result in self.task_results(report, 4).items():
            self.assertEqual((result['rc'], result['stdout'], result['stderr']),
                             (0, 'current: mirror_keep\nsetting: capacity_keep\n', ''))
        for bmc in self.bmcs:
            self.assertEqual((bmc.state_bytes(), self.audit(bmc)), before[bmc.name], bmc.name)
            self.assertEqual(len(bmc.read_state()['faults']), len(SET_COMMANDS), bmc.name)
            bmc.sim('fault', 'clear')

    def test_check_mode_reports_drift_then_run_mends_it(self):
        fresh = self.reset_all()
        self.converge()
        drifted = self.bmcs[5]
        # Behind the playbook's back: the firmware's modes back to their defaults.
        fresh[drifted.name] = drifted.reset()
        before = {bmc.name: (bmc.state_bytes(), self.audit(bmc)) for bmc in self.bmcs}

        report = self.converge('--check', '--diff')
        self.assert_changed(report, {bmc.name: CONVERGE_TASKS if bmc is drifted else 0 for bmc in self.bmcs})
        for bmc in self.bmcs:
            self.assertEqual((bmc.state_bytes(), self.audit(bmc)), before[bmc.name], bmc.name)
        result = self.task_results(report, 0)[drifted.name]
        self.assertEqual(result['diff'], {'before': 'current: flexible\nsetting: flexible\n',
                                          'after': 'current: fixed\nsetting: fixed\n'})
        result = self.task_results(report, 5)[drifted.name]
        self.assertEqual(result['diff'], {'before': 'current: normal\nsetting: normal\n',
                                          'after': 'current: normal\nsetting: full_mirror\n'})

        report = self.converge()
        self.assert_changed(report, {bmc.name: CONVERGE_TASKS if bmc is drifted else 0 for bmc in self.bmcs})
        self.assert_converged(fresh)

    def test_running_partition_fails_only_its_host(self):
        fresh = self.reset_all()
        running = self.bmcs[3]
        running.sim('power', 'on', 0)
        fresh[running.name] = running.read_state()
        self.assertTrue(fresh[running.name]['partitions']['0']['power_on'])

        report = self.converge(expect_rc=2)
        result = self.task_results(report, 0)[running.name]
        self.assertTrue(result['failed'])
        self.assertFalse(result['changed'])
        self.assertEqual(result['rc'], 51)
        self.assertEqual(result['stderr'], RUNNING + '\n')
        self.assertEqual(result['msg'],
                         'pci_express_mode of partition 0 reads flexible, not fixed, after partmode set partition '
                         'pci_express_mode 0 fixed, which ended with exit status 51 (the partition or system is '
                         'running, or its system status does not allow the change): ' + RUNNING)
        stats = report['stats']
        self.assertEqual((stats[running.name]['failures'], stats[running.name]['changed']), (1, 0))
        others = [bmc for bmc in self.bmcs if bmc is not running]
        self.assert_changed(report, dict({bmc.name: CONVERGE_TASKS for bmc in others}, **{running.name: 0}))
        self.assert_converged(fresh, others)
        self.assertEqual(running.read_state(), fresh[running.name])

    def test_mode_info_returns_what_the_states_hold(self):
        words = {
            'pci': {0: 'fixed', 1: 'flexible'},
            'address': {0: 'bus', 1: 'segment'},
            'mirror': {0: 'mirror_keep', 1: 'capacity_keep'},
            'operation': {0: 'performance', 1: 'normal', 2: 'partial_mirror', 3: 'full_mirror',
                          4: 'spare', 20: 'spare', 36: 'spare'},
            'sparing': {0: 'disable', 1: 'disable', 2: 'disable', 3: 'disable', 4: '1', 20: '2', 36: 'auto'},
            'dr': {0: 'disable', 1: 'enable'},
        }
        operations = [0, 1, 2, 3, 4, 20, 36, 9]

        def lan_word(mode):
            return 'device_disable' if mode & 0x10 else 'wol_disable' if mode & 0x01 else 'wol_enable'

        expected = {}
        for bmc in self.bmcs:
            i = bmc.index
            partitions = {}
            lan = {}
            expected[bmc.name] = {}
            for p in range(4):
                k = i + p
                pci = [k % 2, 7] if k % 5 == 4 else [k % 2, (k + 1) % 2]
                address = [(k // 2) % 2, k % 2]
                memory = [0, operations[k % 8], k % 2, 1, operations[(k + 3) % 8], (k // 2) % 2]
                dr = [k % 2, 1 - (k // 3) % 2]
                partitions[str(p)] = {'pci_express_mode': pci, 'pci_address_mode': address,
                                      'memory_mode': memory, 'dynamic_reconfiguration': dr}
                units = {}
                for u in (2 * p, 2 * p + 1):
                    mode = [0x00, 0x01, 0x11, 0x10, 0x21][(k + u) % 5]
                    lan[str(u)] = mode
                    units[unit_name(i, u)] = lan_word(mode)
                expected[bmc.name][p] = {
                    'pci_express_mode': {'current': words['pci'].get(pci[0], '-')},
                    'pci_address_mode': {'current': words['address'][address[0]],
                                         'setting': words['address'][address[1]]},
                    'lan_device_mode': units,
                    'memory_mirror_ras_mode': {'current': words['mirror'][memory[2]],
                                               'setting': words['mirror'][memory[5]]},
                    'memory_operation_mode': {'current': words['operation'].get(memory[1], '-'),
                                              'setting': words['operation'].get(memory[4], '-')},
                    'memory_sparing_mode': {'current': words['sparing'].get(memory[1], '-'),
                                            'setting': words['sparing'].get(memory[4], '-')},
                    'dynamic_reconfiguration': {'current': words['dr'][dr[0]], 'setting': words['dr'][dr[1]]},
                }
            bmc.reset({'partitions': partitions, 'lan_device_modes': lan})
        before = {bmc.name: bmc.state_bytes() for bmc in self.bmcs}

        rc, report, stderr = self.playbook('info.yml')
        self.assertEqual(rc, 0, stderr + json.dumps(failures(report), indent=1))
        results = self.task_results(report, 0)
        self.assertEqual(sorted(results), sorted(expected))
        for host, result in results.items():
            self.assertFalse(result['changed'])
            got = {item['item']: item['modes'] for item in result['results']}
            self.assertEqual(got, expected[host], host)
        for bmc in self.bmcs:
            self.assertEqual(bmc.state_bytes(), before[bmc.name], bmc.name)

    def test_refusals_and_a_single_partition_board(self):
        # One host is enough here.
        self.bmcs = self.bmcs[:1]
        bmc = self.bmcs[0]
        fresh = bmc.reset()
        self.write_inventory()
        rc, report, stderr = self.playbook('refusals.yml')
        self.assertEqual(rc, 0, stderr)
        tasks = report['plays'][0]['tasks']
        msgs = [task['hosts'][bmc.name].get('msg') for task in tasks]
        self.assertEqual(msgs, [
            "mode of pci_express_mode must be one of fixed, flexible, not 'Fixed'",
            "mode of memory_sparing_mode must be one of 1, 2, auto, not 'disable'",
            'unit is only taken by lan_device_mode, not by pci_address_mode',
            'feature is lan_device_mode but all of the following are missing: unit',
            'IOU#5 is no I/O unit of partition 0: the show of lan_device_mode lists IOU#0, IOU#1',
            'partmode show partition pci_express_mode 9 ended with exit status 1 (command words or '
            'arguments not accepted): The specified partition number is invalid.',
            'memory_sparing_mode of partition 0 reads disable, not auto, after partmode set partition '
            'memory_sparing_mode 0 auto quiet, which ended with exit status 2 (failure): Unable to change '
            'the mode because Memory Operation Mode is not spare mode.',
        ])
        self.assertEqual(bmc.read_state(), fresh)

        # On a single-partition board the command words drop "partition", and
        # some drop the partition number too.
        self.write_inventory({'partitions': 1})
        rc, report, stderr = self.playbook('single.yml')
        self.assertEqual(rc, 0, stderr + json.dumps(failures(report), indent=1))
        self.assert_changed(report, {bmc.name: 3})
        self.assertEqual(bmc.read_state(), merged(fresh, {
            'partitions': {'0': {'pci_express_mode': [0, 0], 'memory_mode': [0, 1, 0, 1, 1, 1]}},
            'lan_device_modes': {'0': 17}}))
        info = self.task_results(report, 3)[bmc.name]['modes']
        self.assertEqual(info['lan_device_mode'], {'IOU#0': 'device_disable', 'IOU#1': 'wol_enable'})
        self.assertEqual(info['memory_mirror_ras_mode'], {'current': 'mirror_keep', 'setting': 'capacity_keep'})
        self.assertEqual(info['pci_express_mode'], {'current': 'fixed'})


def module_utils():
    """The collection's shared module code, loaded from its file."""
    import importlib.util
    path = os.path.join(COLLECTIONS, 'ansible_collections', 'partmode', 'fleet', 'plugins', 'module_utils',
                        'partmode.py')
    spec = importlib.util.spec_from_file_location('partmode_module_utils', path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class ShowParsingTest(unittest.TestCase):
    """What the modules make of show output that the fleet tests do not reach."""

    def setUp(self):
        self.utils = module_utils()

    def test_further_settings_after_the_first_are_ignored(self):
        self.assertEqual(self.utils.parse_show('dynamic_reconfiguration',
                                               'current: enabled \nsetting: disabled\nsetting: -\n'),
                         {'current': 'enable', 'setting': 'disable'})

    def test_an_empty_answer_reads_unknown(self):
        self.assertEqual(self.utils.parse_show('dynamic_reconfiguration', ''), {'current': '-', 'setting': '-'})

    def test_output_of_another_shape_is_refused(self):
        for feature, text in (('pci_express_mode', 'pci_address_mode: fixed\n'),
                              ('pci_express_mode', 'pci_express_mode: fixed\npci_express_mode: fixed\n'),
                              ('pci_address_mode', 'current bus\n'),
                              ('memory_mirror_ras_mode', 'now: mirror_keep\n'),
                              ('lan_device_mode', 'IOU#0: LAN Device: enable   wol: maybe  \n'),
                              ('lan_device_mode', 'IOU#0: LAN Device: disable  wol: enable \n')):
            with self.assertRaises(ValueError, msg=text):
                self.utils.parse_show(feature, text)

    def test_unit_names_follow_the_board_and_its_buffer(self):
        board = self.utils.Board(environ={})
        board.io_unit_name = 'U%u 50%% %%u'
        self.assertEqual(board.unit_name(7), 'U7 50% %u')
        board.io_unit_name = 'x' * 200 + '%u'
        self.assertEqual(board.unit_name(1), 'x' * 127)

    def test_single_partition_command_words(self):
        board = self.utils.Board(environ={})
        board.partitions = 1
        self.assertEqual(self.utils.set_arguments('lan_device_mode', 0, 'wol_enable', board, 3),
                         ['set', 'lan_device_mode', '3', 'wol_enable', 'quiet'])
        self.assertEqual(self.utils.set_arguments('dynamic_reconfiguration', 0, 'enable', board),
                         ['set', 'dynamic_reconfiguration', '0', 'enable', 'quiet'])
        self.assertEqual(self.utils.show_arguments('memory_sparing_mode', 0, board), ['show', 'memory_sparing_mode'])
        self.assertEqual(self.utils.set_arguments('pci_express_mode', 0, 'fixed', board),
                         ['set', 'pci_express_mode', '0', 'fixed'])


class DocumentationTest(unittest.TestCase):
    def test_ansible_doc_renders_both_modules(self):
        env = ansible_environment(os.path.join(WORK, 'documentation'))
        run = subprocess.run(['ansible-doc', '--json', 'partmode.fleet.mode', 'partmode.fleet.mode_info'], env=env,
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ''))
        docs = json.loads(run.stdout)
        mode = docs['partmode.fleet.mode']
        self.assertEqual(sorted(mode['doc']['options']), ['board', 'executable', 'feature', 'mode', 'partition', 'unit'])
        self.assertEqual(sorted(mode['return']), ['current', 'msg', 'rc', 'setting', 'stderr', 'stdout'])
        self.assertIn('partmode.fleet.mode:', mode['examples'])
        info = docs['partmode.fleet.mode_info']
        self.assertEqual(sorted(info['doc']['options']), ['board', 'executable', 'partition'])
        self.assertEqual(sorted(info['return']['modes']['contains']), sorted(module_utils().FEATURES))
        for name in ('partmode.fleet.mode', 'partmode.fleet.mode_info'):
            run = subprocess.run(['ansible-doc', name], env=env, stdin=subprocess.DEVNULL, capture_output=True,
                                 text=True, check=False)
            self.assertEqual((run.returncode, run.stderr), (0, ''))
            self.assertIn('RETURN VALUES:', run.stdout)

    def test_the_readme_playbook_is_a_playbook(self):
        with open(os.path.join(os.path.dirname(COLLECTIONS), 'README.md')) as f:
            readme = f.read()
        section = readme[readme.index('## Many boards'):]
        playbook = section[section.index('```yaml\n') + 8:section.index('```\n', section.index('```yaml'))]
        work = os.path.join(WORK, 'readme')
        env = ansible_environment(work)
        path = os.path.join(work, 'modes.yml')
        with open(path, 'w') as f:
            f.write(playbook)
        inventory = os.path.join(work, 'boards.yml')
        with open(inventory, 'w') as f:
            json.dump({'boards': {'hosts': {'board-1': {}}}}, f)
        run = subprocess.run(['ansible-playbook', '--syntax-check', '-i', inventory, path], env=env,
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ''), run.stdout)
        self.assertIn('partmode.fleet.mode:', playbook)


if __name__ == '__main__':
    for name, value in (('FLEET_BMCS', BMCS), ('FLEET_WORK', WORK), ('PARTMODE', PARTMODE),
                        ('PARTMODE_SIM', PARTMODE_SIM)):
        if not value:
            sys.exit('fleet_test.py: %s is not set' % name)
    if shutil.which('ansible-playbook') is None:
        print('ansible-playbook is not installed (Debian package ansible-core)')
        sys.exit(77)
    unittest.main(verbosity=2)
