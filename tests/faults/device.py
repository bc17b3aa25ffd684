"""The check modules around the daemon, in Python: they answer what they are asked.

They write through the functions in the server, as every client does, and past our own store client: what is
tested is not helped by what it is tested with.
"""
import contextlib
import threading

import redis

from demo.records import ACK, HOST, REQUEST, Records, colons


def has_functions(connection):
    """Whether somebody who may has loaded the functions and registered the server's run."""
    return connection.hexists("@runs", "now")


class Modules:
    """Check modules on a thread of their own, until closed.

    Every request seen is answered by each module in turn, requests that were there before and repeated ones
    included. When the store goes away they come back with it and look at what there is, as real ones would.
    """

    def __init__(self, connect, names, opinion=lambda name, position: ""):
        """`connect` returns a new connection to database 1; `opinion` a reason to deny, "" for a PASS."""
        self._connect = connect
        self._names = names
        self._opinion = opinion
        self._closing = threading.Event()
        self._watching = threading.Event()
        self.answers = 0
        self.handled = 0  # the revision of the last change of a request that was answered, if there was an answer to give
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def wait_until_watching(self, seconds=20):
        """Returns when the subscription is in place."""
        assert self._watching.wait(seconds), "the modules could not subscribe"

    def close(self):
        """Ends the thread."""
        self._closing.set()
        self._thread.join(20)

    def _run(self):
        while not self._closing.is_set():
            with contextlib.suppress(redis.RedisError):
                self._serve()
            self._watching.clear()
            self._closing.wait(0.02)

    def _serve(self):
        connection = self._connect()
        with contextlib.closing(connection), contextlib.closing(connection.pubsub()) as changes:
            records = Records(connection, HOST)
            changes.psubscribe(f"@chg:{HOST}:{REQUEST}:*")
            changes.get_message(timeout=5)
            for key in connection.scan_iter(f"{REQUEST}:*", _type="hash"):
                self._answer(records, key)
            self._watching.set()
            while not self._closing.is_set():
                message = changes.get_message(timeout=0.2)
                if message is not None and message["type"] == "pmessage":
                    if not is_deletion(message["data"]):
                        self._answer(records, message["channel"].split(":", 2)[2])
                    self.handled = revision_of(message["data"])

    def _answer(self, records, key):
        position = key.split(":", 2)[2].replace(":", "/")
        for name in self._names:
            reason = self._opinion(name, position)
            if reason is None:
                continue  # stays silent
            records.set(f"{ACK}:{colons(position)}:{name}", {6: 1, 7: reason} if reason else {})
            self.answers += 1


def revision_of(payload):
    """The revision of a published change."""
    length, rest = payload.split(":", 1)
    return int(rest[:int(length)])


def is_deletion(payload):
    """Whether a published change says that the record is gone."""
    revision_length, rest = payload.split(":", 1)
    return rest[int(revision_length):].startswith("1:3")
