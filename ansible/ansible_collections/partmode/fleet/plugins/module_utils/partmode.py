# -*- coding: utf-8 -*-
"""Runs partmode and reads what its show commands print.

Everything the modules know about the tool's words lives here: which feature
takes which set words, how each show prints its values, which set takes the
word quiet, how the command line differs on a single-partition system, and
what each exit status means.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

# The tool's own lookup of its board file when none is given.
DEFAULT_BOARD = '/etc/partmode/board.json'
DEFAULT_PARTITIONS = 4
DEFAULT_IO_UNIT_NAME = 'IOU#%u'
# Unit names are formatted into a buffer of this size, so longer ones are cut.
UNIT_NAME_BUFFER = 128

# What a show prints for a value the firmware answered but the tool does not know.
UNKNOWN = '-'


class Feature:
    """One feature keyword of the tool and the shape of its commands."""

    def __init__(self, keyword, words, show, quiet, number_on_single):
        self.keyword = keyword
        # The set words, in the order the tool's documentation lists them.
        self.words = words
        # 'mode': one line "KEYWORD: WORD"; 'pair': "current: WORD" and
        # "setting: WORD"; 'units': one line per I/O unit.
        self.show = show
        # Whether the set command takes the word quiet after its mode word.
        self.quiet = quiet
        # Whether a single-partition system still takes the partition number.
        self.number_on_single = number_on_single


FEATURES = dict((f.keyword, f) for f in (
    Feature('pci_express_mode', ('fixed', 'flexible'), 'mode', False, True),
    Feature('pci_address_mode', ('bus', 'segment'), 'pair', True, True),
    Feature('lan_device_mode', ('wol_enable', 'wol_disable', 'device_disable'), 'units', True, False),
    Feature('memory_mirror_ras_mode', ('mirror_keep', 'capacity_keep'), 'pair', True, False),
    Feature('memory_operation_mode', ('performance', 'normal', 'partial_mirror', 'full_mirror', 'spare'),
            'pair', True, False),
    Feature('memory_sparing_mode', ('1', '2', 'auto'), 'pair', True, False),
    Feature('dynamic_reconfiguration', ('enable', 'disable'), 'pair', True, True),
))

# The show of dynamic reconfiguration speaks in adjectives ("enabled " padded
# to the width of "disabled"); its set takes the verbs.
SHOWN_WORDS = {
    'dynamic_reconfiguration': {'enabled': 'enable', 'disabled': 'disable'},
}

# A unit's line: NAME ": LAN Device: " LAN "  wol: " WOL, each text "enable "
# (padded) or "disable". A disabled device shows wake-on-LAN disabled too.
LAN_LINE_MARK = ': LAN Device: '
LAN_WORDS = {
    ('enable', 'enable'): 'wol_enable',
    ('enable', 'disable'): 'wol_disable',
    ('disable', 'disable'): 'device_disable',
}

EXIT_MEANINGS = {
    0: 'done',
    1: 'command words or arguments not accepted',
    2: 'failure',
    51: 'the partition or system is running, or its system status does not allow the change',
    52: 'the user has no authority over the partition',
    53: 'the firmware refused the change because of the Reserved SB setting',
    54: 'the partition is not defined',
    59: 'exclusive features are enabled',
    72: 'the firmware refused the memory mode change because of the Reserved SB setting',
    77: 'a mode that excludes the change is enabled on the partition',
}


def tool_argument_spec():
    """The options of every module that runs the tool (doc fragment partmode.fleet.tool)."""
    return dict(
        partition=dict(type='int', required=True),
        board=dict(type='path'),
        executable=dict(type='path'),
    )


def exit_meaning(feature, rc, is_set):
    """What the tool says with exit status rc."""
    if is_set and feature == 'lan_device_mode' and rc == 1:
        # The LAN device set ends with 1 when it has sent the change.
        return 'the change was sent'
    if rc < 0:
        return 'killed by signal %d' % -rc
    return EXIT_MEANINGS.get(rc, 'unknown exit status')


class PartModeError(Exception):
    """A run of the tool that did not give what was asked."""

    def __init__(self, msg, rc=None, stdout='', stderr=''):
        super(PartModeError, self).__init__(msg)
        self.msg = msg
        self.rc = rc
        self.stdout = stdout
        self.stderr = stderr


def quote_stderr(stderr):
    text = stderr.strip()
    return ': ' + text if text else ' (nothing on standard error)'


class Board:
    """What the modules need of the board file: partition count and unit names.

    The file is found as the tool finds it. A board that cannot be read here
    leaves the defaults; the tool itself then reports what is wrong with it.
    """

    def __init__(self, path=None, environ=None):
        environ = os.environ if environ is None else environ
        if not path:
            path = environ.get('PARTMODE_BOARD') or None
        if not path and os.path.exists(DEFAULT_BOARD):
            path = DEFAULT_BOARD
        self.path = path
        self.partitions = DEFAULT_PARTITIONS
        self.io_unit_name = DEFAULT_IO_UNIT_NAME
        if path:
            self._load(path)

    def _load(self, path):
        try:
            with open(path, 'rb') as f:
                data = json.loads(f.read().decode('utf-8'))
        except (IOError, OSError, ValueError):
            return
        if not isinstance(data, dict):
            return
        partitions = data.get('partitions')
        if isinstance(partitions, int) and not isinstance(partitions, bool):
            self.partitions = partitions
        name = data.get('io_unit_name')
        if isinstance(name, str):
            self.io_unit_name = name

    @property
    def single_partition(self):
        return self.partitions == 1

    def unit_name(self, unit):
        """The display name of I/O unit `unit`, as the tool prints it."""
        # The board allows exactly one %u and otherwise only %%.
        name = '%'.join(piece.replace('%u', str(unit)) for piece in self.io_unit_name.split('%%'))
        encoded = name.encode('utf-8')
        if len(encoded) >= UNIT_NAME_BUFFER:
            name = encoded[:UNIT_NAME_BUFFER - 1].decode('utf-8', 'replace')
        return name


def _command_words(verb, feature, partition, board):
    words = [verb]
    if not board.single_partition:
        words.append('partition')
    words.append(feature)
    if not board.single_partition or FEATURES[feature].number_on_single:
        words.append(str(partition))
    return words


def show_arguments(feature, partition, board):
    return _command_words('show', feature, partition, board)


def set_arguments(feature, partition, mode, board, unit=None):
    words = _command_words('set', feature, partition, board)
    if feature == 'lan_device_mode':
        words.append(str(unit))
    words.append(mode)
    if FEATURES[feature].quiet:
        # Never a prompt: the module has nobody to answer it.
        words.append('quiet')
    return words


def _word(feature, shown):
    """A set word from a word that a show printed (trailing blanks dropped)."""
    shown = shown.rstrip(' ')
    if shown == UNKNOWN:
        return UNKNOWN
    return SHOWN_WORDS.get(feature, {}).get(shown, shown)


def _unexpected(feature, stdout):
    return ValueError('unexpected output of the show of %s: %r' % (feature, stdout))


def parse_show(feature, stdout):
    """The values a show printed, in set words.

    pci_express_mode: {'current': W}; lan_device_mode: {UNIT NAME: W} in the
    order printed (a unit printed twice keeps its last line); every other
    feature: {'current': W, 'setting': W}. A value the firmware did not give
    reads '-'.
    """
    spec = FEATURES[feature]
    lines = stdout.splitlines()
    if spec.show == 'mode':
        prefix = feature + ': '
        if len(lines) != 1 or not lines[0].startswith(prefix):
            raise _unexpected(feature, stdout)
        return {'current': _word(feature, lines[0][len(prefix):])}
    if spec.show == 'units':
        units = {}
        for line in lines:
            name, mark, rest = line.rpartition(LAN_LINE_MARK)
            lan, sep, wol = rest.partition('  wol: ')
            key = (lan.rstrip(' '), wol.rstrip(' '))
            if not mark or not sep or key not in LAN_WORDS:
                raise _unexpected(feature, stdout)
            units[name] = LAN_WORDS[key]
        return units
    values = {'current': UNKNOWN, 'setting': UNKNOWN}
    seen = set()
    for line in lines:
        label, sep, shown = line.partition(': ')
        if not sep or label not in values:
            raise _unexpected(feature, stdout)
        # A show of dynamic reconfiguration may print further settings; the
        # first one is the one that takes effect.
        if label not in seen:
            values[label] = _word(feature, shown)
            seen.add(label)
    return values


class PartMode:
    """The tool as one module runs it."""

    def __init__(self, module, executable=None, board=None):
        self.module = module
        self.board_path = board
        self.board = Board(board)
        # rc, stdout and stderr of the last run.
        self.last = dict(rc=0, stdout='', stderr='')
        self.executable = executable or module.get_bin_path('partmode', opt_dirs=['/usr/sbin'])
        if not self.executable:
            raise PartModeError('partmode was found neither on PATH nor in /usr/sbin; give executable')

    def run(self, words):
        environ = {'PARTMODE_BOARD': self.board_path} if self.board_path else {}
        rc, out, err = self.module.run_command([self.executable] + words, environ_update=environ,
                                               check_rc=False)
        self.last = dict(rc=rc, stdout=out, stderr=err)
        return rc, out, err

    def describe(self, words):
        return 'partmode ' + ' '.join(words)

    def show(self, feature, partition):
        """Runs the show of a feature and returns what parse_show makes of it."""
        words = show_arguments(feature, partition, self.board)
        rc, out, err = self.run(words)
        if rc != 0:
            raise PartModeError('%s ended with exit status %d (%s)%s' % (
                self.describe(words), rc, exit_meaning(feature, rc, False), quote_stderr(err)),
                rc=rc, stdout=out, stderr=err)
        try:
            return parse_show(feature, out)
        except ValueError as e:
            raise PartModeError(str(e), rc=rc, stdout=out, stderr=err)

    def set(self, feature, partition, mode, unit=None):
        """Runs the set; returns its words, exit status and output."""
        words = set_arguments(feature, partition, mode, self.board, unit)
        rc, out, err = self.run(words)
        return words, rc, out, err


def effective(feature, values, unit_name=None):
    """(current, setting) of what a show read: the setting is what will be in force.

    pci_express_mode and lan_device_mode print one value; it is both.
    """
    if feature == 'lan_device_mode':
        value = values.get(unit_name)
        return value, value
    if feature == 'pci_express_mode':
        return values['current'], values['current']
    return values['current'], values['setting']
