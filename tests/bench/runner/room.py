"""A power-up of the whole room: chassis with a daemon each, all cards plugged at once.

Three layouts. With one store for all, every daemon hears of every card and judges it, since nothing in a card's record
says whose it is: twice the chassis is four times the work. With a store for each chassis it is twice the work. The devices
of a stack have a store each as well, and a group of servers for databases 28 and 33, but each is given the cards of all: four
times the work again, by as many daemons and stores.
"""
import contextlib
import json
import subprocess

import redis

from demo.device_manager import SLAVE, DeviceManager
from demo.group import Group
from demo.records import CAP, DEV_GLOBAL
from demo.store import StoreServer

from .chassis import Chassis, folder, processor_time
from .figures import series
from .place import PROGRAMS, Failed, run

SIZES = (1, 2, 4, 8, 16)
SIZES_OF_STACK = (1, 2, 4, 8)
CARDS, MODULES = 64, 3
ROUNDS_OF_MOST = 3  # each of the greatest size takes a quarter of a minute


@contextlib.contextmanager
def _room(count, shared, **env):
    """So many chassis with running daemons; with one store server or one each. `env` is the daemons'."""
    with contextlib.ExitStack() as stack:
        store, all_chassis = None, []
        for _ in range(count):
            made = stack.enter_context(folder())
            if store is None or not shared:
                store = StoreServer(made / "store")
                stack.callback(store.kill)
                store.start()
            one = Chassis(made, MODULES, store, **env)
            all_chassis.append(one)
            stack.callback(one.daemon.stop)
            one.start(daemons=len(all_chassis) if shared else 1)
        yield all_chassis


def _operations(store):
    """What the server has carried out up to now: (function calls by clients, commands, those of functions included)."""
    with contextlib.closing(redis.Redis(unix_socket_path=str(store.socket_path))) as connection:
        calls = connection.info("commandstats").get("cmdstat_fcall", {"calls": 0})["calls"]
        return calls, connection.info("stats")["total_commands_processed"]


def _server_time(store):
    return processor_time(store._process.pid)  # pylint: disable=protected-access


def _shared(count, rounds):
    """One store: milliseconds; processor time for each verdict (a card judged by a daemon); operations for each card.

    The last two include that the cards are pulled again, and whatever that makes daemons do.
    """
    with _room(count, shared=True) as chassis:
        store = chassis[0].store

        def counted():
            return [_server_time(store), sum(one.processor_time() for one in chassis), *_operations(store)]

        # Once for practice, so that all memory has been asked for.
        run("bench_device", "room", 1, count, CARDS, MODULES, count, store.socket_path)
        before = counted()
        spent = run("bench_device", "room", rounds, count, CARDS, MODULES, count, store.socket_path)["ours"]
        server, daemons, calls, commands = (after - old for after, old in zip(counted(), before, strict=True))
        cards = count * CARDS * rounds
        return spent, {"store": [server * 1e6 / (cards * count)], "daemons": [daemons * 1e6 / (cards * count)]}, \
            {"function calls": [calls / cards], "commands, those within functions too": [commands / cards]}


def _apart(count, rounds):
    """A store each: milliseconds until the last one has finished, all having begun together."""
    with _room(count, shared=False) as chassis:
        return _together(chassis, rounds, devices=1)


def _stacked(count, rounds):
    """A stack, of which the first device is the master: the same."""
    with folder() as made, Group(made / "group") as group:
        settings = {f"VX_MOM_ENDPOINT_{number}": group.endpoint for number in (CAP, DEV_GLOBAL)}
        with _room(count, shared=False, **settings) as chassis:
            return _together(chassis, rounds, devices=count, prepare=lambda: _take_role_away(chassis[1:]))


def _take_role_away(chassis):
    """From each of these: the program that measures begins as on a master."""
    for one in chassis:
        with contextlib.closing(redis.Redis(unix_socket_path=str(one.store.socket_path), db=1)) as connection:
            DeviceManager(connection).role(SLAVE)


def _together(chassis, rounds, devices, prepare=lambda: None):
    """All chassis at the same time, each with the cards of so many devices in its store; `prepare` is called once, before
    the first card is plugged. Milliseconds until the last one has finished."""
    programs = [subprocess.Popen([str(PROGRAMS / "bench_device"), "room", str(rounds + 1), str(devices), str(CARDS),
                                  str(MODULES), "1", str(one.store.socket_path), "together"],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
                for one in chassis]
    for turn in range(2 * (rounds + 1)):
        for program in programs:
            program.stdout.readline()
        if turn == 0:
            prepare()
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
    time, cost, operations = series("room"), series("room-cost"), series("room-operations")
    first = None
    for count in SIZES:
        taken = min(rounds, ROUNDS_OF_MOST) if count == SIZES[-1] else rounds
        spent, costs, done = _shared(count, taken)
        first = first or spent
        time.add(count, {"one store": spent, "model: x chassis squared": [value * count ** 2 for value in first],
                         "a store each": _apart(count, taken), "model: x chassis": [value * count for value in first]})
        cost.add(count, costs)
        operations.add(count, done)
    return [time, cost, operations]


def _measure_stack(rounds):
    time = series("room-stack")
    first = None
    for count in SIZES_OF_STACK:
        spent = _stacked(count, min(rounds, ROUNDS_OF_MOST) if count == SIZES_OF_STACK[-1] else rounds)
        first = first or spent
        time.add(count, {"a stack": spent, "model: x devices squared": [value * count ** 2 for value in first]})
    return [time]


MEASUREMENTS = {"room": _measure, "room-stack": _measure_stack}
