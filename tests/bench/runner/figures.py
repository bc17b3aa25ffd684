"""What a measurement comes to: figures with a goal, and series over a size; and how they are judged.

A figure keeps its raw rounds. A ratio is the median of the rounds' ratios and not the ratio of two medians: the
two of a round were taken one right after the other, so what befell the machine befell both.
"""
from dataclasses import dataclass, field
from statistics import median


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
        """The object of the JSON list."""
        shown = {"name": self.name, "what": self.what}
        if self.unit is None:
            shown["ratio"] = self.value
        else:
            shown["value"], shown["unit"] = self.value, self.unit
        return {**shown, "goal": self.goal, "met": self.met, "rounds": self.rounds, "note": self.note}


@dataclass
class Series:
    """A cost against a size. `points` are (size, rounds); one line for each name in `rounds`."""

    name: str
    what: str
    size: str  # what the sizes count
    unit: str
    points: list = field(default_factory=list)
    note: str = ""

    def add(self, size, rounds):
        """Adds what was measured at a size, {line: [one number a round]}."""
        self.points = sorted([*self.points, (size, rounds)], key=lambda point: point[0])

    def lines(self):
        """{line: [(size, median), ...]}."""
        names = dict.fromkeys(name for _, rounds in self.points for name in rounds)
        return {name: [(size, median(rounds[name])) for size, rounds in self.points if name in rounds]
                for name in names}

    def as_json(self):
        """The object of the JSON list; it has no goal, so nothing is met or missed."""
        return {"name": self.name, "what": self.what, "size": self.size, "unit": self.unit, "goal": None, "met": None,
                "points": [{"size": size, "value": {name: median(values) for name, values in rounds.items()},
                            "rounds": rounds} for size, rounds in self.points],
                "note": self.note}
