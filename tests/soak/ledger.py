"""Which decisions the recorder has to write: the stream once more, read as the recorder's man page says.

A decision outside of the recorder's gaps must be in the history, once; a complete row must be one of these, in every
part. Rows that say themselves that something was not seen may differ in what was not seen.
"""
import collections
import dataclasses
import datetime
import json
import sqlite3

from demo.records import type_of
from gate import BOARD, is_complete, module_of
from judge import position_of
from rig import ACK, BY_TIPC, CARD_INFO, PASS, REQUEST
from stream import DELETED, Contradiction, clock

_NEAR = 3.0  # seconds between the soak's hearing of a change and the recorder's
_UNREADABLE = "a record could not be read"  # it was none that decides
_LONGEST = 256  # of a reason in the history
_RESTARTED = "the daemon was restarted"


@dataclasses.dataclass
class Expected:
    """A decision."""

    at: float
    card: str
    outcome: str
    decider: str = ""
    reason: str = ""
    answers: tuple = ()  # (module, verdict, reason)
    begun: float = 0  # when the check did; 0 for what was decided without one that was open

    def __str__(self):
        return f"{clock(self.at)} {self.card} {self.outcome} by {self.decider!r} {self.reason[:40]!r} {_short(self.answers)}"

    def fits(self, row):
        """Whether a row may be it; exactly, if it is complete."""
        if row["card"] != self.card or abs(row["at"] - self.at) > _NEAR:
            return False
        if not _is_claimed(row):
            return True
        same = (row["outcome"], row["decider"] or "") == (self.outcome, self.decider)
        if not row["complete"]:
            return same
        given = row["given"][:len(self.answers)]  # what comes later is added to it
        return same and (row["reason"] or "") == self.reason and given == self.answers


class Ledger:
    """What is to be expected of the history so far."""

    def __init__(self):
        self._cards = {}
        self._met = set()  # positions that have had a card
        self._open = {}  # position: the life of the daemon that asked
        self._asked = {}  # position: the card that the open check is about
        self._begun = {}  # position: when that was
        self._answers = collections.defaultdict(list)
        self._reasons = {}  # by the answer, as a mark names it
        self._standing = {}  # (position, module): the revision of an answer that was not read
        self._instance = ""
        self.outcomes = collections.Counter()
        self.expected = []
        self.asks_nobody = False  # as far as the last decision shows

    def take(self, changes):
        """Goes on with the changes that were published."""
        for change in changes:
            if change.kind == CARD_INFO:
                self._take_card(change)
            elif change.kind == ACK:
                self._take_answer(change)
            elif change.kind == REQUEST:
                self._take_request(change)
            elif change.kind == BY_TIPC and change.command != DELETED:
                self._take_result(change)

    def waiting(self):
        """How many cards wait for an answer."""
        return sum(self._cards.get(position, {}).get("7") == "1" for position in self._open)

    def forget(self, before):
        """Drops what was decided before a time."""
        self.expected = [one for one in self.expected if one.at >= before]
        self._reasons = dict(list(self._reasons.items())[-1000:])

    def _take_card(self, change):
        position = position_of(change.key)
        if change.command == DELETED:
            self._cards.pop(position, None)
        elif is_complete(change.fields):
            self._cards[position] = change.fields
            self._met.add(position)

    def _take_answer(self, change):
        position, module = module_of(change.key)
        if change.command == DELETED:
            self._standing.pop((position, module), None)
        elif change.fields.get("6", "0").isdigit() and position in self._met:
            is_pass = change.fields.get("6", "0") == "0"
            self._standing[position, module] = change.revision
            verdict = "PASS" if is_pass else "DENY"
            reason = change.fields.get("7", "")[:_LONGEST]
            self._answers[position].append((module, verdict, reason, change.revision))
            self._reasons[f"{change.revision} {change.key}"] = reason

    def _end(self, change, position, outcome, decider="", reason=""):
        answers = tuple(one[:3] for one in self._answers[position]) if outcome not in ("exempt", "unasked") else ()
        self.expected.append(Expected(change.at, position.replace(":", "/"), outcome, decider, reason, answers,
                                      self._begun.pop(position, 0)))
        self._open.pop(position, None)
        if outcome in ("unasked", "passed", "denied", "silence"):
            self.asks_nobody = outcome == "unasked"
        self.outcomes[outcome] += 1

    def _hear_daemon(self, change):
        """Another life of the daemon cuts off what its forerunner asked."""
        if change.instance == self._instance:
            return
        self._instance = change.instance
        for position, instance in sorted(self._open.items()):
            if instance != change.instance:
                card = self._cards.get(position, {})
                is_same = card.get("7") == "1" and _identity(card) == self._asked.get(position)
                self._end(change, position, "withdrawn", reason=_RESTARTED if is_same else "")

    def _take_request(self, change):
        position = position_of(change.key)
        if change.command != DELETED:
            self._hear_daemon(change)
            if position in self._open:
                self._end(change, position, "withdrawn")
            self._open[position] = change.instance
            self._begun[position] = change.at
            self._asked[position] = _identity(self._cards.get(position, {}))
            self._answers[position] = [one for one in self._answers[position]
                                       if self._standing.get((position, one[0])) == one[3]]
        elif position in self._open:
            is_decided = change.cause == "timer" or type_of(change.cause.partition(" ")[2]) == ACK
            self._end(change, position, "unseen" if is_decided else "withdrawn")

    def _take_result(self, change):
        position = position_of(change.key)
        card = self._cards.get(position)
        if change.cause != "connection":
            self._hear_daemon(change)
        if card is None or change.key != f"{BY_TIPC}:{card.get('22', '0')}":
            return
        is_pass = change.fields.get("6") == PASS
        key = change.cause.partition(" ")[2]
        if type_of(key) == ACK:
            module = module_of(key)[1]
            reason = "" if is_pass else self._reasons.get(change.cause) or f"{module} not compatible"
            self._end(change, position, "passed" if is_pass else "denied", module, reason)
            return
        is_board = change.fields.get("7") == str(BOARD)  # of the card decided on; a newer one may be there
        outcome = "exempt" if is_board else {"timer": "silence", "connection": "unseen"}.get(change.cause, "unasked")
        if position in self._open and outcome != "silence":
            self._end(change, position, "withdrawn")
        self._end(change, position, outcome)

    def judge(self, rows, gaps, since, heard_since, exact_since):
        """Raises Contradiction unless rows and expectations since a time belong together.

        Since `heard_since` the recorder can have missed nothing. A check that began since `exact_since` it knows in every
        part.
        """
        if any(end > heard_since for _, end in gaps):
            raise Contradiction(f"the history has a gap, and nothing was missed since {clock(heard_since)}: {gaps}")
        rows = [row for row in rows if row["at"] >= since - _NEAR]
        expected = [one for one in self.expected if one.at >= since]
        pairs = [(abs(row["at"] - one.at), one, row) for one in expected for row in rows if one.fits(row)]
        # The nearest belong together; but rows that say more come first, for the others fit more than one.
        for _, one, row in sorted(pairs, key=lambda pair: (not pair[2]["complete"], not _is_claimed(pair[2]), pair[0])):
            if one in expected and row in rows:
                rows.remove(row)
                expected.remove(one)
                is_whole = row["complete"] or one.outcome not in ("passed", "denied", "silence")
                if one.begun >= exact_since and not (is_whole and row["outcome"] == one.outcome):
                    raise Contradiction(f"the history has {_row_text(row)}, and nothing of {one} was missed")
        for one in expected:
            if not any(begin - _NEAR <= one.at <= end + _NEAR for begin, end in gaps):
                others = [_row_text(row) for row in rows if row["card"] == one.card]
                raise Contradiction("\n  ".join([f"the history lacks {one}, or has it otherwise:", *others]))
        for row in rows:
            if _is_claimed(row) and row["at"] - since > _NEAR and not any(
                    begin - _NEAR <= row["at"] <= end + _NEAR for begin, end in gaps):
                others = [str(one) for one in self.expected if one.card == row["card"]][-5:]
                raise Contradiction("\n  ".join(
                    [f"the history has {_row_text(row)}, which did not happen so:", *others]))


