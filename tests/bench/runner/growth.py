"""How costs grow: with cards, modules, records of other types, subscribers."""
import contextlib

import redis

from .chassis import chassis
from .figures import Figure, Series
from .place import run, server

ROAD_CARDS, ROAD_MODULES = 20, 3
FOREIGN = (0, 100000, 1000000)  # records of other types
TURNS = 2  # of the sizes in a round: their rounds are of one take each, and a tenth is to be seen
_FIRST_MORE = 20001  # the slot of the first card that is measured; those before it are there already


def _road(one, rounds, modules, first=_FIRST_MORE):
    return run("bench_device", "road", rounds, ROAD_CARDS, modules, first, one.store.socket_path)["ours"]


def _cards(rounds):
    series = Series("growth-cards", "one more card's road, when so many have been admitted", "cards", "µs",
                    note="the table is a list that is walked: it shows from some thousand cards on")
    for cards in (10, 100, 1000, 10000):
        with chassis(ROAD_MODULES) as one:
            run("bench_device", "fill", cards, ROAD_MODULES, one.store.socket_path)
            series.add(cards, {"road": _road(one, rounds, ROAD_MODULES)})
    return [series]


def _modules(rounds):
    series = Series("growth-modules", "a card's road", "check modules", "µs")
    for modules in (1, 4, 16):
        with chassis(modules) as one:
            series.add(modules, {"road": _road(one, rounds, modules)})
    return [series]


def _fill_with_foreign_records(store, count):
    """Puts records of a type that nobody asks for into the database of the cards."""
    with contextlib.closing(redis.Redis(unix_socket_path=str(store.socket_path), db=1)) as database:
        database.eval("for i = 1, tonumber(ARGV[1]) do local key = 'p_other.thing:' .. i "
                      "redis.call('HSET', key, '6', i, 'rev', i) redis.call('SADD', '@idx:p_other.thing', key) end",
                      0, count)


@contextlib.contextmanager
def _beside_foreign(count):
    """A server and a chassis with so many foreign records; takes one round of everything when called."""
    with server() as store, chassis(ROAD_MODULES) as one:
        _fill_with_foreign_records(store, count)
        _fill_with_foreign_records(one.store, count)

        def take():
            taken = {"road": _road(one, 1, ROAD_MODULES, 1)[0]}
            for name in ("written", "delivery", "snapshot"):
                measured = run("bench_store", name, store.socket_path, 1)
                # Of 10,000 records: a hundredth, so that all are of one size in a drawing.
                part, shown = (100, "snapshot / 100") if name == "snapshot" else (1, name)
                taken[shown] = measured["ours"][0] / part
                taken[f"{shown}, bare"] = measured["baseline"][0] / part
            return taken

        yield take


def in_turn(takes, rounds):
    """Calls all of {size: take} in each round, beginning with another one each time: {size: {line: [one a round]}}.

    What befalls the machine for seconds befalls all sizes alike; one size after the other it would look like growth.
    """
    sizes = list(takes)
    taken = {size: {} for size in sizes}
    for turn in range(rounds):
        for i in range(len(sizes)):
            size = sizes[(turn + i) % len(sizes)]
            for line, value in takes[size]().items():
                taken[size].setdefault(line, []).append(value)
    return taken


def growth(first, last, line):
    """By how much a line has grown, one number a round: the two of a round were taken one right after the other."""
    return [after / before for before, after in zip(first[line], last[line], strict=True)]


def _foreign(rounds):
    series = Series("growth-foreign", "with records of other types in the same database", "other records", "µs",
                    note="a server with a million keys answers whatever it is asked a little later, bare commands too")
    with contextlib.ExitStack() as stack:
        takes = {count: stack.enter_context(_beside_foreign(count)) for count in FOREIGN}
        for count, taken in in_turn(takes, TURNS * rounds).items():
            series.add(count, taken)
    first, last = series.points[0][1], series.points[-1][1]
    figures = []
    for line in ("written", "delivery", "snapshot / 100", "road"):
        bare = growth(first, last, f"{line}, bare") if f"{line}, bare" in first else [1.0] * len(first[line])
        name = line.split()[0]
        against = "as bare commands do = 1" if f"{line}, bare" in first else "as it was without them = 1"
        figures.append(Figure(f"foreign-{name}", f"{name} grows with 1,000,000 records of other types ({against})",
                              {"baseline": bare, "ours": growth(first, last, line)}, 1.1))
    return [*figures, series]


def _subscribers(rounds):
    series = Series("growth-subscribers", "with so many processes that subscribe to the type", "subscribers", "µs")
    for count in (1, 4, 16):
        taken = {}
        for name in ("fan-out", "fan-out-burst"):
            with server() as store:
                taken[name] = run("bench_store", name, store.socket_path, rounds, count)["ours"]
        series.add(count, {"a write, until all hold it": taken["fan-out"],
                           "a write of a burst, until all hold all": [value / 10000 for value in taken["fan-out-burst"]]})
    return [series]


MEASUREMENTS = {"growth-cards": _cards, "growth-modules": _modules, "growth-foreign": _foreign,
                "growth-subscribers": _subscribers}
