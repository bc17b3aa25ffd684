"""The device around the daemon, in Python: the device manager, and check modules that answer what they are asked.

They write through the functions in the server, as every client does, and past our own store client: what is
tested is not helped by what it is tested with.
"""
import contextlib
import itertools
import os
import threading

import redis

from rig import ACK, CARD_INFO, HOST, REQUEST, ROLE

MASTER = 1
LINE_CARD = 3  # the node type
CARD_TYPE = 200
FUNCTIONS = "vx_mom2"

_numbers = itertools.count(1)


def _token():
    """What a write says of itself; another one for each, whichever thread makes it."""
    return f"py-{os.getpid()}.{next(_numbers)} -"


def _varint(number):
    out = bytearray()
    while number > 0x7f:
        out.append(number & 0x7f | 0x80)
        number >>= 7
    return bytes(out + bytes([number]))


def static_info(node_type):
    """The packed sub-message of a card's static part."""
    return b"\x2a\x00" + b"\x30" + _varint(node_type)


def type_of(key):
    """The record type of a key."""
    return key.split(":", 1)[0]


class Records:
    """Writes the records of one database through the server's functions; each call returns the revision."""

    def __init__(self, connection, database):
        self._connection = connection
        self._channels = f"@chg:{database}:"

    def _call(self, function, key, *arguments):
        kind = type_of(key)
        return int(self._connection.execute_command(
            "FCALL", f"{FUNCTIONS}_{function}", 3, key, f"@rev:{kind}", f"@idx:{kind}", self._channels, *arguments))

    @staticmethod
    def _pairs(fields):
        return [text for pair in fields.items() for text in pair]

    def set(self, key, fields):
        """Writes a whole record: {field number: value}, without fields at their defaults."""
        return self._call("set", key, _token(), *self._pairs(fields))

    def hmset(self, key, fields, absent=()):
        """Writes some fields; those in `absent` become defaults."""
        pairs = self._pairs(fields)
        return self._call("hmset", key, _token(), len(pairs), *pairs, *absent)

    def delete(self, key):
        """Deletes a record; the revision is 0 when there was none."""
        return self._call("del", key, _token())

    def pdel(self, kind, prefix):
        """Deletes the records of a type whose keys begin with `prefix`."""
        return int(self.queue_pdel(kind, prefix))

    def queue_pdel(self, kind, prefix):
        """The same, with the answer as the connection gives it: that of a transaction has none yet."""
        return self._connection.execute_command(
            "FCALL", f"{FUNCTIONS}_pdel", 2, f"@rev:{kind}", f"@idx:{kind}", self._channels, prefix,
            _token())


def colons(position):
    """A position as it stands in keys."""
    return position.replace("/", ":")


def tipc_node(position):
    """The TIPC node of a card: 1003 for 1/3/0."""
    device, slot, _ = position.split("/")
    return 1000 * int(device) + int(slot)


def has_functions(connection):
    """Whether somebody who may has loaded the functions and registered the server's run."""
    return connection.hexists("@runs", "now")


class Chassis:
    """The device manager: publishes the role and the cards."""

    def __init__(self, connection):
        self.records = Records(connection, HOST)
        self.checked = set()  # the positions of the cards on line, which a daemon that starts checks

    def role(self, role=MASTER):
        """Publishes this device's global role."""
        self.records.set(ROLE, {5: 1, 6: role})

    def plug(self, position, node_type=LINE_CARD):
        """Plugs a card, on line; its TIPC node and its node id follow from its position."""
        slot = int(position.split("/")[1])
        if node_type == LINE_CARD:
            self.checked.add(position)
        self.records.set(f"{CARD_INFO}:0:{colons(position)}",
                         {6: CARD_TYPE, 7: 1, 12: f"card-{slot}", 14: static_info(node_type), 17: 100 + slot,
                          22: tipc_node(position)})

    def offline(self, position):
        """Takes a card off line."""
        self.checked.discard(position)
        self.records.hmset(f"{CARD_INFO}:0:{colons(position)}", {}, absent=[7])

    def online(self, position):
        """Brings a card back on line."""
        self.checked.add(position)
        self.records.hmset(f"{CARD_INFO}:0:{colons(position)}", {7: 1})

    def pull(self, position):
        """Pulls a card."""
        self.checked.discard(position)
        self.records.delete(f"{CARD_INFO}:0:{colons(position)}")


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
