"""What a measurement comes to: figures with a goal, and series over a size; and how they are judged.

A figure keeps its raw rounds. A ratio is the median of the rounds' ratios and not the ratio of two medians: the
two of a round were taken one right after the other, so what befell the machine befell both.
"""
from dataclasses import dataclass, field
from statistics import median

from .lines import LINES


@dataclass
class Figure:
    """One row of the table. `rounds` maps a name to one number a round."""

    name: str
    what: str
    rounds: dict
    goal: float | None = None
    unit: str | None = None  # None: a ratio of "ours" to "baseline"
    given: str = ""  # what was given to us as peers' figures; not measured here
    note: str = ""
    worst: bool = False  # what must not happen at all: the greatest counts and not the median
    remarks: list = field(default_factory=list)  # what was noticed while it was measured

    @property
    def value(self):
        """The ratio, or the median of what was measured."""
        if self.unit is not None:
            return (max if self.worst else median)(self.rounds["ours"])
        return median(ours / bare for bare, ours in zip(self.rounds["baseline"], self.rounds["ours"], strict=True))

    @property
    def met(self):
        """Whether the goal is met; None where there is none."""
        return None if self.goal is None else self.value <= self.goal

    def as_json(self):
        """The objects of the JSON list: one."""
        return [{"name": self.name, "what": self.what, **_value(self.value, self.unit), "goal": self.goal,
                 "met": self.met, "rounds": self.rounds, "given": self.given, "note": _notes(self)}]


@dataclass
class Series:
    """A cost against a size. `points` are (size, rounds); one line for each name in `rounds`."""

    name: str
    what: str
    size: str  # what the sizes count
    unit: str
    points: list = field(default_factory=list)
    note: str = ""
    measured: str = ""  # what it is that the unit counts
    remarks: list = field(default_factory=list)

    def add(self, size, rounds):
        """Adds what was measured at a size, {line: [one number a round]}."""
        self.points = sorted([*self.points, (size, rounds)], key=lambda point: point[0])

    def lines(self):
        """{line: [(size, median), ...]}."""
        names = dict.fromkeys(name for _, rounds in self.points for name in rounds)
        return {name: [(size, median(rounds[name])) for size, rounds in self.points if name in rounds]
                for name in names}

    def as_json(self):
        """The objects of the JSON list: one for each size and line. None has a goal, so nothing is met or missed."""
        return [{"name": f"{self.name}/{size}/{line}", "what": self.what, **_value(median(values), self.unit),
                 "goal": None, "met": None, "rounds": {"ours": values}, "series": self.name, "line": line,
                 "size": size, "sizes": self.size, "note": _notes(self)}
                for size, rounds in self.points for line, values in rounds.items()]


@dataclass
class Unmeasured:
    """A line of which there is no figure."""

    name: str
    why: str

    def as_json(self):
        """The objects of the JSON list: one, without a value and without a verdict."""
        line = LINES[self.name]
        return [{"name": self.name, "what": line.what, **_value(None, line.unit), "goal": line.goal, "met": None,
                 "rounds": {}, "given": line.given, "why": self.why}]


def figure(name, rounds, note=""):
    """The figure of a known line."""
    line = LINES[name]
    return Figure(name, line.what, rounds, line.goal, line.unit, line.given, note, line.worst)


def series(name, note=""):
    """A known series that has no points yet."""
    line = LINES[name]
    return Series(name, line.what, line.size, line.unit, note=note, measured=line.measured)


def notes(result):
    """What is to be known about a result besides its numbers."""
    return [note for note in (result.note, *result.remarks) if note]


def _notes(result):
    return "; ".join(notes(result))


def _value(value, unit):
    return {"ratio": value} if unit is None else {"value": value, "unit": unit}
