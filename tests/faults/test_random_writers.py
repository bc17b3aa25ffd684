"""Random writers against subscribers whose connections are killed, who are paused, and who are overrun.

All decisions come from the seed, and are taken by how much has been written, not by the clock: the same seed
decides the same. When what falls into which moment is the machine's affair.
"""
import contextlib
import json
import pathlib
import random
import signal
import subprocess
import sys
import threading

import redis

from demo import programs
from device import has_functions
from random_writer import Writer, WRITERS
from rig import ACK, BUILD, CARD_INFO, HOST
from truth import Hearing, Truth

_WRITERS = 2
_SUBSCRIBERS = (("cards-1", CARD_INFO), ("cards-2", CARD_INFO), ("acks-1", ACK))
_BUFFER = "client-output-buffer-limit"
_SMALL_BUFFER = "pubsub 32768 32768 0"


class WriterProcess:
    """One of the writers."""

    def __init__(self, socket_path, seed, index):
        program = pathlib.Path(__file__).resolve().parent / "random_writer.py"
        self._process = subprocess.Popen([sys.executable, "-B", program, str(socket_path), str(seed), str(index)],
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.changes = []

    def ask(self, count):
        """Lets it make so many changes; returns at once."""
        print(count, file=self._process.stdin, flush=True)

    def wait(self):
        """Returns when it has made them."""
        line = self._process.stdout.readline()
        assert line, f"a writer ended with {self._process.wait()}"
        self.changes += json.loads(line)

    def close(self):
        """Ends it."""
        self._process.stdin.close()
        self._process.wait(20)
        self._process.stdout.close()


class SubscriberProcess:
    """One of the subscribers; what it prints is read by a thread of its own."""

    def __init__(self, rig, name, kind):
        self.name, self.kind = name, kind
        self._log = open(rig.folder / f"{name}.log", "wb")
        self._process = programs.start(
            [BUILD / "tests" / "fault_subscriber", name, HOST, "card" if kind == CARD_INFO else "ack"],
            {"VX_MOM_ENDPOINT": rig.store.endpoint, "VX_ZLOG": "stderr"}, stdout=subprocess.PIPE, stderr=self._log,
            text=True)
        self.lines = []
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        for line in self._process.stdout:
            self.lines.append(line.rstrip("\n"))

    @property
    def is_running(self):
        """Whether it lives."""
        return self._process.poll() is None

    def has_told(self, beginning, since=0):
        """Whether a line that begins so has been printed, among those after the first `since`."""
        assert self.is_running, f"{self.name} ended with {self._process.wait()}"
        return any(line.startswith(beginning) for line in self.lines[since:])

    def signal(self, signum):
        """Pauses it or lets it go on."""
        self._process.send_signal(signum)

    def close(self):
        """Ends it."""
        self.signal(signal.SIGCONT)
        programs.stop(self._process)
        self._thread.join(20)
        self._process.stdout.close()
        self._log.close()


class Storm:
    """What befalls the subscribers while the writers write."""

    def __init__(self, rig, seed, stack):
        self._random = random.Random(f"{seed}/storm")
        self._store = redis.Redis(unix_socket_path=str(rig.store.socket_path), db=HOST, decode_responses=True)
        rig.role("master")  # brings the functions, which nobody else here has the text of
        programs.wait_until(lambda: has_functions(self._store), 20, "the functions are there")
        self._ours = Writer(self._store, seed, WRITERS - 1)
        self._rig = rig
        self.writers = [stack.enter_context(contextlib.closing(WriterProcess(rig.store.socket_path, seed, index)))
                        for index in range(_WRITERS)]
        self.subscribers = [stack.enter_context(contextlib.closing(SubscriberProcess(rig, name, kind)))
                            for name, kind in _SUBSCRIBERS]
        self.decisions = []
        self._last = 0  # lines of each subscriber that need not be looked at again

    def write(self, count, meanwhile=lambda: None):
        """Lets the writers make `count` changes, and something happen meanwhile."""
        for writer in self.writers:
            writer.ask(count // len(self.writers))
        meanwhile()
        for writer in self.writers:
            writer.wait()

    def changes(self, kind):
        """All changes of a type, in no order."""
        everything = self._ours.changes + [change for writer in self.writers for change in writer.changes]
        return [change for change in everything if change[2].split(":", 1)[0] == kind]

    @property
    def count(self):
        """How many changes were made."""
        return len(self._ours.changes) + sum(len(writer.changes) for writer in self.writers)

    def rest(self):
        """Returns when every subscriber has come as far as the writers."""
        lines = {kind: self._ours.beat(kind) for kind in (CARD_INFO, ACK)}
        for subscriber in self.subscribers:
            since = len(subscriber.lines) - 2000
            programs.wait_until(lambda: subscriber.has_told(lines[subscriber.kind], max(since, 0)), 60,
                                f"{subscriber.name} tells of {lines[subscriber.kind]!r}")

    def turn(self, size):
        """One random thing."""
        what = self._random.choice([self._kill, self._kill, self._pause, self._pause_and_kill, self._overrun,
                                    self._calm])
        victim = self._random.choice(self.subscribers)
        size = self._random.randrange(size // 2, size + 1)
        self.decisions.append((what.__name__.lstrip("_"), victim.name, size))
        what(victim, size)

    def _connections(self, subscriber):
        return [client for client in self._store.client_list() if client["name"] == subscriber.name]

    def _kill(self, subscriber, size):
        kinds = self._random.choice([("pubsub",), ("normal",), ("pubsub", "normal")])

        def kill():
            for client in self._connections(subscriber):
                is_subscribed = int(client["sub"]) + int(client["psub"]) > 0
                if ("pubsub" if is_subscribed else "normal") in kinds:
                    self._store.client_kill_filter(_id=client["id"])
        self.write(size, kill)

    def _pause(self, subscriber, size):
        subscriber.signal(signal.SIGSTOP)
        self.write(size)
        subscriber.signal(signal.SIGCONT)

    def _pause_and_kill(self, subscriber, size):
        subscriber.signal(signal.SIGSTOP)
        self._kill(subscriber, size)
        subscriber.signal(signal.SIGCONT)

    def _overrun(self, subscriber, size):
        """Until the server has given up on it."""
        before = self._store.config_get(_BUFFER)[_BUFFER]
        self._store.config_set(_BUFFER, _SMALL_BUFFER)
        subscriber.signal(signal.SIGSTOP)
        subscribed = {client["id"] for client in self._connections(subscriber)
                      if int(client["sub"]) + int(client["psub"]) > 0}
        while subscribed & {client["id"] for client in self._connections(subscriber)}:
            self.write(size)
        subscriber.signal(signal.SIGCONT)
        self._store.config_set(_BUFFER, before)

    def _calm(self, _subscriber, size):
        self.rest()
        self.write(size)
        self.rest()


def test_subscribers_believe_what_is_so(rig, seed, is_long, progress):
    wanted, size = (50000, 400) if is_long else (4000, 200)
    with contextlib.ExitStack() as stack:
        storm = Storm(rig, seed, stack)
        for subscriber in storm.subscribers:
            programs.wait_until(lambda: subscriber.has_told("subscribed"), 20, f"{subscriber.name} subscribes")
        while storm.count < wanted:
            storm.turn(size)
            progress(f"{storm.count} of {wanted} changes, {' '.join(map(str, storm.decisions[-1]))}")
        storm.rest()
    print("decisions:", storm.decisions)
    tallies = {}
    for kind in (CARD_INFO, ACK):
        truth = Truth(kind, storm.changes(kind))
        stored = {key for key in rig.database(HOST).smembers(f"@idx:{kind}")}
        assert stored == {f"{kind}:{key}" for key in truth.final}
        for subscriber in storm.subscribers:
            if subscriber.kind == kind:
                testimony = Hearing(truth)
                testimony.take(subscriber.lines)
                tallies[subscriber.name] = testimony.tally
    print("seen:", tallies)
    progress(f"seen: {tallies}")
    # A run in which nothing was lost, or nothing was told one by one, would have shown nothing.
    assert sum(tally.losses for tally in tallies.values()) >= 3, tallies
    assert all(tally.live > wanted // 20 and tally.fleeting > 0 for tally in tallies.values()), tallies
