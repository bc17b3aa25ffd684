"""The lines of the table: which measurement makes each, what it is, its goal, and peers' figures where some were given.

This is known without measuring, and without what measuring needs: wrong usage is told on a machine that has nothing
but Python, and a line that could not be measured still has its name and its goal.
"""
from dataclasses import dataclass


@dataclass(frozen=True)
class Line:
    """One figure, or with `size` a series over that."""

    what: str
    goal: float | None = None
    unit: str | None = None  # None: a ratio
    worst: bool = False  # what must not happen at all: the greatest of its rounds counts and not the median
    given: str = ""  # what was given to us as peers' figures; not measured here
    size: str = ""  # what a series' sizes count
    measured: str = ""  # what of a series is drawn upwards


def _series(what, size, unit, measured):
    return Line(what, unit=unit, size=size, measured=measured)


def _foreign(name, against):
    return {f"foreign-{name}": Line(f"{name} grows with 1,000,000 records of other types ({against} = 1)", 1.1)}


_STORE = {
    "written": Line("a record of 5 fields written, its content published (HSET of 5 fields = 1)", 1.20,
                    given="1.5 and 1.8; 0.94 to 1.0 without content"),
    "call": Line("the same call made by bare hiredis: the server's share of it (HSET of 5 fields = 1)"),
    "call-nothing": Line("a function that does nothing, called with the arguments of ours (HSET of 5 fields = 1)"),
    "call-hset": Line("a function that does HSET (HSET of 5 fields = 1)"),
    "call-publish": Line("a function that does HSET, and PUBLISH of the content (HSET of 5 fields = 1)"),
    "call-unchecked": Line("a function that does all that changes something, and checks nothing (HSET of 5 fields = 1)"),
    "transaction": Line("the same as MULTI, ..., EXEC in one pipeline (HSET of 5 fields = 1)"),
    "pipeline": Line("HSET and PUBLISH in one pipeline (HSET of 5 fields = 1)"),
    "deleted": Line("a record of 5 fields deleted, what it was published (DEL = 1)", 1.25,
                    given="1.5 to 2.2; none carries the content"),
    "fields": Line("3 fields written, the whole record published (HSET of 3 fields = 1)", 1.20),
    "delivery": Line("written until another process holds the decoded record (HSET, keyspace notification, HGETALL = 1)",
                     0.45, given="0.94 to 1.42"),
    "burst": Line("10,000 pipelined writes until a subscriber holds all (HSET, keyspace notification, HGETALL = 1)",
                  0.25, given="1.04 to 1.27"),
    "snapshot": Line("10,000 existing records delivered at subscription (SMEMBERS, HGETALL one by one = 1)", 0.15,
                     given="1.03"),
    "stall": Line("longest wait of another client during that snapshot", 5, "ms", worst=True),
}

# What the measurements are called that make more than a line of their own name.
MEASUREMENTS = {
    **{name: {name: line} for name, line in _STORE.items()},
    "road": {"road": Line("a card's road with 3 modules, from written to decided (a bare loop that sends the same = 1)",
                          1.15),
             "road-unlogged": Line("the same without the four lines that it logs for a card")},
    "memory": {"memory": Line("the daemon's resident memory without a card, libraries included", 6, "MB",
                              given="7.1 MB"),
               "memory-own": Line("what of it is not shared with other programs", None, "MB"),
               "memory-card": Line("a card more: node, watch cache and all", 1.5, "KB", given="0.6 to 0.9 KB a record")},
    "memory-burst": {"memory-burst": Line("what two bursts of 20,000 answers of 2.5 kB leave, two seconds later", 1,
                                          "MB")},
    "start": {"start": Line("from start to all subscribed, store empty", 15, "ms"),
              "start-1000": Line("the same with 1,000 cards that are on line", 60, "ms")},
    "log": {"log-disabled": Line("a disabled log message (a loop with one compare = 1)", 1.1, given="one comparison"),
            "log-enabled": Line("an enabled message up to the library's call", 150, "ns")},
    "records": {"encode": Line("a record of 5 fields and its key to text", None, "ns"),
                "decode": Line("and back", None, "ns")},
    "growth-walk": {"growth-walk": _series("finding the last card of the table", "cards", "ns", "one walk")},
    "growth-cards": {"growth-cards": _series("one more card's road, when so many have been admitted", "cards", "µs",
                                             "a card's road")},
    "growth-modules": {"growth-modules": _series("a card's road", "check modules", "µs", "a card's road")},
    "growth-foreign": {**_foreign("written", "as bare commands do"), **_foreign("delivery", "as bare commands do"),
                       **_foreign("snapshot", "as bare commands do"), **_foreign("road", "as it was without them"),
                       "growth-foreign": _series("with records of other types in the same database", "other records",
                                                 "µs", "one write, delivery, record, road")},
    "growth-subscribers": {"growth-subscribers": _series("with so many processes that subscribe to the type",
                                                         "subscribers", "µs", "until all hold a record")},
    "room": {"room": _series("64 cards in each chassis plugged at once, until the last verdict", "chassis", "ms",
                             "until the last verdict"),
             "room-cost": _series("processor time for each verdict, with one store for all", "chassis", "µs",
                                  "processor time for each verdict"),
             "room-operations": _series("operations of the store for each card, with one store for all", "chassis",
                                        "operations", "for each card")},
    "room-stack": {"room-stack": _series("64 cards of each device of a stack plugged at once, until the last verdict of "
                                         "the last device, all on one processor", "devices", "ms",
                                         "until the last verdict")},
}

LINES = {name: line for lines in MEASUREMENTS.values() for name, line in lines.items()}


def measurement_of(name):
    """The measurement that makes a line, or that is called so; None when there is neither."""
    if name in MEASUREMENTS:
        return name
    return next((measurement for measurement, lines in MEASUREMENTS.items() if name in lines), None)
