"""Where measurements run: a private store server and the programs under measurement, on one processor.

One processor, because on two every trip to the store pays for waking the other one, and that drowns what is to be
seen. The server, the programs and this process, which only waits, inherit it from here.
"""
import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys

from demo.private_view import new_folder
from demo.store import StoreServer

PROJECT = pathlib.Path(__file__).resolve().parents[3]
BUILD = pathlib.Path(os.environ.get("APP_CG_BUILD", PROJECT / "build" / "bench"))
PROGRAMS = BUILD / "tests" / "bench"
DAEMON = BUILD / "bin" / "app_cg"
PACE_MS = 3000  # for which the processor is watched


class Failed(Exception):
    """A measurement could not be made."""


_SHARED = []  # (disturbed rounds, rounds) of each program
_MINE = sorted(os.sched_getaffinity(0))  # before stay_on()


def processors():
    """The processors that there are for us: the one for measurements, and another one, or the same."""
    return _MINE[-1], _MINE[0]


def stay_on(processor):
    """Keeps this process, and what it starts from now on, on one processor."""
    os.sched_setaffinity(0, {processor})


def learn_pace():
    """Looks how quick the processor is when it is ours alone, and lets all programs know. See store/pace.h."""
    best = min(run("bench_store", "pace", "-", PACE_MS)["ours"])
    shared_rounds()  # of which this was none
    os.environ["BENCH_PACE"] = f"{best:.4f}"


@contextlib.contextmanager
def server():
    """A fresh store server in a folder of its own."""
    folder = new_folder("cgb-")
    store = StoreServer(folder)
    try:
        store.start()
        yield store
    finally:
        store.kill()
        shutil.rmtree(folder)


def run(program, *arguments, processor=None):
    """Runs one of the programs that measure; returns the JSON that it prints."""
    command = [str(PROGRAMS / program), *map(str, arguments)]
    if processor is not None:
        command = ["taskset", "-c", str(processor), *command]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        raise Failed(f"{' '.join(command)}: status {done.returncode}: {done.stderr.strip()}")
    if done.stderr:
        print(done.stderr, end="", file=sys.stderr)
    return rounds_of(done.stdout)


def rounds_of(printed):
    """What such a program has printed. How often somebody else used the processor's core meanwhile is kept for later."""
    taken = json.loads(printed)
    if "shared" in taken:
        _SHARED.append((taken.pop("shared"), len(taken["ours"])))
    return taken


def shared_rounds():
    """(rounds that somebody else has disturbed, rounds in all) since this was asked last."""
    told = [sum(numbers) for numbers in zip(*_SHARED)] or [0, 0]
    _SHARED.clear()
    return tuple(told)
