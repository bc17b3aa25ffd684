"""The store client beside the bare store: bench_store's measurements."""
import subprocess

from .figures import Figure
from .place import processors, run, server

# name: what, goal, peers' figures as they were given to us
_RATIOS = {
    "written": ("a record of 5 fields written, its content published (HSET of 5 fields = 1)", 1.20,
                "1.5 and 1.8; 0.94 to 1.0 without content"),
    "call": ("the same call made by bare hiredis: the server's share of it (HSET of 5 fields = 1)", None, ""),
    "call-nothing": ("a function that does nothing, called with the arguments of ours (HSET of 5 fields = 1)", None, ""),
    "call-hset": ("a function that does HSET (HSET of 5 fields = 1)", None, ""),
    "call-publish": ("a function that does HSET, and PUBLISH of the content (HSET of 5 fields = 1)", None, ""),
    "call-unchecked": ("a function that does all that changes something, and checks nothing (HSET of 5 fields = 1)", None,
                       ""),
    "transaction": ("the same as MULTI, ..., EXEC in one pipeline (HSET of 5 fields = 1)", None, ""),
    "pipeline": ("HSET and PUBLISH in one pipeline (HSET of 5 fields = 1)", None, ""),
    "deleted": ("a record of 5 fields deleted, what it was published (DEL = 1)", 1.25,
                "1.5 to 2.2; none carries the content"),
    "fields": ("3 fields written, the whole record published (HSET of 3 fields = 1)", 1.20, ""),
    "delivery": ("written until another process holds the decoded record (HSET, keyspace notification, HGETALL = 1)",
                 0.45, "0.94 to 1.42"),
    "burst": ("10,000 pipelined writes until a subscriber holds all (HSET, keyspace notification, HGETALL = 1)",
              0.25, "1.04 to 1.27"),
    "snapshot": ("10,000 existing records delivered at subscription (SMEMBERS, HGETALL one by one = 1)", 0.15,
                 "1.03"),
}


def _ratio(name, rounds):
    what, goal, given = _RATIOS[name]
    with server() as store:
        return Figure(name, what, run("bench_store", name, store.socket_path, rounds), goal, given=given)


def _stall(rounds):
    with server() as store:
        _, other = processors()
        taken = run("bench_store", "stall", store.socket_path, rounds, processor=other)
    taken = {name: [value / 1000 for value in values] for name, values in taken.items()}
    note = "the worst of all rounds; baseline: the same while nobody subscribes"
    if not _may_go_first():
        note += "; who waited may have waited for the processor too: SCHED_FIFO is not allowed here"
    return Figure("stall", "longest wait of another client during that snapshot", taken, 5, "ms", worst=True, note=note)


def _may_go_first():
    return subprocess.run(["chrt", "--fifo", "10", "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0


MEASUREMENTS = {**{name: lambda rounds, name=name: [_ratio(name, rounds)] for name in _RATIOS},
                "stall": lambda rounds: [_stall(rounds)]}
