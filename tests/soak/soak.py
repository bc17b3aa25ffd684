"""The soak: a device that lives, while everything around the daemon fails, judged strictly at each quiet point."""
import argparse
import collections
import contextlib
import os
import pathlib
import random
import re
import shutil
import signal
import sqlite3
import sys
import time

_HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(_HERE), str(_HERE.parent / "faults"), str(_HERE.parent / "system"), str(_HERE.parents[1] / "tools")]

import alarms  # noqa: E402  (needs the path above)
import ledger  # noqa: E402
from demo.daemon import scaled_time  # noqa: E402
from demo.programs import NotInTime, wait_until  # noqa: E402
from demo.records import colons  # noqa: E402
from demo.supervisor import Supervisor  # noqa: E402
from device_life import MARKER, MODULES, DeviceLife, tipc_node  # noqa: E402
from fault_table import TABLE  # noqa: E402
from judge import Known, Round, judge  # noqa: E402
from neighbours import LoggingDaemon  # noqa: E402
from proxy import Proxy  # noqa: E402
from recording import Recorder  # noqa: E402
from rig import ACK, BUILD, BY_POSITION, BY_TIPC, CAP, HOST, PROJECT, Rig  # noqa: E402
from sabotage import SABOTAGES  # noqa: E402
from stream import DATABASES, Contradiction, Stream, clock  # noqa: E402

_SPEED = 50  # of the daemon's clock: 300 seconds are 6
_TIME_OUT = 300 / _SPEED
_JUDGED_AGAIN_FOR = 90.0  # seconds that rows of the history are looked at again
_ROUNDS_TO_BE_STRICT = 30  # one of so many has to be
_NEVER = float("inf")
_DENIAL = re.compile(r"Card in slot .*", re.DOTALL)


class Interrupted(BaseException):
    """A signal ends the run."""


class _Recorder(Recorder):
    @property
    def is_running(self):
        """Whether it was started, and not ended by us."""
        return self._process is not None

    @property
    def pid(self):
        """Its process."""
        return self._process.pid


