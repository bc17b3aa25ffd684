"""A power-up of the whole room: chassis with a daemon each, all cards plugged at once.

Two layouts. With one store for all, every daemon hears of every card and judges it, since nothing in a card's record
says whose it is: twice the chassis is four times the work. With a store for each chassis it is twice the work.
"""
import contextlib
import json
import subprocess

from demo.store import StoreServer

from .chassis import Chassis, folder, processor_time
from .figures import Series
from .place import PROGRAMS, Failed, run

SIZES = (1, 2, 4, 8, 16)
CARDS, MODULES = 64, 3


@contextlib.contextmanager
def _room(count, shared):
    """So many chassis with running daemons; with one store server or one each."""
    with contextlib.ExitStack() as stack:
        store, all_chassis = None, []
        for _ in range(count):
            made = stack.enter_context(folder())
            if store is None or not shared:
                store = StoreServer(made / "store")
                stack.callback(store.kill)
                store.start()
            one = Chassis(made, MODULES, store)
            all_chassis.append(one)
            stack.callback(one.daemon.stop)
            one.start(daemons=len(all_chassis) if shared else 1)
        yield all_chassis


def _commands(store):
    text = store.ask(b"INFO stats\r\n").decode()
    return int(text.split("total_commands_processed:")[1].split("\r")[0])


def _server_time(store):
    return processor_time(store._process.pid)  # pylint: disable=protected-access


def _shared(count, rounds):
    """One store: milliseconds, and what it cost for each verdict (a card judged by a daemon)."""
    with _room(count, shared=True) as chassis:
        store = chassis[0].store
        # Once for practice, so that all memory has been asked for.
        run("bench_device", "room", 1, count, CARDS, MODULES, count, store.socket_path)
        commands, server = _commands(store), _server_time(store)
        daemons = sum(one.processor_time() for one in chassis)
        spent = run("bench_device", "room", rounds, count, CARDS, MODULES, count, store.socket_path)["ours"]
        verdicts = count * count * CARDS * rounds
        return spent, {"store": [(_server_time(store) - server) * 1e6 / verdicts],
                       "daemons": [(sum(one.processor_time() for one in chassis) - daemons) * 1e6 / verdicts]}, \
            (_commands(store) - commands) / verdicts


def _apart(count, rounds):
    """A store each: milliseconds until the last one has finished, all having begun together."""
    with _room(count, shared=False) as chassis:
        programs = [subprocess.Popen([str(PROGRAMS / "bench_device"), "room", str(rounds + 1), "1", str(CARDS),
                                      str(MODULES), "1", str(one.store.socket_path), "together"],
                                     stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
                    for one in chassis]
        for _ in range(2 * (rounds + 1)):
            for program in programs:
                program.stdout.readline()
            for program in programs:
                program.stdin.write("\n")
                program.stdin.flush()
        taken = []
        for program in programs:
            printed, _ = program.communicate()
            if program.returncode != 0:
                raise Failed(f"bench_device room: status {program.returncode}")
            taken.append(json.loads(printed)["ours"][1:])  # the first was for practice
    return [max(values) for values in zip(*taken, strict=True)]


def _measure(rounds):
    rounds = min(rounds, 3)
    time = Series("room", f"{CARDS} cards in each chassis plugged at once, until the last verdict", "chassis", "ms")
    cost = Series("room-cost", "processor time for each verdict, with one store for all", "chassis", "µs")
    commands = []
    for count in SIZES:
        spent, costs, per_verdict = _shared(count, rounds)
        first = spent if count == 1 else first
        commands.append(f"{count}: {per_verdict:.1f}")
        time.add(count, {"one store": spent, "model: x chassis squared": [value * count ** 2 for value in first],
                         "a store each": _apart(count, rounds), "model: x chassis": [value * count for value in first]})
        cost.add(count, costs)
    cost.note = "commands that the server carried out for each verdict, those within functions included: " + \
        ", ".join(commands)
    return [time, cost]


MEASUREMENTS = {"room": _measure}
