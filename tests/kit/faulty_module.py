#!/usr/bin/python3
"""A check module with one fault, for tests of what finds it: faulty_module.py FAULT NAME"""
import pathlib
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "kit" / "examples" / "python"))
import check_module  # noqa: E402  (needs the path above)
from check_module import ANSWER, CheckModule, Verdict, key  # noqa: E402

FAULTS = {
    "none": lambda request, card: Verdict(True),
    "no-reason": lambda request, card: Verdict(False),
    "long-reason": lambda request, card: Verdict(False, "x" * 256),
    "serial": lambda request, card: time.sleep(1.2) or Verdict(True),
    "forget": lambda request, card: Verdict(True, after_s=0.9),
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


def answer_unseen(self, _record_key, job):
    """Answers PASS, whether anybody waits for it or not."""
    request = job.request
    answer = key(ANSWER, request.devid, request.slotid, request.sslotid, self._name.encode())
    self._store.set(ANSWER, answer, {}, job.mark)
    return True


def look_at_nothing():
    """Examines one card after the other and answers what is gone by then."""
    CheckModule._answered = answer_unseen


def forget_the_next():
    """Answers a request that was deleted, and takes the next one for that position for the same."""
    take, forgotten = CheckModule._take, set()

    def take_most(self, change):
        job = self._jobs.get(change.key)
        if change.is_deleted and job:
            answer_unseen(self, change.key, job)
            forgotten.add(change.key)
        elif not change.is_deleted and change.key in forgotten:
            forgotten.discard(change.key)
            return
        take(self, change)

    CheckModule._take = take_most


def main():
    fault, name = sys.argv[1:]
    {"asked-again": forget_nothing, "dies-of-loss": die_of_loss, "was-away": pass_over_what_stands,
     "serial": look_at_nothing, "forget": forget_the_next}.get(fault, lambda: None)()
    sys.exit(check_module.serve(name, FAULTS.get(fault, FAULTS["none"])))


if __name__ == "__main__":
    main()
