"""One database of the store: reading and writing records, and watching a type without losing a change.

Two connections, since one that is subscribed serves nothing else. Whoever uses this connects, synchronises,
and listens; at Lost he closes and begins anew. What is known survives that, so that only differences are
told; unless the store came back with other data, by which `DataSet` judges.
"""
import collections
import time

from connection import Link, Lost, Refused, TIMEOUT_S
from records import Change, Malformed, parse_change

_SLICE = 128
_QUIET_S = 5  # after so long without a word the server is asked whether it is there


def _info(text):
    return dict(line.split(":", 1) for line in text.decode("utf-8", "replace").splitlines() if ":" in line)


def _pairs(flat):
    return dict(zip(flat[::2], flat[1::2]))


class DataSet:
    """What tells whether the store that answers still holds all that was learned from it."""

    def __init__(self):
        self._id, self._run, self._number = None, None, 0
        self._revisions = {}  # of each type the highest that was learned

    def learn(self, type_name, revision):
        """The server told a revision of a type."""
        self._revisions[type_name] = max(revision, self._revisions.get(type_name, 0))

    def examine(self, link):
        """Asks a server; returns whether its data is still the known one. From now on it is known."""
        types = sorted(self._revisions)
        server, replication, name, runs, *counters = link.ask_all(
            [("INFO", "server"), ("INFO", "replication"), ("GET", "@set"), ("HGETALL", "@runs"),
             *(("GET", f"@rev:{type_name}") for type_name in types)])
        for reply in (server, replication, name, runs, *counters):
            if isinstance(reply, Exception):
                raise Refused(f"the store does not say what it is: {reply}")
        replication = _info(replication)
        if replication.get("role") != "master":
            raise Lost("the server is no master")
        run = f"{_info(server)['run_id']}:{replication['master_replid']}"
        present = {type_name: int(counter or 0) for type_name, counter in zip(types, counters)}
        runs = _pairs(runs)
        is_same = (self._id in (None, name)) and self._holds(present) and self._descends(run, runs)
        now = int(runs.get(b"now", 0))
        noted = now if self._identity(runs, now) == run else 0
        self._id, self._run, self._number, self._revisions = name, run, noted, present
        return is_same

    def _holds(self, revisions):
        return all(revisions.get(type_name, 0) >= known for type_name, known in self._revisions.items())

    @staticmethod
    def _identity(runs, number):
        words = runs.get(b"%d" % number, b"").decode().split()
        return words[0] if words else None

    def _descends(self, run, runs):
        """Whether no run since the known one began with less than is known."""
        now = int(runs.get(b"now", 0))
        if run == self._run or not self._number or self._identity(runs, now) != run:
            return True  # the same process; or one of the runs is not noted, and the revisions have to do
        if self._identity(runs, self._number) != self._run:
            return False
        for number in range(self._number + 1, now + 1):
            words = runs.get(b"%d" % number, b"").decode().split()
            began = dict(word.rsplit("=", 1) for word in words[1:] if "=" in word)
            if not words or not self._holds({name: int(value) for name, value in began.items()}):
                return False
        return True


class Store:
    """See above."""

    def __init__(self, endpoint, credentials, database, client_name):
        self._how = (endpoint, credentials, database, client_name)
        self._prefix = f"@chg:{database}:".encode()
        self._caller = self._listener = None
        self._data_set = DataSet()

    def connect(self):
        """Opens the connections; returns whether the store still holds what was learned before."""
        self._caller = Link(*self._how)
        self._listener = Link(*self._how)
        is_same = self._data_set.examine(self._caller)
        # Both have to reach one process: in a group they might not, and then what one tells is not true of the other.
        if self._process(self._listener) != self._process(self._caller):
            raise Lost("the two connections reach different servers")
        return is_same

    @staticmethod
    def _process(link):
        return _info(link.ask("INFO", "server"))["run_id"]

    def close(self):
        """Ends the connections."""
        for link in (self._caller, self._listener):
            if link is not None:
                link.close()
        self._caller = self._listener = None

    def read(self, record_key):
        """The fields of a record, {b"number": bytes}, b"rev" and b"by" among them; empty when there is none."""
        return _pairs(self._caller.ask("HGETALL", record_key))

    def set(self, type_name, record_key, fields, mark):
        """Writes a whole record. Repeated with its mark it is not written again while it still stands."""
        pairs = [part for pair in fields.items() for part in pair]
        try:
            reply = self._caller.ask("FCALL", "vx_mom2_set", 3, record_key, f"@rev:{type_name}", f"@idx:{type_name}",
                                     self._prefix, mark, *pairs)
        except Refused as problem:
            if "unction not found" in str(problem):  # the daemon brings them with its next connection
                raise Lost("the server has no functions vx_mom2 yet") from problem
            raise
        self._data_set.learn(type_name, int(reply))

    # For Watch

    def revision(self, type_name):
        """The revision of a type's last change."""
        revision = int(self._caller.ask("GET", f"@rev:{type_name}") or 0)
        self._data_set.learn(type_name, revision)
        return revision

    def records(self, type_name):
        """All records of a type, (key, fields) each, in slices, so that the server serves others in between."""
        cursor, met = b"0", set()
        while True:
            cursor, keys = self._caller.ask("SSCAN", f"@idx:{type_name}", cursor, "COUNT", _SLICE)
            keys = [record_key for record_key in dict.fromkeys(keys) if record_key not in met]
            replies = self._caller.ask_all([("HGETALL", record_key) for record_key in keys]) if keys else []
            for record_key, fields in zip(keys, replies):
                if not isinstance(fields, Exception) and fields:  # there may be members without a record
                    met.add(record_key)
                    yield record_key, _pairs(fields)
            if cursor == b"0":
                return

    def heard(self, type_name, revision):
        """A change without a gap to the one before came with this revision."""
        self._data_set.learn(type_name, revision)

    def channels(self, type_name):
        """What begins the names of the channels of a type's records."""
        return self._prefix + type_name.encode() + b":"

    def record_of(self, channel):
        """The key of the record that a channel is named by."""
        return channel[len(self._prefix):]

    @property
    def listener(self):
        """The connection for subscriptions."""
        return self._listener


