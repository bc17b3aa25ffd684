"""The soak: a device that lives, while everything around the daemon fails, judged strictly at each quiet point."""
import argparse
import collections
import contextlib
import os
import pathlib
import random
import re
import shutil
import sqlite3
import sys
import threading
import time

_HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(_HERE), str(_HERE.parent / "faults"), str(_HERE.parent / "system"), str(_HERE.parents[1] / "tools")]

import ledger  # noqa: E402  (needs the path above)
from demo.daemon import scaled_time  # noqa: E402
from demo.programs import NotInTime, wait_until  # noqa: E402
from demo.system_log import SystemLog  # noqa: E402
from device_life import MARKER, MODULES, DeviceLife, tipc_node  # noqa: E402
from fault_table import TABLE  # noqa: E402
from judge import Known, Round, judge  # noqa: E402
from proxy import Proxy  # noqa: E402
from recording import Recorder  # noqa: E402
from rig import ACK, BUILD, BY_TIPC, HOST, PROJECT, Rig  # noqa: E402
from sabotage import SABOTAGES  # noqa: E402
from stream import DATABASES, Contradiction, Stream, clock  # noqa: E402
from supervisor import Supervisor  # noqa: E402

_SPEED = 50  # of the daemon's clock: 300 seconds are 6
_TIME_OUT = 300 / _SPEED
_JUDGED_AGAIN_FOR = 90.0  # seconds that rows of the history are looked at again
_DESCRIPTORS = 64  # that daemon or recorder may have open
_DENIAL = re.compile(r"Card in slot .*", re.DOTALL)


class _Recorder(Recorder):
    @property
    def pid(self):
        """Its process."""
        return self._process.pid


