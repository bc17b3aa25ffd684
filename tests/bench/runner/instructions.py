"""What commands cost the store server in instructions, counted by callgrind.

Each kind of command is sent to a server that runs under callgrind, a few and many times; what the many took more, for
each. Times waver with whatever else a machine does, these counts by one in a hundred. To see what a step of the server's
functions costs, leave it out of a copy of functions.lua and give that copy with --functions.
"""
import argparse
import contextlib
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import redis

from demo.programs import wait_until
from demo.store import server_program

FUNCTIONS = pathlib.Path(__file__).resolve().parents[3] / "builtin" / "store" / "functions.lua"
FEW, MANY, SLOTS = 1000, 3000, 100
TYPE = "p_dev.card_info"
FIELDS = ("6", "200", "7", "1", "12", "card {slot}", "15", "3", "17", "103")
CHECK_FIELDS = ("6", "200", "7", "3", "8", "103")


def mark(i):
    """What a write says of itself, when a card's notification is being handled."""
    return f"0123abcd.{i} {i} {TYPE}:0:1:3:0"


def call(function, slot, *more):
    """The call of one of our functions for the card in a slot."""
    key = f"{TYPE}:0:1:{slot}:0"
    words = ["FCALL", function, 3, key, f"@rev:{TYPE}", f"@idx:{TYPE}", "@chg:1:"]
    return [*words, *more]


def card_fields(slot):
    """Names and values of a card, as they are written."""
    return [text.format(slot=slot) for text in FIELDS]


def written(i, slot):
    """One write of a whole record of ours."""
    return [call("vx_mom2_set", slot, mark(i), *card_fields(slot))]


KINDS = {
    "HSET of 5 fields": lambda i, slot: [["HSET", f"{TYPE}:0:1:{slot}:0", *card_fields(slot)]],
    "vx_mom2_set of 5 fields, over a record that is there": written,
    "vx_mom2_hmset of 3 fields, over a record of these": lambda i, slot: [
        call("vx_mom2_hmset", slot, mark(i), len(CHECK_FIELDS), *CHECK_FIELDS)],
    "vx_mom2_set of 5 fields, new, and vx_mom2_del": lambda i, slot: [
        *written(i, slot), call("vx_mom2_del", slot, mark(i))],
    "vx_mom2_set of 5 fields, new, and DEL": lambda i, slot: [*written(i, slot), ["DEL", f"{TYPE}:0:1:{slot}:0"]],
}


@contextlib.contextmanager
def counted_server(folder):
    """A server under callgrind, and where it will have told its count when it has ended."""
    told, socket = folder / "told", folder / "socket"
    with told.open("w") as errors, subprocess.Popen(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder / 'profile'}", str(server_program(folder)),
             "--port", "0", "--unixsocket", str(socket), "--save", "", "--databases", "64"],
            stdout=subprocess.DEVNULL, stderr=errors, cwd=folder) as process:
        try:
            wait_until(lambda: process.poll() is not None or socket.exists(), 60, "the server starts")
            with contextlib.closing(redis.Redis(unix_socket_path=str(socket), db=1)) as store:
                wait_until(lambda: answers(store), 60, "the server answers")
                yield store, told
        finally:
            process.kill()


def answers(store):
    """Whether a server is there."""
    with contextlib.suppress(redis.ConnectionError):
        return store.ping()
    return False


def total(kind, functions, count):
    """All instructions of a server's life with so many commands of a kind."""
    with tempfile.TemporaryDirectory(prefix="cgb-") as name:
        with counted_server(pathlib.Path(name)) as (store, told):
            store.execute_command("FUNCTION", "LOAD", functions)
            for i in range(count):
                for words in KINDS[kind](i, i % SLOTS):
                    store.execute_command(*words)
            store.shutdown(nosave=True)
            wait_until(lambda: "Collected" in told.read_text(), 60, "the count")
            return int(re.search(r"Collected : (\d+)", told.read_text())[1])


def main():
    """Prints one line for each kind of command."""
    parser = argparse.ArgumentParser(prog="tests/bench/instructions", description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--functions", type=pathlib.Path, default=FUNCTIONS, metavar="FILE",
                        help="the function library (default: the project's)")
    options = parser.parse_args()
    if shutil.which("valgrind") is None:
        sys.exit("tests/bench/instructions: valgrind is not installed: apt-get install valgrind")
    try:
        functions = options.functions.read_text(encoding="utf-8")
    except OSError as error:
        sys.exit(f"tests/bench/instructions: no function library in {options.functions}: {error}")
    for kind in KINDS:
        each = (total(kind, functions, MANY) - total(kind, functions, FEW)) / (MANY - FEW)
        print(f"{each:9,.0f}  {kind}", flush=True)


if __name__ == "__main__":
    main()
