"""How costs grow: with cards, modules, records of other types, subscribers."""
import contextlib

import redis

from .chassis import chassis
from .figures import figure, series
from .place import run, server

ROAD_CARDS, ROAD_MODULES = 20, 3
CARDS, MODULES, SUBSCRIBERS = (10, 100, 1000, 10000), (1, 4, 16), (1, 4, 16)
FOREIGN = (0, 100000, 1000000)  # records of other types
BURST = 10000  # records
_FIRST_MORE = 20001  # the slot of the first card that is measured; those before it are there already


def in_turn(takes, rounds):
    """Calls all of {size: take} so many times in turn, beginning with another one each time.

    A take returns {line: [number, ...]}; returned is {size: {line: [all numbers]}}. What befalls the machine for
    seconds befalls all sizes alike; one size after the other it would look like growth.
    """
    sizes = list(takes)
    taken = {size: {} for size in sizes}
    for turn in range(rounds):
        for i in range(len(sizes)):
            size = sizes[(turn + i) % len(sizes)]
            for line, values in takes[size]().items():
                taken[size].setdefault(line, []).extend(values)
    return taken


def _grown(name, sizes, beside, rounds, note=""):
    """A series whose sizes are measured in turn. `beside(size)` is a context that yields the take of a size."""
    grown = series(name, note)
    with contextlib.ExitStack() as stack:
        takes = {size: stack.enter_context(beside(size)) for size in sizes}
        for size, taken in in_turn(takes, rounds).items():
            grown.add(size, taken)
    return grown


def _road(one, rounds, modules, first=_FIRST_MORE):
    return run("bench_device", "road", rounds, ROAD_CARDS, modules, first, one.store.socket_path)["ours"]


@contextlib.contextmanager
def _beside_cards(count):
    with chassis(ROAD_MODULES) as one:
        run("bench_device", "fill", count, ROAD_MODULES, one.store.socket_path)
        yield lambda: {"road": _road(one, 1, ROAD_MODULES)}


def _cards(rounds):
    return [_grown("growth-cards", CARDS, _beside_cards, rounds,
                   "the table is a list that is walked: it shows from some thousand cards on")]


@contextlib.contextmanager
def _beside_modules(count):
    with chassis(count) as one:
        yield lambda: {"road": _road(one, 1, count)}


def _modules(rounds):
    return [_grown("growth-modules", MODULES, _beside_modules, rounds)]


def _fill_with_foreign_records(store, count):
    """Puts records of a type that nobody asks for into the database of the cards."""
    with contextlib.closing(redis.Redis(unix_socket_path=str(store.socket_path), db=1)) as database:
        database.eval("for i = 1, tonumber(ARGV[1]) do local key = 'p_other.thing:' .. i "
                      "redis.call('HSET', key, '6', i, 'rev', i) redis.call('SADD', '@idx:p_other.thing', key) end",
                      0, count)


@contextlib.contextmanager
def _beside_foreign(count):
    """A server and a chassis with so many foreign records; takes two rounds of everything when called.

    Two, since in the first one the baseline begins and in the second ours.
    """
    with server() as store, chassis(ROAD_MODULES) as one:
        _fill_with_foreign_records(store, count)
        _fill_with_foreign_records(one.store, count)

        def take():
            taken = {"road": _road(one, 2, ROAD_MODULES, 1)}
            for name in ("written", "delivery", "snapshot"):
                measured = run("bench_store", name, store.socket_path, 2)
                # Of 10,000 records: a hundredth, so that all are of one size in a drawing.
                part, shown = (100, "snapshot / 100") if name == "snapshot" else (1, name)
                taken[shown] = [value / part for value in measured["ours"]]
                taken[f"{shown}, bare"] = [value / part for value in measured["baseline"]]
            return taken

        yield take


def growth(first, last, line):
    """By how much a line has grown, one number a round: the two of a round were taken one right after the other."""
    return [after / before for before, after in zip(first[line], last[line], strict=True)]


def _foreign_figure(first, last, line):
    bare = growth(first, last, f"{line}, bare") if f"{line}, bare" in first else [1.0] * len(first[line])
    return figure(f"foreign-{line.split()[0]}", {"baseline": bare, "ours": growth(first, last, line)})


def _foreign(rounds):
    grown = _grown("growth-foreign", FOREIGN, _beside_foreign, rounds,
                   "a server with a million keys answers whatever it is asked a little later, bare commands too")
    first, last = grown.points[0][1], grown.points[-1][1]
    return [*(_foreign_figure(first, last, line) for line in ("written", "delivery", "snapshot / 100", "road")), grown]


def _fan_out(name, count):
    with server() as store:  # a fresh one: new subscribers would be sent what the last take has left
        return run("bench_store", name, store.socket_path, 1, count)["ours"]


def _beside_subscribers(count):
    def take():
        return {"a write, until all hold it": _fan_out("fan-out", count),
                "a write of a burst, until all hold all": [value / BURST for value in _fan_out("fan-out-burst", count)]}

    return contextlib.nullcontext(take)


def _subscribers(rounds):
    return [_grown("growth-subscribers", SUBSCRIBERS, _beside_subscribers, rounds)]


MEASUREMENTS = {"growth-cards": _cards, "growth-modules": _modules, "growth-foreign": _foreign,
                "growth-subscribers": _subscribers}
