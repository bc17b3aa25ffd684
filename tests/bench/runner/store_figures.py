"""The store client beside the bare store: bench_store's measurements."""
import subprocess

from .figures import figure
from .place import processors, run, server

_RATIOS = ("written", "call", "call-nothing", "call-hset", "call-publish", "call-unchecked", "transaction", "pipeline",
           "deleted", "fields", "delivery", "burst", "snapshot")


def _ratio(name, rounds):
    with server() as store:
        return figure(name, run("bench_store", name, store.socket_path, rounds))


def _stall(rounds):
    with server() as store:
        _, other = processors()
        taken = run("bench_store", "stall", store.socket_path, rounds, processor=other)
    taken = {name: [value / 1000 for value in values] for name, values in taken.items()}
    note = "the worst of all rounds; baseline: the same while nobody subscribes"
    if not _may_go_first():
        note += "; who waited may have waited for the processor too: SCHED_FIFO is not allowed here"
    return figure("stall", taken, note)


def _may_go_first():
    return subprocess.run(["chrt", "--fifo", "10", "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0


MEASUREMENTS = {**{name: lambda rounds, name=name: [_ratio(name, rounds)] for name in _RATIOS},
                "stall": lambda rounds: [_stall(rounds)]}