def _is_claimed(row):
    """Whether a row says how a check ended; one that is incomplete and unseen or withdrawn only says that it did."""
    return row["complete"] or row["outcome"] not in ("unseen", "withdrawn")


def _short(answers):
    return ", ".join(f"{module} {verdict} {reason[:40]!r}" for module, verdict, reason in answers) or "no answers"


def _row_text(row):
    whole = "" if row["complete"] else ", not complete"
    return (f"{row['decided_at']} {row['card']} {row['outcome']} by {row['decider'] or ''!r} "
            f"{(row['reason'] or '')[:40]!r} {_short(row['given'])}{whole}")


def _identity(card):
    """What makes a card the same card."""
    return tuple(card.get(name, "") for name in ("6", "12", "14", "17", "20", "22"))


def _seconds(text):
    return datetime.datetime.fromisoformat(text.replace("Z", "+00:00")).timestamp()


def read_history(recorder_, rig, seconds):
    """(rows, gaps) of the last so many seconds, as cgctl has them."""
    done = rig.cgctl.attempt("history", "--history", recorder_.history, "--since", f"{int(seconds) + 1}s", "--json")
    found = json.loads(done.stdout or "{}")
    if "decisions" not in found:
        raise Contradiction(f"cgctl history: {done.stdout} {done.stderr}")
    rows = [{**row, "at": _seconds(row["decided_at"]),
             "given": tuple((one["module"], one["verdict"], one["reason"] or "") for one in row["answers"])}
            for row in found["decisions"]]
    return rows, [(_seconds(gap["from"]), _seconds(gap["until"]) if gap["until"] else float("inf"))
                  for gap in found["gaps"] if gap["why"] != _UNREADABLE]


def count_rows(path, after):
    """{outcome: rows} behind the row `after`, past our own reader."""
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as file:
        return collections.Counter(dict(file.execute(
            "SELECT outcome, count(*) FROM decisions WHERE id > ? GROUP BY 1", [after])))


def last_row(path):
    """The greatest row id; 0 in an empty history, or without one."""
    if not path.exists():
        return 0
    with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as file:
        return file.execute("SELECT coalesce(max(id), 0) FROM decisions").fetchone()[0]