class Soak:
    """All programs, the device's life, and what is known of them."""

    def __init__(self, seed, without, sabotage, memory_mib):
        self.seed = seed
        self.random = random.Random(f"{seed}/faults")
        self._memory_kib = memory_mib * 1024
        self._table = {name: fault for name, fault in TABLE.items() if name not in without}
        self.sabotage = SABOTAGES[sabotage](self) if sabotage else None
        self._wrong = f"-{sabotage}" if sabotage else ""
        self._stack = contextlib.ExitStack()
        self.events = collections.deque(maxlen=12)
        self.struck = collections.Counter()
        self.figures = collections.Counter()
        self.most = collections.Counter()  # memory and descriptors
        self._changes = []  # since the last quiet point
        self._known = Known()
        self._ledger = ledger.Ledger()
        self._ends = set()  # statuses that the daemon may end with in this round
        self._gives_up = False
        self._ended = self._connections = 0  # of the daemon, at the last quiet point
        self._lines = 0  # of the system log, judged
        self._since = 0.0  # the history knows nothing of before
        self.when_marked = []  # what is taken back when the daemon has come to the quiet point
        self.log_reader = threading.Event()
        self.log_reader.set()

    # Start and end

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            self._start(stack)
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_):
        self._stack.close()

    def _start(self, stack):
        self.rig = rig = Rig()
        stack.callback(rig.close)
        rig.system_log.close()
        rig.view.system_log_socket.unlink()
        rig.system_log = SystemLog(rig.view.system_log_socket, lambda *_: self.log_reader.wait())
        stack.callback(self.log_reader.set)
        self._way = rig.folder / "way"  # to the store, for the daemon
        self._way.symlink_to(rig.store.socket_path)
        self.stream = stack.enter_context(contextlib.closing(Stream(rig.store.socket_path)))
        self.stream.wait_until_subscribed()
        self.life = DeviceLife(rig.store.socket_path, self.seed)
        self.proxy = stack.enter_context(Proxy(self._way, rig.view.run / "store.sock", kept=1))
        self.set_modules(MODULES[:3])
        self.recorder = _Recorder(rig)
        stack.callback(self.recorder.end)
        self.daemon = rig.new_daemon(**{**scaled_time(_SPEED), "VX_MOM_ENDPOINT": "unix:/run/store.sock",
                                        "VX_ZLOG": "file:/log/app_cg.log:2000000000:1"})
        self.supervisor = stack.enter_context(Supervisor(self.daemon))
        self.life.begin()
        self.start_recorder()
        self._since = time.time()
        if self.sabotage:
            self.sabotage.begin()

    def summary(self):
        """What was done, and the most that it took."""
        figures = self.figures + self._ledger.outcomes + self.most
        return ", ".join(f"{count} {name}" for name, count in figures.items()) + f", {self.struck.total()} faults"

    def last_changes(self):
        """What was published last, a line each."""
        return "".join(f"  {change}\n" for change in self._changes[-12:])

    def keep_logs(self):
        """Copies what the programs have left; returns where."""
        kept = PROJECT / "build" / "soak" / f"seed-{self.seed}{self._wrong}"
        shutil.rmtree(kept, ignore_errors=True)
        kept.mkdir(parents=True)
        view = self.rig.view
        for path in (*view.log.iterdir(), view.root / "daemon.err", *self.rig.folder.glob("recorder.err"),
                     *self.rig.folder.glob("history.sqlite*"), view.store / "store.log"):
            if path.exists():
                shutil.copy(path, kept)
        (kept / "changes").write_text("".join(f"{change}\n" for change in self._changes))
        (kept / "decisions-expected").write_text("".join(f"{one}\n" for one in self._ledger.expected))
        (kept / "system-log").write_text("".join(f"{text}\n" for _, text in self.rig.system_log.lines()))
        return kept

    # For the faults

    def start_recorder(self):
        """Starts the recorder; its metrics begin with 0."""
        self._row_before, self._uncounted = ledger.last_row(self.recorder.history), collections.Counter()
        self.recorder.start()

    def move_history(self, suffix):
        """Moves the recorder's file away."""
        for path in self.rig.folder.glob("history.sqlite*"):
            path.rename(f"{path}{suffix}")
        self._row_before = None  # the new file knows less than the metrics
        self._since = time.time()

    def metrics_url(self):
        """Where the metrics are."""
        return [line.split()[-1] for line in self.recorder.said().splitlines() if "metrics are at" in line][-1]

    def set_modules(self, names):
        """Makes these the registered modules, in the order in which a folder has them."""
        self.rig.modules(*names)
        self.modules = tuple(os.listdir(self.rig.view.modules))
        self.life.modules = self.modules

    def folder_reads(self):
        """How often the daemon has read its modules' folder."""
        return self.rig.logged().count("module: num[") + self.rig.logged().count("Folder path(")

    def clients_of(self, name):
        """The store's clients of one program."""
        return [client for client in self.life.connection().client_list() if client["name"].startswith(name)]

    @staticmethod
    def descriptors(pid):
        """The number of open descriptors of a process."""
        return len(os.listdir(f"/proc/{pid}/fd"))

    def wait_for(self, condition, what, seconds=30):
        """Waits, and lets nothing else happen meanwhile."""
        try:
            wait_until(lambda: self.collect() or condition(), seconds, what)
        except NotInTime as problem:
            raise Contradiction(str(problem)) from problem

    def has_heard_all(self):
        """Whether the stream is as far as the store."""
        for (database, kind), revision in self.stream.counters.items():
            if int(self.life.connection(database).get(f"@rev:{kind}") or 0) != revision:
                return False
        return True

    def exchange_store(self, is_emptied=False):
        """Kills the store and starts it; the daemon finds it when the stream has, so that nothing goes unheard."""
        self._way.unlink()
        self.stream.lose()
        self.rig.store.kill()
        if is_emptied:
            self.collect()
            self.stream.forget()
            self.life.forget()
            self._changes.clear()
            before, self._ledger = self._ledger, ledger.Ledger()
            self._ledger.expected, self._ledger.outcomes = before.expected, before.outcomes
            self._known = Known(self._known.instance)
        self.rig.store.start()
        self.stream.wait_until_subscribed()
        self._way.symlink_to(self.rig.store.socket_path)

    # A round

    def collect(self):
        """Takes in what was published; the modules hear of it."""
        changes = self.stream.drain()
        self._changes += changes
        self._ledger.take(changes)
        self.life.hear(changes)
        self.figures["changes"] += len(changes)

    def round(self):
        """A while of life, with faults in it, and the quiet point at its end."""
        rng = self.random
        steps = rng.randrange(20, 120)
        moments = sorted((rng.randrange(steps // 2), name) for name in self._choose(rng.choice((0, 1, 1, 2)), False))
        with contextlib.ExitStack() as undo:
            for step in range(steps):
                while moments and moments[0][0] == step:
                    taken_back = self._strike(moments.pop(0)[1])
                    if taken_back:
                        undo.callback(taken_back)
                if step == steps * 3 // 4:
                    undo.close()
                self.life.step()
                self._go_on(self.life.pause())
        self._rest()
        for name in self._choose(rng.random() < 0.25, True):
            self._strike(name)

    def _choose(self, count, at_rest):
        names = [name for name, fault in self._table.items() if fault.at_rest == at_rest]
        weights = [self._table[name].weight for name in names]
        return dict.fromkeys(self.random.choices(names, weights, k=int(count))) if names and count else ()

    def _strike(self, name):
        self.events.append(f"{clock(time.time())} {name}")
        self.struck[name] += 1
        self._ends |= self._table[name].ends
        self._gives_up = self._gives_up or self._table[name].gives_up
        return self._table[name].strike(self, random.Random(f"{self.seed}/{name}/{self.struck[name]}"))

    def _go_on(self, seconds):
        """Lets time pass: the modules answer."""
        until = time.monotonic() + seconds
        while True:
            self.collect()
            if self.life.act() == 0:
                if time.monotonic() >= until:
                    return
                time.sleep(0.005)

    # The quiet point

    def _rest(self):
        """Returns when nothing moves and all is as it must be."""
        mark = f"{BY_TIPC}:{tipc_node(MARKER, 0)}"
        self.life.mark(True)
        self.wait_for(lambda: (HOST, mark) in self.stream.records, "the daemon passes the marker board")
        self.life.mark(False)
        self.wait_for(lambda: (HOST, mark) not in self.stream.records, "the daemon forgets the marker board")
        while self.when_marked:
            self.when_marked.pop()()
        if self.sabotage:
            self.sabotage.act()
        deadline = time.monotonic() + (75 if self._row_before is None else 12)
        while True:
            try:
                self._judge()
                break
            except (Contradiction, OSError, sqlite3.Error):
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.2)
        self.figures["rounds"] += 1

    def _judge(self):
        self.collect()
        deaths = self.supervisor.restarts - self._ended
        ends = set(self.supervisor.ends[self._ended:])
        if not ends <= self._ends:
            raise Contradiction(f"the daemon ended with {ends - self._ends}: {self.daemon.complained()[-2000:]}")
        is_lossy = deaths > 0 or self.proxy.accepted != self._connections
        now = time.time()
        self._judge_store()
        known = judge(self._known, self._changes, Round(is_lossy, deaths, self.modules, self._gives_up), now, _TIME_OUT)
        self._judge_system_log(known.lines, deaths)
        self._judge_history(now)
        self._judge_metrics()
        self._judge_size()
        self.figures.update({"denials": len(known.lines) // 2, "strict": not is_lossy})
        self._known = known
        self._changes.clear()
        self._lines = len(self.rig.system_log.lines())
        self._ended += deaths
        self._connections = self.proxy.accepted
        self._ends.clear()
        self._gives_up = False
        self._ledger.forget(now - 2 * _JUDGED_AGAIN_FOR)

    def _judge_store(self):
        """Index, records, counters and what was published agree; no answer is left over."""
        for database in DATABASES:
            store = self.life.connection(database)
            keys = {key for key in store.scan_iter(_type="hash") if not key.startswith("@")}
            listed = {key for index in store.scan_iter("@idx:*") for key in store.smembers(index)}
            published = {key: change for (number, key), change in self.stream.records.items() if number == database}
            if not keys == listed == set(published):
                odd = keys ^ listed | keys ^ set(published)
                raise Contradiction(f"database {database}: records, index and what was published differ in {odd}")
            for key, change in published.items():
                wanted = {**change.fields, "rev": str(change.revision), **({"by": change.mark} if change.mark else {})}
                found = store.hgetall(key)
                if found != wanted:
                    raise Contradiction(f"database {database}: {key} holds {found}; published was {wanted}")
        left = {key for _, key in self.stream.records if key.startswith(ACK)} - self.life.spoilt_answers
        if left and self.modules:
            raise Contradiction(f"answers are left over: {left}")

    def _judge_system_log(self, expected, deaths):
        found = collections.Counter()
        for _, text in self.rig.system_log.lines()[self._lines:]:
            line = _DENIAL.search(text)
            found[line.group() if line else text] += 1
        lacking = collections.Counter(expected) - found
        more = found - collections.Counter(expected)
        if sum(lacking.values()) > 2 * deaths or sum(more.values()) > 2 * deaths:
            raise Contradiction(f"the system log lacks {dict(lacking)}, and has too much: {dict(more)}")

    def _judge_history(self, now):
        rows, gaps = ledger.read_history(self.recorder, self.rig, 2 * _JUDGED_AGAIN_FOR)
        self._ledger.judge(rows, gaps, max(now - _JUDGED_AGAIN_FOR, self._since))

    def _judge_metrics(self):
        metrics = self.recorder.metrics()
        counted = collections.Counter()
        for series, value in metrics.items():
            found = re.fullmatch(r'cg_decisions_total\{decider=".*",outcome="(.*)"\}', series)
            counted[found.group(1) if found else ""] += int(value) if found else 0
        rows = ledger.count_rows(self.recorder.history, self._row_before or 0)
        if self._row_before is None:
            self._row_before, self._uncounted = 0, counted - rows
        if +counted != rows + self._uncounted:
            raise Contradiction(f"the metrics count {dict(+counted)} decisions, the history has "
                                f"{dict(rows)} and {dict(self._uncounted)} before it")
        if metrics["cg_store_connected"] != 1 or metrics["cg_history_write_failures_total"] != 0:
            raise Contradiction("the metrics say that the store is away, or that the history cannot be written")
        if metrics["cg_cards_waiting"] != self._ledger.waiting():
            raise Contradiction(f"the metrics say that {metrics['cg_cards_waiting']} cards wait, and not "
                                f"{self._ledger.waiting()}")

    def _judge_size(self):
        for name, pid in (("daemon", self.daemon.pid), ("recorder", self.recorder.pid)):
            with open(f"/proc/{pid}/status", encoding="utf-8") as status:
                memory = next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))
            descriptors = self.descriptors(pid)
            self.most[f"{name} KiB"] = max(self.most[f"{name} KiB"], memory)
            self.most[f"{name} descriptors"] = max(self.most[f"{name} descriptors"], descriptors)
            if memory > self._memory_kib or descriptors > _DESCRIPTORS:
                raise Contradiction(f"the {name} has {memory} KiB and {descriptors} descriptors")


def _arguments():
    parser = argparse.ArgumentParser(prog="tests/soak/run", description=__doc__)
    parser.add_argument("--minutes", type=float, default=2, help="how long (default: 2)")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(10 ** 6),
                        help="of everything that happens; without it a number that is printed")
    parser.add_argument("--without", action="append", default=[], metavar="FAULT", choices=sorted(TABLE),
                        help="leave a fault out: " + ", ".join(sorted(TABLE)))
    parser.add_argument("--only", action="append", default=[], metavar="FAULT", choices=sorted(TABLE),
                        help="no fault but this one")
    parser.add_argument("--sabotage", choices=sorted(SABOTAGES), help="do a wrong that has to be found")
    parser.add_argument("--memory-mib", type=int, default=64, help="that daemon or recorder may have (default: 64)")
    return parser.parse_args()


def _live(soak, minutes, begun):
    """Rounds until the time is over, and how far it is: every ten seconds on a terminal, every minute in a log."""
    every = 10 if sys.stderr.isatty() else 60
    shown = 0
    while time.monotonic() - begun < 60 * minutes:
        soak.round()
        passed = time.monotonic() - begun
        if passed - shown >= every:
            shown = passed
            print(f"{passed / 60:5.1f} min  {soak.summary()}", file=sys.stderr, flush=True)


def main():
    """Returns the exit status."""
    arguments = _arguments()
    for name in ("app_cg", "cgctl", "cg_recorderd"):
        if not (BUILD / "bin" / name).exists():
            print(f"{BUILD / 'bin' / name} is not built; set APP_CG_BUILD or run tests/soak/run", file=sys.stderr)
            return 2
    without = set(TABLE) - set(arguments.only) if arguments.only else set(arguments.without)
    print(f"soak of {arguments.minutes:g} min, seed {arguments.seed}", file=sys.stderr, flush=True)
    begun = time.monotonic()
    with Soak(arguments.seed, without, arguments.sabotage, arguments.memory_mib) as soak:
        try:
            _live(soak, arguments.minutes, begun)
        except (Contradiction, OSError, sqlite3.Error) as contradiction:
            minute = (time.monotonic() - begun) / 60
            print(f"contradiction in minute {minute:.1f}, seed {arguments.seed}: {contradiction}\n"
                  f"last changes:\n{soak.last_changes()}last faults: {', '.join(soak.events) or 'none'}\n"
                  f"logs and all changes since the last quiet point are in {soak.keep_logs()}", file=sys.stderr)
            return 1
        print(f"nothing failed in {arguments.minutes:g} min: {soak.summary()}\nfaults: "
              + ", ".join(f"{name} {count}" for name, count in sorted(soak.struck.items())))
    return 0


if __name__ == "__main__":
    sys.exit(main())
