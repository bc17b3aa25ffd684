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


class Failed(Exception):
    """A measurement could not be made."""


_MINE = sorted(os.sched_getaffinity(0))  # before stay_on()


def processors():
    """The processors that there are for us: the one for measurements, and another one, or the same."""
    return _MINE[-1], _MINE[0]


def stay_on(processor):
    """Keeps this process, and what it starts from now on, on one processor."""
    os.sched_setaffinity(0, {processor})


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
    return json.loads(done.stdout)
