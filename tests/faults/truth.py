"""What really happened to the records of one type, and whether a subscriber was told so.

The writers know the revision of each of their changes, so all of them together know the one true order. A
subscriber's lines are held against it: while it was connected, they must be that order without a gap; whenever
it says that it is up to date, its belief must be what the records were at one moment; and what it is told of a
record never goes back.
"""
import dataclasses

from random_writer import DELETED, HMSET, NUMBER, SET
from rig import CARD_INFO

_WORDS = {SET: "set", HMSET: "fields", DELETED: "deleted"}


def content_text(kind, fields):
    """Number and content as the subscriber prints them."""
    def of(name):
        return fields.get(name, 0)

    number = of(NUMBER[kind])
    if kind == CARD_INFO:
        return f"{number} 12={fields.get('12', '')},15={of('15')},17={of('17')},20={len(fields.get('20', ''))}"
    return f"{number} 6={of('6')},7={len(fields.get('7', ''))}"


class Truth:
    """The changes of one type in their order; change number i, from 1, has revision i."""

    def __init__(self, kind, changes):
        self.kind = kind
        self.lines = [""]  # of change i, as a subscriber is to print it
        self.final = {}  # key: text
        self._writes = {}  # (key, text): the change that made it so
        self._moments = {0: [0]}  # digest of all records: the changes after which it was so
        changes = sorted(changes, key=lambda change: change[0])
        revisions = [change[0] for change in changes]
        assert revisions == list(range(1, len(changes) + 1)), f"revisions of {kind} are not contiguous"
        self._replay(changes)

    def _replay(self, changes):
        records, digest = {}, 0
        for at, (_, command, key, fields, absent) in enumerate(changes, 1):
            key = key.split(":", 1)[1]
            before = self.final.pop(key, None)
            if before is not None:
                digest ^= hash((key, before))
            if command == DELETED:
                assert before is not None, f"change {at} deletes {key}, which there is not"
                del records[key]
            else:
                kept = records.get(key, {}) if command == HMSET else {}
                records[key] = {name: value for name, value in {**kept, **fields}.items() if name not in absent}
                self.final[key] = content_text(self.kind, records[key])
                digest ^= hash((key, self.final[key]))
                self._writes[key, self.final[key]] = at
            self.lines.append(f"{_WORDS[command]} {key} {self.final.get(key, before)}")
            self._moments.setdefault(digest, []).append(at)

    def write_of(self, key, text):
        """The change that gave a record this content; None when none did."""
        return self._writes.get((key, text))

    def moments_of(self, digest):
        """After which changes all records together were like this."""
        return self._moments.get(digest, [])


@dataclasses.dataclass
class Tally:
    """How much a subscriber's lines have shown."""

    live: int = 0  # changes told one by one
    fleeting: int = 0  # records of which both writing and deletion were told so
    losses: int = 0
    returns: int = 0


class Hearing:
    """Holds a subscriber's lines against the truth; raises AssertionError at the first that is wrong."""

    def __init__(self, truth):
        self._truth = truth
        self._belief = {}
        self._digest = 0
        self._newest = {}  # key: the change of the newest content told
        self._at = 0  # all changes up to this one are known to have been told or overtaken
        self._live = False  # every change is to be told
        self._aligned = False  # at exactly self._at
        self._born = set()
        self.tally = Tally()

    def take(self, lines):
        """Judges all lines, and the belief at their end."""
        for number, line in enumerate(lines, 1):
            try:
                self._take(line)
            except AssertionError as wrong:
                raise AssertionError(f"line {number}, {line!r}: {wrong}") from wrong
        assert self._belief == self._truth.final, "the belief at the end is not what the store holds"

    def _take(self, line):
        word, _, rest = line.partition(" ")
        if word == "lost":
            self.tally.losses += 1
            self._live = False
        elif word == "back":
            self.tally.returns += 1
            assert rest == "2", "the store was not away, nor were its data"
        elif word == "subscribed":
            self._begin_live()
        else:
            assert word in _WORDS.values(), "no such word"
            self._take_change(line, word, *rest.split(" ", 1))

    def _begin_live(self):
        moments = [at for at in self._truth.moments_of(self._digest) if at >= self._at]
        assert moments, "the records were never like this since"
        self._live, self._aligned, self._at = True, False, moments[0]
        self._born.clear()

    def _take_change(self, line, word, key, text):
        if self._live:
            self._follow(line, word, key, text)
        write = self._truth.write_of(key, text)
        if word == "deleted":
            self._forget(key, text, write)
            return
        assert write is not None, "nobody wrote that"
        assert write >= self._newest.get(key, 0), f"goes back from change {self._newest.get(key)} to {write}"
        self._newest[key] = write
        if key in self._belief:
            self._digest ^= hash((key, self._belief[key]))
        self._belief[key] = text
        self._digest ^= hash((key, text))

    def _forget(self, key, text, write):
        """A deletion tells of what was believed; at a return it may be of what the record became meanwhile."""
        believed = self._belief.get(key)
        assert believed is not None, "there was no such record"
        is_newer = write is not None and write > self._newest[key]
        assert believed == text or not self._live and is_newer, f"believed: {believed}"
        del self._belief[key]
        self._digest ^= hash((key, believed))

    def _follow(self, line, word, key, text):
        """A change told while connected is the one after the last."""
        if not self._aligned:
            self._align(line)
        self._at += 1
        assert self._at < len(self._truth.lines), "nothing more was changed"
        assert line == self._truth.lines[self._at], f"change {self._at} is {self._truth.lines[self._at]!r}"
        self.tally.live += 1
        if word == "set":
            self._born.add(key)
        elif word == "deleted" and key in self._born:
            self._born.discard(key)
            self.tally.fleeting += 1

    def _align(self, line):
        """The first change after a belief that may have been true at several moments tells which it was."""
        moments = [at for at in self._truth.moments_of(self._digest)
                   if at >= self._at and at + 1 < len(self._truth.lines) and self._truth.lines[at + 1] == line]
        assert moments, f"does not follow what was believed, which was so after {self._truth.moments_of(self._digest)}"
        self._at, self._aligned = moments[0], True
