"""Where measurements run: a private store server and the programs under measurement, on one processor.

One processor, because on two every trip to the store pays for waking the other one, and that drowns what is to be
seen. The server, the programs and this process, which only waits, inherit it from here.
"""
import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

from demo.private_view import new_folder
from demo.programs import start, stop_group
from demo.store import StoreServer

PROJECT = pathlib.Path(__file__).resolve().parents[3]
BUILD = pathlib.Path(os.environ.get("APP_CG_BUILD", PROJECT / "build" / "bench"))
PROGRAMS = BUILD / "tests" / "bench"
DAEMON = BUILD / "bin" / "app_cg"
PACE_MS = 3000  # for which the processor is watched
AGAIN_MINUTES = 6  # for which a run takes disturbed rounds again; undisturbed it has done most by then


class Failed(Exception):
    """A measurement could not be made."""


_SHARED = []  # (disturbed rounds, rounds) of each program
_COMPLAINTS = []  # what programs that measured nevertheless have said on standard error
_MINE = sorted(os.sched_getaffinity(0))  # before stay_on()
_BEGAN = time.monotonic()


def processors():
    """The processors that there are for us: the one for measurements, and another one, or the same."""
    return _MINE[-1], _MINE[0]


def stay_on(processor):
    """Keeps this process, and what it starts from now on, on one processor."""
    os.sched_setaffinity(0, {processor})


def learn_pace():
    """Looks how quick the processor is when it is ours alone, and lets all programs know. See store/pace.h."""
    best = min(run("bench_store", "pace", "-", PACE_MS)["ours"])
    remarks()  # of a round that was none
    os.environ["BENCH_PACE"] = f"{best:.4f}"


def _again_until():
    """Until when, on the clock that all processes share, disturbed rounds are taken again, in seconds."""
    return _BEGAN + AGAIN_MINUTES * 60


@contextlib.contextmanager
def folder():
    """A folder for one measurement."""
    made = new_folder("cgb-")
    try:
        yield made
    finally:
        shutil.rmtree(made)


@contextlib.contextmanager
def server():
    """A fresh store server in a folder of its own."""
    with folder() as made:
        store = StoreServer(made)
        try:
            store.start()
            yield store
        finally:
            store.kill()


def run(program, *arguments, processor=None):
    """Runs one of the programs that measure; returns the JSON that it prints."""
    command = [str(PROGRAMS / program), *map(str, arguments)]
    if processor is not None:
        command = ["taskset", "-c", str(processor), *command]
    running = start(command, {"BENCH_AGAIN_UNTIL": f"{_again_until() * 1e6:.0f}"}, subprocess.PIPE, subprocess.PIPE,
                    text=True)
    try:
        printed, complained = running.communicate()
    except BaseException:
        stop_group(running, signal.SIGKILL)  # its readers too
        running.communicate()
        raise
    if running.returncode != 0:
        why = complained.strip() or "it has said nothing"  # first: the table shows the beginning
        raise Failed(f"{why} (status {running.returncode} of {' '.join(command)})")
    if complained:
        print(complained, end="", file=sys.stderr)
        _COMPLAINTS.extend(complained.splitlines())
    return rounds_of(printed)


def rounds_of(printed):
    """What such a program has printed. How often somebody else used the processor's core meanwhile is kept for later."""
    taken = json.loads(printed)
    if "shared" in taken:
        _SHARED.append((taken.pop("shared"), len(taken["ours"])))
    return taken


def _shared_remark():
    shared, rounds = (sum(numbers) for numbers in zip(*_SHARED)) if _SHARED else (0, 0)
    if shared == 0:
        return []
    again = "" if time.monotonic() < _again_until() else \
        f", which were not taken again once the run had lasted {AGAIN_MINUTES} minutes"
    return [f"somebody else used the core during {shared} of {rounds} rounds{again}"]


def remarks():
    """What was noticed since this was asked last: disturbed rounds, and complaints of programs."""
    noticed = [*_shared_remark(), *dict.fromkeys(_COMPLAINTS)]
    _SHARED.clear()
    _COMPLAINTS.clear()
    return noticed
