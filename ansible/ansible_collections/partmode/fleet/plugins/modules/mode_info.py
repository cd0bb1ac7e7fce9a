#!/usr/bin/python
# -*- coding: utf-8 -*-

from __future__ import absolute_import, division, print_function
__metaclass__ = type

DOCUMENTATION = r'''
---
module: mode_info
short_description: Read every hardware mode of one partition
version_added: "1.0.0"
description:
  - Runs C(partmode show) for each of the seven features of one physical
    partition and returns the modes in the words that
    M(partmode.fleet.mode) takes.
  - Changes nothing.
extends_documentation_fragment:
  - partmode.fleet.tool
notes:
  - Supports check mode; it reads only.
seealso:
  - module: partmode.fleet.mode
author:
  - partmode contributors
'''

EXAMPLES = r'''
- name: Read the modes of partition 0
  partmode.fleet.mode_info:
    partition: 0
  register: info

- name: Stop when the memory does not mirror
  ansible.builtin.assert:
    that: info.modes.memory_operation_mode.setting == 'full_mirror'
'''

RETURN = r'''
modes:
  description:
    - Every mode of the partition, keyed by feature keyword, in the words of
      the I(mode) option of M(partmode.fleet.mode).
    - C(-) where the firmware answered a value the tool does not know.
    - C(memory_sparing_mode) reads C(disable) while the memory does not run
      in spare mode.
  returned: success
  type: dict
  contains:
    pci_express_mode:
      description: The PCI Express mode in force, under C(current).
      type: dict
      returned: success
      sample: {"current": "flexible"}
    lan_device_mode:
      description:
        - One entry per I/O unit of the partition, keyed by the unit's
          display name as the tool prints it.
        - Each is wol_enable, wol_disable or device_disable.
        - Empty when the partition has no I/O unit.
      type: dict
      returned: success
      sample: {"IOU#0": "wol_enable", "IOU#1": "device_disable"}
    pci_address_mode:
      description: C(current) and C(setting), bus or segment.
      type: dict
      returned: success
      sample: {"current": "segment", "setting": "bus"}
    memory_mirror_ras_mode:
      description: C(current) and C(setting), mirror_keep or capacity_keep.
      type: dict
      returned: success
      sample: {"current": "mirror_keep", "setting": "capacity_keep"}
    memory_operation_mode:
      description: C(current) and C(setting), performance, normal, partial_mirror, full_mirror or spare.
      type: dict
      returned: success
      sample: {"current": "normal", "setting": "full_mirror"}
    memory_sparing_mode:
      description: C(current) and C(setting), 1, 2, auto, or disable when not in spare mode.
      type: dict
      returned: success
      sample: {"current": "disable", "setting": "2"}
    dynamic_reconfiguration:
      description: C(current) and C(setting), enable or disable.
      type: dict
      returned: success
      sample: {"current": "disable", "setting": "enable"}
msg:
  description: On failure, the show that failed, its exit status and its meaning, and the tool's standard error.
  returned: failure
  type: str
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.partmode.fleet.plugins.module_utils.partmode import (
    FEATURES,
    PartMode,
    PartModeError,
    tool_argument_spec,
)


def main():
    module = AnsibleModule(
        argument_spec=tool_argument_spec(),
        supports_check_mode=True,
    )
    modes = {}
    try:
        tool = PartMode(module, module.params['executable'], module.params['board'])
        for feature in FEATURES:
            modes[feature] = tool.show(feature, module.params['partition'])
    except PartModeError as e:
        module.fail_json(msg=e.msg, rc=e.rc, stdout=e.stdout, stderr=e.stderr)
    module.exit_json(changed=False, modes=modes)


if __name__ == '__main__':
    main()
