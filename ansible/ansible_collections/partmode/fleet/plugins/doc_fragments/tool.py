# -*- coding: utf-8 -*-

from __future__ import absolute_import, division, print_function
__metaclass__ = type


class ModuleDocFragment(object):
    # The options of every module that runs partmode.
    DOCUMENTATION = r'''
options:
  partition:
    description: The physical partition number.
    type: int
    required: true
  board:
    description:
      - Path of the board file, passed to the tool as C(PARTMODE_BOARD).
      - Without it the tool finds its board as it always does
        (C(PARTMODE_BOARD) of the task's environment, then
        C(/etc/partmode/board.json), then its built-in default).
      - The module reads the same file for the partition count and the I/O
        unit names.
    type: path
  executable:
    description:
      - The partmode program.
      - Without it, C(partmode) on C(PATH), then C(/usr/sbin/partmode).
    type: path
'''
