"""Wrongs that the soak does on purpose, to show that it sees them. Each is done again in every round."""
import sqlite3

import alarms
import gate
import ledger
from rig import ACK, BY_TIPC, HOST, REQUEST


class _Sabotage:
    def __init__(self, soak):
        self._soak = soak

    def begin(self):
        """Called once, when all runs."""

    def act(self):
        """Called at each quiet point, before it is judged."""


class AnswerLost(_Sabotage):
    """A module's answer does not reach the daemon: another text comes in its place."""

    _is_due = True

    def begin(self):
        self._soak.proxy.pushed = self._pushed

    def act(self):
        self._is_due = True

    def _pushed(self, raw, parts):
        channel, payload = parts[-2], parts[-1]
        if f":{ACK}:".encode() not in channel or b"1:41:" not in payload[:24] or not self._is_due:
            return raw
        self._is_due = False
        colon = payload.index(b":")
        revision = payload[:colon + 1 + int(payload[:colon])]
        parts = [*parts[:-1], revision + b"1:41:1" + b"1:67:perhaps"]
        return b"*%d\r\n" % len(parts) + b"".join(b"$%d\r\n%s\r\n" % (len(part), part) for part in parts)


class ResultDeleted(_Sabotage):
    """Somebody deletes a result behind the daemon's back."""

    def act(self):
        for database, key in self._soak.stream.records:
            if key.startswith(BY_TIPC):
                self._soak.life.connection(database).delete(key)
                return


class HistoryEdited(_Sabotage):
    """Somebody edits a row of the history."""

    def act(self):
        with sqlite3.connect(self._soak.recorder.history, timeout=10) as file:
            file.execute("UPDATE decisions SET outcome = CASE outcome WHEN 'denied' THEN 'passed' ELSE 'denied' END "
                         "WHERE id = (SELECT max(id) FROM decisions WHERE complete = 1)")


class HistoryUnsure(_Sabotage):
    """The recorder says of what it saw that it did not."""

    def act(self):
        with sqlite3.connect(self._soak.recorder.history, timeout=10) as file:
            file.execute("UPDATE decisions SET complete = 0")


class GapEndless(_Sabotage):
    """The recorder says that it misses everything."""

    def begin(self):
        true_history = ledger.read_history
        ledger.read_history = lambda *arguments: (true_history(*arguments)[0], [(0.0, float("inf"))])


class VerdictChanged(_Sabotage):
    """The gate's rules are others: a DENY passes."""

    def begin(self):
        true_answer = gate.answer
        gate.answer = lambda node, module, record, around: true_answer(
            node, module, {**record, "6": "0"} if record.get("6") == "1" else record, around)


class LineSwallowed(_Sabotage):
    """A line of the system log gets lost."""

    def begin(self):
        true_lines = self._soak.rig.system_log.lines
        self._soak.rig.system_log.lines = lambda: true_lines()[1:]


class LinesExchanged(_Sabotage):
    """The lines of the system log are in another order."""

    def begin(self):
        true_lines = self._soak.rig.system_log.lines
        self._soak.rig.system_log.lines = lambda: [line for pair in zip(
            true_lines()[1::2], true_lines()[::2]) for line in pair]


class RegistryMistaken(_Sabotage):
    """The recorder believes in other modules than there are."""

    def begin(self):
        true_metrics = self._soak.recorder.metrics
        self._soak.recorder.metrics = lambda: {**true_metrics(), "cg_modules_registered": 7}


class DaemonGrows(_Sabotage):
    """The daemon needs more memory with each round."""

    def begin(self):
        self._grown = 0
        true_memory = alarms.memory_of
        alarms.memory_of = lambda pid: true_memory(pid) + self._grown

    def act(self):
        self._grown += 4096


class ShellMistaken(_Sabotage):
    """The daemon knows other modules than its folder has."""

    def begin(self):
        true_modules = alarms.modules_known
        alarms.modules_known = lambda rig: true_modules(rig)[1:]


class HeartbeatsMissing(_Sabotage):
    """The daemon sends no heartbeats."""

    def begin(self):
        self._soak.daemon.manager.hold()


class LogLost(_Sabotage):
    """The daemon loses records of its log without a reason."""

    def begin(self):
        true_health = alarms.health_of
        alarms.health_of = lambda rig: {**true_health(rig), "log_dropped": 3}


class MetricsAhead(_Sabotage):
    """The recorder counts what it does not write."""

    def begin(self):
        true_metrics = self._soak.recorder.metrics
        series = 'cg_decisions_total{decider="nobody",outcome="passed"}'
        self._soak.recorder.metrics = lambda: {**true_metrics(), series: 1}


class RequestDeleted(_Sabotage):
    """The request of a card under check vanishes, as a change that is published."""

    def act(self):
        for database, key in self._soak.stream.records:
            if database == HOST and key.startswith(REQUEST):
                self._soak.life.write(HOST, "delete", key)
                return


SABOTAGES = {"answer-lost": AnswerLost, "result-deleted": ResultDeleted, "history-edited": HistoryEdited,
             "history-unsure": HistoryUnsure, "gap-endless": GapEndless, "verdict-changed": VerdictChanged,
             "line-swallowed": LineSwallowed, "lines-exchanged": LinesExchanged, "metrics-ahead": MetricsAhead,
             "request-deleted": RequestDeleted, "registry-mistaken": RegistryMistaken, "daemon-grows": DaemonGrows,
             "shell-mistaken": ShellMistaken, "heartbeats-missing": HeartbeatsMissing, "log-lost": LogLost}