class Watch:
    """Every record of a type that has an index, then every change, in order and each once.

    What there is to tell stands in `changes`, from where the user takes it; also what was found before a
    connection broke.
    """

    def __init__(self, store, type_name):
        self.changes = collections.deque()
        self._store, self._type = store, type_name
        self._known = {}  # key: (revision, fields), as the user was last told
        self._last = 0
        self._everything = False
        self._heard_at = self._asked_at = 0.0

    def synchronise(self, everything):
        """After each connecting: subscribes, and finds what is new, changed or gone; `everything`: tells all."""
        self._everything = self._everything or everything
        link = self._store.listener
        link.send("PSUBSCRIBE", self._store.channels(self._type) + b"*")
        confirmation = link.receive()
        if isinstance(confirmation, Exception):
            raise Refused(f"PSUBSCRIBE: {confirmation}")
        fence = self._store.revision(self._type)
        self._compare(dict(self._store.records(self._type)), fence)
        self._last = fence
        target = self._store.revision(self._type)
        link.send("PING")
        for record_key, payload in self._until_pong(link):
            self._take(record_key, payload, fence)
        if self._last < target:
            raise Lost("changes did not arrive")
        self._everything = False
        self._heard_at = time.monotonic()
        self._asked_at = 0.0

    def _compare(self, present, fence):
        for record_key in [known for known in self._known if known not in present]:
            revision, fields = self._known.pop(record_key)
            self.changes.append(Change(revision, True, record_key, fields))
        found = []
        for record_key, fields in present.items():
            text = fields.pop(b"rev", b"0")
            fields.pop(b"by", None)
            if not text.isdigit():
                continue  # somebody wrote it by hand, and wrongly
            revision = int(text)
            if revision <= fence and (self._everything or self._known.get(record_key) != (revision, fields)):
                found.append(Change(revision, False, record_key, fields))
        for change in sorted(found, key=lambda one: one.revision):
            self._tell(change)

    def _until_pong(self, link):
        arrived = []
        while True:
            message = self._message(link)
            if message[0] == b"pong":
                return arrived
            arrived.append((self._store.record_of(message[2]), message[3]))

    @staticmethod
    def _message(link):
        message = link.receive()
        if isinstance(message, Exception):
            raise Lost(str(message))
        return message

    def listen(self, seconds):
        """Waits so long at most for a change; more may come at once."""
        link = self._store.listener
        now = time.monotonic()
        if link.has_reply(seconds):
            while True:
                message = self._message(link)
                self._heard_at, self._asked_at = now, 0.0
                if message[0] == b"pmessage":
                    self._take(self._store.record_of(message[2]), message[3], 0)
                if not link.has_reply(0):
                    return
        if self._asked_at and now - self._asked_at > TIMEOUT_S:
            raise Lost("the server does not answer")
        if not self._asked_at and now - self._heard_at > _QUIET_S:
            self._asked_at = now
            link.send("PING")

    def _take(self, record_key, payload, fence):
        try:
            change = parse_change(record_key, payload)
        except Malformed:
            return  # if a change was meant, its number will be missing
        if change.revision <= fence:
            return  # was among the records already
        if change.revision != self._last + 1:
            raise Lost(f"change {self._last + 1} of {self._type} is missing")
        self._last = change.revision
        self._store.heard(self._type, change.revision)
        self._tell(change)

    def _tell(self, change):
        if not change.is_deleted:
            self._known[change.key] = (change.revision, change.fields)
            self.changes.append(change)
        elif self._known.pop(change.key, None) is not None:
            self.changes.append(change)
