"""Runs the measurements: python3 -m runner, started by ./bench, which has built the programs."""
import argparse
import pathlib
import sys
import time

from demo.programs import NotInTime

from . import plot, report
from .daemon_figures import MEASUREMENTS as DAEMON
from .figures import Series
from .growth import MEASUREMENTS as GROWTH
from .inside_figures import MEASUREMENTS as INSIDE
from .place import Failed, learn_pace, processors, shared_rounds, stay_on
from .room import MEASUREMENTS as ROOM
from .store_figures import MEASUREMENTS as STORE

MEASUREMENTS = {**STORE, **DAEMON, **INSIDE, **GROWTH, **ROOM}


def parse(argv):
    """The command line; ends with status 2 when it is wrong."""
    parser = argparse.ArgumentParser(prog="bench", usage="./bench [--only NAME]... [--rounds N] [--quick] "
                                     "[--json FILE] [--plots DIR] [--help]",
                                     description="Measures what the gate costs beside the bare store.")
    parser.add_argument("--only", action="append", metavar="NAME", choices=list(MEASUREMENTS), default=None,
                        help="this measurement only; may be given several times: " + ", ".join(MEASUREMENTS))
    parser.add_argument("--rounds", type=int, default=9, help="rounds of each measurement (default 9)")
    parser.add_argument("--quick", action="store_true", help="3 rounds, for trying")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE", help="write all results with their raw rounds")
    parser.add_argument("--plots", type=pathlib.Path, metavar="DIR", help="draw the series as SVG files into DIR")
    parser.add_argument("--check-usage", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args(argv)
    if options.rounds < 1:
        parser.error("--rounds wants a number from 1")
    if options.quick:
        options.rounds = 3
    return options


def measure(names, rounds):
    """Takes the measurements one after the other; returns the results and the failures."""
    results, failures = [], []
    for name in names:
        began = time.monotonic()
        print(f"{name} ...", end=" ", file=sys.stderr, flush=True)
        try:
            results += MEASUREMENTS[name](rounds)
        except (Failed, NotInTime, OSError, ValueError, RuntimeError) as failure:
            failures.append(f"{name}: {failure}")
            print(f"failed: {failure}", file=sys.stderr)
            continue
        shared, taken = shared_rounds()
        others = f"; somebody else used the core during {shared} of {taken} rounds" if shared else ""
        print(f"{time.monotonic() - began:.1f} s{others}", file=sys.stderr)
    return results, failures


def main(argv):
    """Returns the exit status."""
    options = parse(argv)
    if options.check_usage:
        return 0
    if options.plots:
        options.plots.mkdir(parents=True, exist_ok=True)
    stay_on(processors()[0])
    learn_pace()
    results, failures = measure(options.only or list(MEASUREMENTS), options.rounds)
    print(report.text(results))
    if options.json:
        report.write_json(results, options.json)
    if options.plots:
        for result in results:
            if isinstance(result, Series):
                plot.write(result, options.plots)
    for failure in failures:
        print(f"not measured: {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
