#!/usr/bin/python3
"""A check module with one fault, for tests of what finds it: faulty_module.py FAULT NAME"""
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "kit" / "examples" / "python"))
import check_module  # noqa: E402  (needs the path above)
from check_module import CheckModule, Verdict  # noqa: E402

FAULTS = {
    "none": lambda request, card: Verdict(True),
    "no-reason": lambda request, card: Verdict(False),
    "long-reason": lambda request, card: Verdict(False, "x" * 256),
    "denies-300": lambda request, card: Verdict(request.type != 300, "300 is too many"),
}


def forget_nothing():
    """Answers about a position only once, ever."""
    take, known = CheckModule._take, set()

    def take_once(self, change):
        if change.is_deleted or change.key not in known:
            take(self, change)
        if not change.is_deleted:
            known.add(change.key)

    CheckModule._take = take_once


def die_of_loss():
    """Ends when the store is away."""
    def give_up(*_):
        sys.exit("the store is gone")

    CheckModule._pause = give_up


def pass_over_what_stands():
    """Sees only what is written while it runs."""
    serve = CheckModule._serve

    def serve_new(self):
        self._watch.changes.clear()
        serve(self)

    CheckModule._serve = serve_new


def main():
    fault, name = sys.argv[1:]
    {"asked-again": forget_nothing, "dies-of-loss": die_of_loss, "was-away": pass_over_what_stands}.get(
        fault, lambda: None)()
    sys.exit(check_module.serve(name, FAULTS.get(fault, FAULTS["none"])))


if __name__ == "__main__":
    main()
