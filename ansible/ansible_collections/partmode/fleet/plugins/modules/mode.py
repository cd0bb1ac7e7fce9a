#!/usr/bin/python
# -*- coding: utf-8 -*-

from __future__ import absolute_import, division, print_function
__metaclass__ = type

DOCUMENTATION = r'''
---
module: mode
short_description: Make one hardware mode of one partition what it should be
version_added: "1.0.0"
description:
  - Reads one mode of one physical partition with C(partmode show), and when
    the value that will take effect differs from I(mode), sets it with
    C(partmode set) and reads it back.
  - The value compared is the C(setting) line where the show prints current
    and setting, the mode for C(pci_express_mode), and the unit's line, found
    by the unit's display name, for C(lan_device_mode).
  - The set is given the word C(quiet) wherever the tool takes one, so that
    it never asks for a confirmation.
  - Success is decided by reading back, not by the set's exit status, since
    a LAN device set that was sent ends with 1 and a declined or refused one
    with 0.
  - Most changes take effect at the partition's next power off/on; C(current)
    then still shows the mode in force.
  - "Runs the tool where the task runs: on the management board itself, or on
    a management station with one board file per BMC (C(delegate_to) or
    C(connection: local))."
options:
  feature:
    description: The feature keyword of the tool.
    type: str
    required: true
    choices:
      - pci_express_mode
      - pci_address_mode
      - lan_device_mode
      - memory_mirror_ras_mode
      - memory_operation_mode
      - memory_sparing_mode
      - dynamic_reconfiguration
  unit:
    description:
      - The I/O unit number.
      - Required for C(lan_device_mode) and refused for the other features.
    type: int
  mode:
    description:
      - The wanted mode, one of the tool's own set words for I(feature).
      - C(pci_express_mode) fixed, flexible; C(pci_address_mode) bus, segment;
        C(lan_device_mode) wol_enable, wol_disable, device_disable;
        C(memory_mirror_ras_mode) mirror_keep, capacity_keep;
        C(memory_operation_mode) performance, normal, partial_mirror,
        full_mirror, spare; C(memory_sparing_mode) 1, 2, auto (quote the
        numbers); C(dynamic_reconfiguration) enable, disable.
    type: str
    required: true
extends_documentation_fragment:
  - partmode.fleet.tool
notes:
  - Supports check mode and diff mode.
  - The user that runs the task must be allowed to set the partition's
    modes, as for any run of the tool.
seealso:
  - module: partmode.fleet.mode_info
author:
  - partmode contributors
'''

EXAMPLES = r'''
- name: PCI Express mode fixed on partition 0
  partmode.fleet.mode:
    feature: pci_express_mode
    partition: 0
    mode: fixed

- name: Wake-on-LAN off on I/O unit 1 of partition 0, from a management station
  partmode.fleet.mode:
    feature: lan_device_mode
    partition: 0
    unit: 1
    mode: wol_disable
    board: "/etc/partmode/boards/{{ inventory_hostname }}.json"
  delegate_to: localhost

- name: Two-rank sparing on partition 2
  partmode.fleet.mode:
    feature: memory_sparing_mode
    partition: 2
    mode: "2"
'''

