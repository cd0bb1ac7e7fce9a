"""Prints what a playbook run did as one JSON document, for the fleet tests.

{"plays": [{"tasks": [{"name": ..., "hosts": {HOST: RESULT}}]}],
 "stats": {HOST: {"ok": ..., "changed": ..., "failures": ..., ...}}}
"""

import json

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = 'stdout'
    CALLBACK_NAME = 'fleet_report'

    def __init__(self):
        super().__init__()
        self.plays = []

    def v2_playbook_on_play_start(self, play):
        self.plays.append({'name': play.get_name(), 'tasks': []})

    def v2_playbook_on_task_start(self, task, is_conditional):
        self.plays[-1]['tasks'].append({'name': task.get_name(), 'hosts': {}})

    def record(self, result, **extra):
        entry = dict(result._result)
        entry.update(extra)
        self.plays[-1]['tasks'][-1]['hosts'][result._host.get_name()] = entry

    def v2_runner_on_ok(self, result):
        self.record(result)

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.record(result, failed=True)

    def v2_runner_on_skipped(self, result):
        self.record(result, skipped=True)

    def v2_runner_on_unreachable(self, result):
        self.record(result, unreachable=True)

    def v2_playbook_on_stats(self, stats):
        report = {
            'plays': self.plays,
            'stats': {host: stats.summarize(host) for host in sorted(stats.processed)},
        }
        self._display.display(json.dumps(report, default=str))
