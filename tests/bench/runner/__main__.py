"""Runs the measurements: python3 -m runner, started by ./bench, which has built the programs."""
import contextlib
import math
import os
import sys
import time

from demo.programs import NotInTime

from . import ending, lines, place, plot, report, usage
from .daemon_figures import MEASUREMENTS as DAEMON
from .figures import Series, Unmeasured
from .growth import MEASUREMENTS as GROWTH
from .inside_figures import MEASUREMENTS as INSIDE
from .room import MEASUREMENTS as ROOM
from .store_figures import MEASUREMENTS as STORE

MEASUREMENTS = {**STORE, **DAEMON, **INSIDE, **GROWTH, **ROOM}


def tell(text, end="\n"):
    """Says something on the way; that nobody hears it any more is no reason to stop."""
    with contextlib.suppress(OSError):
        print(text, end=end, file=sys.stderr, flush=True)


def unmeasured(names, why):
    """A result for each line of these measurements, which tells why there is no figure."""
    return [Unmeasured(line, why) for name in names for line in lines.MEASUREMENTS[name]]


def limit(rounds):
    """Seconds that a measurement may take: many times what the longest one needs."""
    return 180 + 40 * rounds


def why_of(failure):
    """One line that says what went wrong; the kind of it where the text alone says nothing, as a key's name."""
    text = " ".join(str(failure).split())
    known = isinstance(failure, (place.Failed, NotInTime, OSError, RuntimeError)) and text
    return text if known else f"{type(failure).__name__}: {text}"


def check(results):
    """Fails when something that was printed as a figure is none."""
    for shown in (shown for result in results for shown in result.as_json()):
        value = shown["ratio"] if "ratio" in shown else shown["value"]
        if not 0 < value < math.inf:
            raise place.Failed(f"{shown['name']} came to {value}, which is nothing that can be measured")


def take(name, rounds):
    """The results of one measurement. Whatever may go wrong in it, it's told, and nothing of it stays behind."""
    began = time.monotonic()
    tell(f"{name} ...", end=" ")
    try:
        with ending.within(limit(rounds)):
            results = MEASUREMENTS[name](rounds)
        check(results)
    except Exception as failure:  # pylint: disable=broad-except
        place.remarks()  # those of rounds that nobody will see
        ending.end_children()
        tell(f"failed: {why_of(failure)}")
        return unmeasured([name], why_of(failure))
    noticed = place.remarks()
    for result in results:
        result.remarks = noticed
    tell("; ".join([f"{time.monotonic() - began:.1f} s", *noticed]))
    return results


def measure(names, rounds):
    """Takes the measurements one after the other; returns all results, and the status when somebody ended it."""
    results, status, done = [], 0, 0
    try:
        with ending.clean():
            place.stay_on(place.processors()[0])
            _learn_pace()
            for name in names:
                results += take(name, rounds)
                done += 1
    except ending.Asked as asked:
        tell(f"ended by {asked}")
        results += unmeasured(names[done:], f"ended by {asked}")
        status = asked.status
    return results, status


def _learn_pace():
    try:
        place.learn_pace()
    except Exception as failure:  # pylint: disable=broad-except
        tell(f"not known how quick the processor is: {why_of(failure)}")  # then each program looks for itself


def show(results, options):
    """Writes and prints all results; returns whether that worked. What can't be written is told, and the rest is."""
    def table():
        print(report.text(results), flush=True)

    writers = [table]
    if options.json:
        writers.insert(0, lambda: report.write_json(results, options.json))
    if options.plots:
        writers += [lambda result=result: plot.write(result, options.plots)
                    for result in results if isinstance(result, Series)]
    well = True
    for write in writers:
        try:
            write()
        except Exception as failure:  # pylint: disable=broad-except
            tell(f"bench: not written: {why_of(failure)}")
            well = False
    return well


def main(argv):
    """Returns the exit status."""
    options = usage.parse(argv)
    results, status = measure(options.only, options.rounds)
    well = show(results, options)
    for complaint in report.complaints(results):
        tell(complaint)
    failed = not well or any(isinstance(result, Unmeasured) for result in results)
    return status or int(failed)


if __name__ == "__main__":
    STATUS = main(sys.argv[1:])
    with contextlib.suppress(OSError):
        sys.stderr.flush()
    # Nothing is left to do, and what standard output could not take has been told.
    os._exit(STATUS)