RETURN = r'''
current:
  description:
    - The mode in force, after the run, in the same words as I(mode); C(-)
      where the firmware answered a value the tool does not know.
    - For C(pci_express_mode) and C(lan_device_mode), whose shows print one
      value, that value.
    - For C(memory_sparing_mode) on a partition whose memory does not run
      in spare mode, C(disable).
  returned: when the mode could be read
  type: str
  sample: mirror_keep
setting:
  description:
    - The mode that takes effect at the next power off/on, after the run, in
      the same words as I(mode); C(-) where unknown.
    - For C(pci_express_mode) and C(lan_device_mode), the one value their
      shows print.
  returned: when the mode could be read
  type: str
  sample: capacity_keep
rc:
  description: Exit status of the set when one ran, else of the show.
  returned: always
  type: int
  sample: 0
stdout:
  description: Standard output of the set when one ran, else of the show.
  returned: always
  type: str
  sample: "pci_express_mode: fixed\n"
stderr:
  description: Standard error of the set when one ran, else of the show.
  returned: always
  type: str
  sample: ""
msg:
  description:
    - On failure, what failed, the exit status and its meaning, and the
      tool's standard error.
  returned: failure
  type: str
  sample: >-
    pci_express_mode of partition 0 reads flexible, not fixed, after partmode
    set partition pci_express_mode 0 fixed, which ended with exit status 51
    (the partition or system is running, or its system status does not allow
    the change): Unable to change the mode while the partition is running.
    Please try to change the mode after the partition is shutdown.
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.partmode.fleet.plugins.module_utils.partmode import (
    FEATURES,
    PartMode,
    PartModeError,
    effective,
    exit_meaning,
    quote_stderr,
    tool_argument_spec,
)


def describe(current, setting):
    return 'current: %s\nsetting: %s\n' % (current, setting)


def read(tool, feature, partition, unit_name):
    values = tool.show(feature, partition)
    current, setting = effective(feature, values, unit_name)
    if current is None:
        raise PartModeError('%s is no I/O unit of partition %d: the show of lan_device_mode lists %s' % (
            unit_name, partition, ', '.join(values) or 'no unit'), **tool.last)
    return current, setting


def main():
    module = AnsibleModule(
        argument_spec=dict(
            tool_argument_spec(),
            feature=dict(type='str', required=True, choices=list(FEATURES)),
            unit=dict(type='int'),
            mode=dict(type='str', required=True),
        ),
        required_if=[('feature', 'lan_device_mode', ('unit',))],
        supports_check_mode=True,
    )
    feature = module.params['feature']
    partition = module.params['partition']
    unit = module.params['unit']
    wanted = module.params['mode']
    if feature != 'lan_device_mode' and unit is not None:
        module.fail_json(msg='unit is only taken by lan_device_mode, not by %s' % feature)
    if wanted not in FEATURES[feature].words:
        module.fail_json(msg='mode of %s must be one of %s, not %r' % (
            feature, ', '.join(FEATURES[feature].words), wanted))

    # failed is given outright: Ansible takes a result with rc other than 0
    # and no failed key for a failure, and a sent LAN device change ends with 1.
    result = dict(changed=False, failed=False)
    try:
        tool = PartMode(module, module.params['executable'], module.params['board'])
        unit_name = tool.board.unit_name(unit) if feature == 'lan_device_mode' else None
        before = read(tool, feature, partition, unit_name)
    except PartModeError as e:
        module.fail_json(msg=e.msg, rc=e.rc, stdout=e.stdout, stderr=e.stderr)

    result.update(tool.last, current=before[0], setting=before[1])
    if before[1] == wanted:
        module.exit_json(**result)

    after_wanted = (wanted if feature in ('pci_express_mode', 'lan_device_mode') else before[0], wanted)
    result['changed'] = True
    if module._diff:
        result['diff'] = dict(before=describe(*before), after=describe(*after_wanted))
    if module.check_mode:
        module.exit_json(**result)

    words, rc, out, err = tool.set(feature, partition, wanted, unit)
    result.update(rc=rc, stdout=out, stderr=err)
    try:
        after = read(tool, feature, partition, unit_name)
    except PartModeError as e:
        module.fail_json(msg='reading back failed (%s) after %s' % (e.msg, describe_set(tool, words, feature, rc, err)),
                         **result)
    result.update(current=after[0], setting=after[1], changed=after != before)
    if module._diff:
        result['diff'] = dict(before=describe(*before), after=describe(*after))
    if after[1] != wanted:
        module.fail_json(msg='%s of partition %d reads %s, not %s, after %s' % (
            feature, partition, after[1], wanted, describe_set(tool, words, feature, rc, err)), **result)
    module.exit_json(**result)


def describe_set(tool, words, feature, rc, err):
    return '%s, which ended with exit status %d (%s)%s' % (
        tool.describe(words), rc, exit_meaning(feature, rc, True), quote_stderr(err))


if __name__ == '__main__':
    main()
