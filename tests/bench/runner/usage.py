"""The command line of ./bench, by itself: python3 -m runner.usage ARGUMENTS ends with 2 when they are wrong.

It is looked at before anything is installed or built, so nothing is imported here that may have to be installed. The
files that results go to are tried at the same time: to find after ten minutes that one can't be written helps nobody.
"""
import argparse
import pathlib
import sys
import tempfile

from .lines import LINES, MEASUREMENTS, measurement_of

ROUNDS, QUICK_ROUNDS = 9, 3


def _names(text):
    """The measurements that a list of names asks for."""
    for name in text.split(","):
        if measurement_of(name) is None:
            raise argparse.ArgumentTypeError(f"there is no {name!r}; there are {', '.join(_all_names())}")
    return [measurement_of(name) for name in text.split(",")]


def _all_names():
    return dict.fromkeys([*MEASUREMENTS, *LINES])


def _file(text):
    path = pathlib.Path(text)
    try:
        there = path.exists()
        with open(path, "ab"):
            pass
        if not there:
            path.unlink()
    except OSError as failure:
        raise argparse.ArgumentTypeError(f"{text!r} can't be written ({failure.strerror}); "
                                         "name a file in a folder that exists and is yours") from failure
    return path


def _folder(text):
    path = pathlib.Path(text)
    try:
        path.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryFile(dir=path):
            pass
    except OSError as failure:
        raise argparse.ArgumentTypeError(f"nothing can be written into {text!r} ({failure.strerror}); "
                                         "name a folder that is yours") from failure
    return path


def _count(text):
    if not text.isdecimal() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"{text!r} is no number from 1")
    return int(text)


def _parser():
    parser = argparse.ArgumentParser(prog="bench", allow_abbrev=False, usage="./bench [--only NAME[,NAME]...]... "
                                     "[--rounds N | --quick] [--json FILE] [--plots DIR] [--help]",
                                     description="Measures what the gate costs beside the bare store.")
    parser.add_argument("--only", action="extend", type=_names, metavar="NAME", default=None,
                        help="only the measurements that these are made by: " + ", ".join(_all_names()))
    many = parser.add_mutually_exclusive_group()
    many.add_argument("--rounds", type=_count, default=ROUNDS, metavar="N",
                      help=f"rounds of each measurement (default {ROUNDS})")
    many.add_argument("--quick", dest="rounds", action="store_const", const=QUICK_ROUNDS,
                      help=f"{QUICK_ROUNDS} rounds, for trying")
    parser.add_argument("--json", type=_file, metavar="FILE", help="write all results with their raw rounds")
    parser.add_argument("--plots", type=_folder, metavar="DIR", help="draw the series as SVG files into DIR")
    return parser


def parse(argv):
    """The command line; ends with status 2 when it is wrong. `only` has each measurement once, in the order asked for."""
    options = _parser().parse_args(argv)
    options.only = list(dict.fromkeys(options.only or MEASUREMENTS))
    return options


if __name__ == "__main__":
    parse(sys.argv[1:])
