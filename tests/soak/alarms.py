"""What the programs say of themselves at a quiet point: metrics, published health, the process manager, the debug shell."""
import collections
import os
import re

import ledger
import neighbours
from rig import HOST
from stream import Contradiction

_DESCRIPTORS = 64  # that daemon or recorder may have open, beside those that each "collect" holds
_FIRST = 5  # quiet points that show how large the programs are


def descriptors_of(pid):
    """The number of open descriptors of a process."""
    return len(os.listdir(f"/proc/{pid}/fd"))


def memory_of(pid):
    """The resident memory of a process, in KiB."""
    with open(f"/proc/{pid}/status", encoding="utf-8") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


def health_of(rig):
    """What the daemon publishes of its health: {field: number}."""
    return {name: int(number) for name, number in rig.database(HOST).hgetall("@health").items() if number.isdigit()}


def is_short_of_descriptors(published):
    """Whether metrics or published health say so; either has the number and the limit."""
    return published[0] > 0 and published[0] >= published[1] // 4 * 3


def descriptors_shown(metrics):
    """(open, limit) as the recorder has them from the daemon."""
    return metrics["cg_daemon_descriptors"], metrics["cg_daemon_descriptors_limit"]


class Sizes:
    """Memory and descriptors: of each program no more than at the first quiet points, and what it may grow by."""

    def __init__(self, growth_mib):
        self._growth_kib = growth_mib * 1024
        self._first = collections.defaultdict(list)
        self.most = collections.Counter()

    def judge(self, name, pid, held=0):
        """Raises Contradiction when a process is too large; `held` descriptors are explained."""
        memory, descriptors = memory_of(pid), descriptors_of(pid)
        self.most[f"{name} KiB"] = max(self.most[f"{name} KiB"], memory)
        self.most[f"{name} descriptors"] = max(self.most[f"{name} descriptors"], descriptors)
        first = self._first[name]
        if len(first) < _FIRST:
            first.append(memory)
        if memory > max(first) + self._growth_kib or descriptors > _DESCRIPTORS + held:
            raise Contradiction(f"the {name} has {memory} KiB and {descriptors} descriptors; it began with "
                                f"{max(first)} KiB")


class Counts:
    """The metrics' count of decisions beside the rows of the history, which may have begun later than the metrics."""

    def __init__(self, history):
        self._history = history
        self.is_known = True
        self.restart()

    def restart(self):
        """The recorder is about to start: its metrics begin with 0."""
        if self.is_known:
            self._row_before, self._uncounted = ledger.last_row(self._history), {}

    def move(self):
        """Another file takes the history's place: it knows less than the metrics."""
        self._row_before, self._uncounted, self.is_known = 0, None, False

    def judge(self, metrics):
        """Raises Contradiction unless both count the same; after move() until two readings in a row agree."""
        counted = collections.Counter()
        for series, value in metrics.items():
            found = re.fullmatch(r'cg_decisions_total\{decider=".*",outcome="(.*)"\}', series)
            if found:
                counted[found.group(1)] += int(value)
        rows = ledger.count_rows(self._history, self._row_before)
        counted.subtract(rows)
        uncounted = {outcome: count for outcome, count in counted.items() if count}
        if not self.is_known:
            before, self._uncounted = self._uncounted, uncounted
            self.is_known = uncounted == before
        if not self.is_known or uncounted != self._uncounted:
            raise Contradiction(f"the metrics count {uncounted} decisions more than the history's {dict(rows)}; "
                                f"before it there were {self._uncounted}")


def modules_known(rig):
    """The modules that the daemon has registered, as its debug shell has them; Contradiction when it does not answer."""
    collected = rig.view.data / "collect" / "app_cg.log"  # since "collect" the daemon prints there
    if collected.exists():
        os.truncate(collected, 0)
    done = rig.cgctl.attempt("debug", "dump_check_module")
    printed = done.stdout + (collected.read_text(errors="replace").lstrip("\0") if collected.exists() else "")
    if done.returncode != 0:
        raise Contradiction(f"the debug shell: {done.stdout} {done.stderr}")
    return tuple(re.findall(r"wait mod\[.*\], name\[(.*)\]", printed))


def judge_metrics(metrics, modules, asks_nobody, waiting):
    """What the recorder says of store, history, modules, cards and daemon, while all is well."""
    connected = [value for series, value in metrics.items() if series.startswith("cg_store_connected{")]
    if set(connected) != {1} or metrics["cg_history_write_failures_total"] != 0:
        raise Contradiction("the metrics say that the store is away, or that the history cannot be written")
    if metrics["cg_cards_waiting"] != waiting:
        raise Contradiction(f"the metrics say that {metrics['cg_cards_waiting']} cards wait, and not {waiting}")
    registered = metrics["cg_modules_registered"]
    if registered != len(modules) and not (asks_nobody and registered == 0):
        raise Contradiction(f"the metrics say that {registered} modules are registered, and not {modules}")
    if metrics["cg_system_log_dropped_total"] != 0:
        raise Contradiction("the metrics say that lines for the system log were dropped; there was room for all")
    if is_short_of_descriptors(descriptors_shown(metrics)):
        raise Contradiction(f"the metrics say that the daemon has {descriptors_shown(metrics)} descriptors")


class LogLosses:
    """Records of the daemon's log that were lost: none, unless nobody reads it, and then it is said."""

    def __init__(self):
        self._before = 0

    def judge(self, lost, metrics, log, may_rise):
        """`lost`: as the daemon published it; `log`: where this life logs; `may_rise`: nobody read for a while."""
        counted = metrics["cg_daemon_log_dropped_total"]
        if counted < (min(lost, 1) if log == neighbours.FULL else lost):  # there it rises while we look
            raise Contradiction(f"the metrics say nothing of some of {lost} records of the daemon's log that are lost")
        if log == neighbours.FULL and not lost:
            raise Contradiction("a full disk under the daemon's log is not reported")
        has_room = log not in (neighbours.FULL, neighbours.JOURNAL)  # a burst overtakes a journal with a queue of ten
        if has_room and not may_rise and lost > self._before:
            raise Contradiction(f"{lost} records of the daemon's log are lost, and not {self._before}")

    def keep(self, lost):
        """At a quiet point where all was well."""
        self._before = lost