class Soak:
    """All programs, the device's life, and what is known of them."""

    def __init__(self, seed, without, sabotage, memory_mib):
        self.seed = seed
        self.random = random.Random(f"{seed}/faults")
        self._table = {name: fault for name, fault in TABLE.items() if name not in without}
        self.sabotage = SABOTAGES[sabotage](self) if sabotage else None
        self._wrong = f"-{sabotage}" if sabotage else ""
        self._stack = contextlib.ExitStack()
        self.events = collections.deque(maxlen=12)
        self.struck = collections.Counter()
        self.figures = collections.Counter()
        self._sizes = alarms.Sizes(memory_mib)
        self._losses = alarms.LogLosses()
        self._changes = []  # since the last quiet point
        self._known = Known()
        self._ledger = ledger.Ledger()
        self._faults = set()  # their names, since the last quiet point
        self._ended = self._connections = 0  # of the daemon, at the last quiet point
        self._lines = 0  # of the system log, judged
        self._since = 0.0  # the history knows nothing of before
        self._heard_since = _NEVER  # the recorder can have missed nothing
        self._exact_since = _NEVER  # likewise, and it has heard this life of the daemon begin
        self._heartbeats = 0  # at the last quiet point
        self.collects = collections.Counter()  # pid of the daemon: how often its output was collected
        self.when_marked = []  # what is taken back when the daemon has come to the quiet point

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
        self._way = rig.folder / "way"  # to the store, for the daemon
        self._way.symlink_to(rig.store.socket_path)
        self.stream = stack.enter_context(contextlib.closing(Stream(rig.store.socket_path)))
        self.stream.wait_until_subscribed()
        self.life = DeviceLife(rig.store.socket_path, self.seed)
        self.proxy = stack.enter_context(Proxy(self._way, rig.view.run / "store.sock", kept=1))
        self.set_modules(MODULES[:3])
        self.recorder = _Recorder(rig)
        stack.callback(self.recorder.end)
        self.daemon = LoggingDaemon(rig.view, self.seed, {**scaled_time(_SPEED),
                                                          "VX_MOM_ENDPOINT": "unix:/run/store.sock"})
        stack.callback(self.daemon.close)
        self.counts = alarms.Counts(self.recorder.history)
        self.start_recorder()  # what it has not seen begin it does not know for certain
        self._since = time.time()
        self.supervisor = stack.enter_context(Supervisor(self.daemon))
        stack.callback(self.daemon.stop)  # while the thread lives that has started it
        self.life.begin()
        if self.sabotage:
            self.sabotage.begin()

    def summary(self):
        """What was done, and the most that it took."""
        figures = self.figures + self._ledger.outcomes + self._sizes.most
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
        for path in (*view.log.rglob("*"), *self.rig.folder.glob("recorder.err"),
                     *self.rig.folder.glob("history.sqlite*"), view.store / "store.log"):
            if path.is_file():
                shutil.copy(path, kept)
        (kept / "changes").write_text("".join(f"{change}\n" for change in self._changes))
        (kept / "decisions-expected").write_text("".join(f"{one}\n" for one in self._ledger.expected))
        (kept / "system-log").write_text("".join(f"{text}\n" for _, text in self.rig.system_log.lines()))
        return kept

    # For the faults

    def start_recorder(self):
        """Starts the recorder."""
        self.counts.restart()
        self.recorder.start()
        if not self.counts.is_known:  # its file was lost, and the new one knows of nothing before it, gaps included
            self._since = time.time()

    def daemon_runs(self):
        """Whether the daemon has not been stopped."""
        with contextlib.suppress(OSError):
            stat = pathlib.Path(f"/proc/{self.daemon.pid}/stat").read_text(encoding="utf-8")
            return stat.rpartition(")")[2].split()[0] != "T"
        return False

    def lose_history(self, lose):
        """Lets lose(file) take the recorder's files away, one after the other."""
        for suffix in ("", "-wal", "-shm"):
            with contextlib.suppress(FileNotFoundError):
                lose(pathlib.Path(f"{self.recorder.history}{suffix}"))
        self.counts.move()
        self._since = time.time()

    def set_modules(self, names):
        """Makes these the registered modules, in the order in which a folder has them."""
        self.rig.modules(*names)
        self.modules = tuple(os.listdir(self.rig.view.modules))
        self.life.modules = self.modules

    def has_struck(self, name):
        """Whether there was this fault since the last quiet point."""
        return name in self._faults

    def clients_of(self, name):
        """The store's clients of one program."""
        return [client for client in self.life.connection().client_list() if client["name"].startswith(name)]

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
        self._faults.add(name)
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
        mark = (HOST, f"{BY_TIPC}:{tipc_node(MARKER, 0)}")
        last = (CAP, f"{BY_POSITION}:0:{colons(MARKER)}")  # that goes with it
        self.life.mark(True)
        self.wait_for(lambda: mark in self.stream.records, "the daemon passes the marker board")
        self.life.mark(False)
        self.wait_for(lambda: not {mark, last} & self.stream.records.keys(), "the daemon forgets the marker board")
        while self.when_marked:
            self.when_marked.pop()()
        if self.sabotage:
            self.sabotage.act()
        deadline = time.monotonic() + (12 if self.counts.is_known else 75)
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
        faults = [self._table[name] for name in self._faults]
        ends = set(self.supervisor.ends[self._ended:]).difference(*(fault.ends for fault in faults))
        if ends:
            raise Contradiction(f"the daemon ended with {ends}: {self.daemon.complained()[-2000:]}")
        is_lossy = deaths > 0 or self.proxy.accepted != self._connections
        now = time.time()
        self._judge_store()
        round_ = Round(is_lossy, deaths, self.modules, any(fault.gives_up for fault in faults))
        known = judge(self._known, self._changes, round_, now, _TIME_OUT)
        self._judge_system_log(known.lines, deaths)
        is_missed = any(fault.is_missed for fault in faults)
        is_heard = not is_lossy and not is_missed
        self._judge_history(now, is_heard)
        health = self._judge_alarms()
        self._sizes.judge("daemon", self.daemon.pid, self.collects[self.daemon.pid])
        self._sizes.judge("recorder", self.recorder.pid)
        self._judge_complaints()
        self.figures.update({"denials": len(known.lines) // 2, "strict": not is_lossy, "heard": is_heard})
        self._losses.keep(health.get("log_dropped", 0))
        self._heard_since = min(self._heard_since, now) if is_heard else time.time()
        if not is_heard:
            has_begun = deaths > 0 or self._connections == 0
            self._exact_since = time.time() if has_begun and not is_missed else _NEVER
        self.figures["exact"] += self._exact_since < now
        self._heartbeats = self.daemon.manager.heartbeats
        self._known = known
        self._changes.clear()
        self._lines = len(self.rig.system_log.lines())
        self._ended += deaths
        self._connections = self.proxy.accepted
        self._faults.clear()
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
        """Both lines of each denial in the order of the denials, but for what a daemon that died had still to send."""
        found = []
        for _, text in self.rig.system_log.lines()[self._lines:]:
            line = _DENIAL.search(text)
            found.append(line.group() if line else text)
        common = _longest_common(expected, found)
        is_lost = deaths > 0 and "system_log_unread" in self._faults  # lines waited in the memory of a dead one
        if len(found) - common > 2 * deaths or len(expected) - common > 2 * deaths and not is_lost:
            raise Contradiction("the system log lacks {}, and has too much: {}; or their order differs: {} and {}".format(
                collections.Counter(expected) - collections.Counter(found),
                collections.Counter(found) - collections.Counter(expected), list(expected), found))

    def _judge_history(self, now, is_heard):
        rows, gaps = ledger.read_history(self.recorder, self.rig, 2 * _JUDGED_AGAIN_FOR)
        self._ledger.judge(rows, gaps, max(now - _JUDGED_AGAIN_FOR, self._since),
                           *((self._heard_since, self._exact_since) if is_heard else (_NEVER, _NEVER)))

    def _judge_alarms(self):
        """Returns the daemon's health, as it is published."""
        metrics, health, ledger_ = self.recorder.metrics(), alarms.health_of(self.rig), self._ledger
        self.counts.judge(metrics)
        alarms.judge_metrics(metrics, self.modules, ledger_.asks_nobody, ledger_.waiting())
        self._losses.judge(health.get("log_dropped", 0), metrics, self.daemon.log, "log_unread" in self._faults)
        if self.daemon.manager.heartbeats == self._heartbeats:
            raise Contradiction("the process manager has heard no heartbeat of the daemon's")
        modules = alarms.modules_known(self.rig)
        if modules != self.modules:
            raise Contradiction(f"the debug shell knows the modules {modules}, and not {self.modules}")
        return health

    def judge_end(self):
        """That the last fault did no harm, that the daemon ends well, and that the judge was strict at least once."""
        self._rest()
        self.daemon.stop()
        if self.daemon.wait() != 0:
            raise Contradiction(f"SIGTERM ended the daemon with status {self.daemon.wait()}")
        self._judge_complaints()
        if self.figures["rounds"] >= _ROUNDS_TO_BE_STRICT and not (self.figures["strict"] and self.figures["heard"]):
            raise Contradiction("no round was judged strictly")

    def _judge_complaints(self):
        found = re.search(r"(?m)^.*(?:Sanitizer|runtime error:).*$", self.daemon.complained())
        if found:
            raise Contradiction(f"on standard error: {found.group()}")


def _longest_common(one, other):
    """How many lines two logs have in common, in one order."""
    row = [0] * (len(other) + 1)
    for line in one:
        diagonal = 0
        for place, found in enumerate(other, 1):
            diagonal, row[place] = row[place], diagonal + 1 if line == found else max(row[place], row[place - 1])
    return row[-1]


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
    parser.add_argument("--memory-mib", type=int, default=6,
                        help="that daemon or recorder may grow by after the first rounds (default: 6)")
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
    soak.judge_end()


def _end_at_signals():
    """Lets SIGTERM and SIGINT raise Interrupted, once; returns the list that has the one that came."""
    caught = []

    def end(signum, _frame):
        for one in (signal.SIGTERM, signal.SIGINT):
            signal.signal(one, signal.SIG_IGN)
        caught.append(signal.Signals(signum))
        raise Interrupted
    for signum in (signal.SIGTERM, signal.SIGINT):
        signal.signal(signum, end)
    return caught


def _soak(arguments, caught):
    without = set(TABLE) - set(arguments.only) if arguments.only else set(arguments.without)
    begun = time.monotonic()
    with Soak(arguments.seed, without, arguments.sabotage, arguments.memory_mib) as soak:
        try:
            _live(soak, arguments.minutes, begun)
        except (Interrupted, Contradiction, NotInTime, OSError, sqlite3.Error) as end:
            minute = (time.monotonic() - begun) / 60
            if caught:
                print(f"ended by {caught[0].name} in minute {minute:.1f}: {soak.summary()}", file=sys.stderr)
                return 128 + caught[0]
            print(f"contradiction in minute {minute:.1f}, seed {arguments.seed}: {end}\n"
                  f"last changes:\n{soak.last_changes()}last faults: {', '.join(soak.events) or 'none'}\n"
                  f"logs and all changes since the last quiet point are in {soak.keep_logs()}", file=sys.stderr)
            return 1
        print(f"nothing failed in {arguments.minutes:g} min: {soak.summary()}\nfaults: "
              + ", ".join(f"{name} {count}" for name, count in sorted(soak.struck.items())))
    return 0


def main():
    """Returns the exit status."""
    arguments = _arguments()
    for name in ("app_cg", "cgctl", "cg_recorderd"):
        if not (BUILD / "bin" / name).exists():
            print(f"{BUILD / 'bin' / name} is not built; set APP_CG_BUILD or run tests/soak/run", file=sys.stderr)
            return 2
    print(f"soak of {arguments.minutes:g} min, seed {arguments.seed}", file=sys.stderr, flush=True)
    caught = _end_at_signals()
    try:
        return _soak(arguments, caught)
    except Interrupted:  # before it began
        return 128 + caught[0]


if __name__ == "__main__":
    sys.exit(main())
