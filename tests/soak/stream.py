"""Everything that is published: the changes of all records in the order of the store, and what they have made of them.

The stream is a client of its own, beside the daemon's and the recorder's. What it has seen is the truth that both are
judged by, so it must not miss anything: a counter that jumps ends the run.
"""
import collections
import threading
import time
import typing

import redis

from demo.records import type_of
from rig import CAP, DEV_GLOBAL, HOST

SET, HMSET, DELETED = 4, 6, 3
DATABASES = (HOST, CAP, DEV_GLOBAL)


class Contradiction(Exception):
    """Something is not as it must be."""


class Change(typing.NamedTuple):
    """A change of a record: what it holds since then, or what it held when it was deleted."""

    at: float  # of the clock of days, when it was heard
    database: int
    key: str
    revision: int
    command: int
    fields: dict
    mark: str

    @property
    def instance(self):
        """The writer's life."""
        return self.mark.partition(" ")[0].rpartition(".")[0]

    @property
    def number(self):
        """The running number of the write, in the writer's life."""
        return int(self.mark.partition(" ")[0].rpartition(".")[2])

    @property
    def cause(self):
        """What the writer was handling."""
        return self.mark.partition(" ")[2]

    @property
    def kind(self):
        """The record's type."""
        return type_of(self.key)

    def __str__(self):
        what = {SET: "set", HMSET: "hmset", DELETED: "del"}[self.command]
        content = " ".join(f"{name}={value!r}" for name, value in sorted(self.fields.items()))
        return f"{clock(self.at)} {self.database} {what} {self.key} #{self.revision} {content} <{self.mark}>"


def clock(at):
    """A time for people."""
    return time.strftime("%H:%M:%S", time.localtime(at)) + f".{int(at % 1 * 1000):03}"


def parse(at, channel, payload):
    """The change that was published on a channel."""
    items, begin = [], 0
    while begin < len(payload):
        colon = payload.index(b":", begin)
        end = colon + 1 + int(payload[begin:colon])
        items.append(payload[colon + 1:end].decode("utf-8", "replace"))
        begin = end
    fields = dict(zip(items[3::2], items[4::2]))
    _, database, key = channel.decode("utf-8", "replace").split(":", 2)
    return Change(at, int(database), key, int(items[0]), int(items[1]), fields, fields.pop("by", ""))


class Stream:
    """Hears on a thread of its own, until closed; `records` and `counters` are as far as drain() has come."""

    def __init__(self, store_path):
        self._path = str(store_path)
        self._heard = collections.deque()
        self._closing = threading.Event()
        self._subscribed = threading.Event()
        self.records = {}  # (database, key): the change that stands
        self.counters = {}  # (database, type): revision
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def wait_until_subscribed(self):
        """Returns when nothing that is published can be missed."""
        if not self._subscribed.wait(20):
            raise Contradiction("the soak cannot subscribe: the store does not answer")

    def lose(self):
        """The store is about to go: what is asked next is about its return."""
        self._subscribed.clear()

    def close(self):
        """Ends the thread."""
        self._closing.set()
        self._thread.join(5)

    def _run(self):
        while not self._closing.is_set():
            try:
                self._hear()
            except (redis.RedisError, OSError, AttributeError):  # python3-redis wants a unix socket's host for its text
                self._closing.wait(0.01)

    def _hear(self):
        with redis.Redis(unix_socket_path=self._path) as connection, connection.pubsub() as channels:
            channels.psubscribe("@chg:*")
            while not self._closing.is_set():
                message = channels.get_message(timeout=0.2)
                if message is None:
                    continue
                if message["type"] == "psubscribe":
                    self._subscribed.set()
                elif message["type"] == "pmessage":
                    self._heard.append(parse(time.time(), message["channel"], message["data"]))

    def drain(self):
        """The changes since the last time."""
        changes = [self._heard.popleft() for _ in range(len(self._heard))]
        for change in changes:
            counter = (change.database, change.kind)
            if change.revision != self.counters.get(counter, 0) + 1:
                raise Contradiction(f"change {change} follows revision {self.counters.get(counter, 0)} of its type")
            self.counters[counter] = change.revision
            if change.command == DELETED:
                self.records.pop((change.database, change.key), None)
            else:
                self.records[change.database, change.key] = change
        return changes

    def forget(self):
        """The store was emptied."""
        self._heard.clear()
        self.records.clear()
        self.counters.clear()
