"""A writer of random changes, as a process of its own: random_writer.py SOCKET SEED NUMBER.

Each line of standard input says how many changes to make; each is answered by one line, a JSON list of the
changes made, with the revisions that the store gave them. What is done depends on the seed alone; in which order
the changes of several writers fall is the store's affair, and the revisions tell.
"""
import json
import pathlib
import random
import sys

_HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(_HERE), str(_HERE.parents[1] / "tools"), str(_HERE.parent / "system")]

import redis  # noqa: E402  (needs the path above)

from demo.records import Records  # noqa: E402
from rig import ACK, CARD_INFO, HOST  # noqa: E402

SET, HMSET, DELETED = 4, 6, 3
NUMBER = {CARD_INFO: "6", ACK: "8"}  # the field that carries the running number
WRITERS = 10  # at most; each has numbers of its own

_DEVICES, _SLOTS, _PARTS = (1, 2), range(1, 61), range(4)
_LONGEST = 3000  # of what makes a record long


def place_of(rng, kind):
    """What the keys of four records begin with."""
    device, slot = rng.choice(_DEVICES), rng.choice(_SLOTS)
    return f"{CARD_INFO}:0:{device}:{slot}:" if kind == CARD_INFO else f"{ACK}:{device}:{slot}:0:"


def content_of(rng, kind, number):
    """The fields of a whole record, without those at their defaults."""
    length = rng.randrange(_LONGEST)
    if kind == CARD_INFO:
        fields = {"12": f"card-{number}", "15": rng.randrange(3), "17": rng.randrange(1000), "20": "x" * length}
    else:
        fields = {"6": rng.randrange(-1, 2), "7": "x" * length}
    return {NUMBER[kind]: number, **{name: value for name, value in fields.items() if value not in (0, "")}}


def some_of(rng, kind, number):
    """What a write of single fields writes, and which it puts back to their defaults."""
    fields = {"15": rng.randrange(3)} if kind == CARD_INFO else {"6": rng.randrange(-1, 2)}
    absent = [name for name, value in fields.items() if value == 0]
    return {NUMBER[kind]: number, **{name: value for name, value in fields.items() if value != 0}}, absent


class Writer:
    """See above. Changes are [revision, command, key, fields written, fields removed]."""

    def __init__(self, connection, seed, index):
        self._connection = connection
        self._records = Records(connection, HOST)
        self._rng = random.Random(f"{seed}/{index}")
        self._number = index
        self.changes = []

    def _next_number(self):
        self._number += WRITERS
        return self._number

    def step(self):
        """Makes one random change; a deletion may find nothing to delete, and one of a pattern several records."""
        rng = self._rng
        kind = rng.choice((CARD_INFO, ACK))
        place = place_of(rng, kind)
        part = rng.choice(_PARTS)
        key = f"{place}{part}" if kind == CARD_INFO else f"{place}m{part}"
        what = rng.random()
        if what < 0.5:
            self.set(kind, key, content_of(rng, kind, self._next_number()))
        elif what < 0.8:
            fields, absent = some_of(rng, kind, self._next_number())
            self.changes.append([self._records.hmset(key, fields, absent), HMSET, key, fields, absent])
        elif what < 0.95:
            revision = self._records.delete(key)
            if revision:
                self.changes.append([revision, DELETED, key, {}, []])
        else:
            self._delete_all(kind, place)

    def set(self, kind, key, fields):
        """Writes a whole record."""
        self.changes.append([self._records.set(key, fields), SET, key, fields, []])

    def beat(self, kind):
        """Writes a record of its own, by which a subscriber shows that it has come so far. Returns its line."""
        number = self._next_number()
        key = f"{kind}:0:9:0:0" if kind == CARD_INFO else f"{kind}:9:0:0:m0"
        self.set(kind, key, {NUMBER[kind]: number})
        return f"set {key.split(':', 1)[1]} {number} "

    def _delete_all(self, kind, place):
        """Which records there were is read in the same transaction: the answer does not tell."""
        with self._connection.pipeline(transaction=True) as both:
            both.smembers(f"@idx:{kind}")
            Records(both, HOST).queue_pdel(kind, place)
            members, last = both.execute()
        gone = sorted(key for key in members if key.startswith(place))
        first = int(last) - len(gone) + 1
        self.changes += [[first + i, DELETED, key, {}, []] for i, key in enumerate(gone)]


def main(socket_path, seed, index):
    """Serves standard input."""
    connection = redis.Redis(unix_socket_path=socket_path, db=HOST, decode_responses=True)
    writer = Writer(connection, seed, int(index))
    for line in sys.stdin:
        while len(writer.changes) < int(line):
            writer.step()
        print(json.dumps(writer.changes), flush=True)
        writer.changes = []


if __name__ == "__main__":
    main(*sys.argv[1:])
