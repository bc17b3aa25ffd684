"""How the soak compares the history with what it expects."""
import pytest

from ledger import Contradiction, Expected, Ledger


def row(at, outcome, decider="", complete=False):
    """A row of the history."""
    return {"card": "1/5/0", "at": at, "decided_at": str(at), "outcome": outcome, "decider": decider, "reason": "",
            "complete": complete, "given": ()}


def judged(expected, rows):
    """Judges rows of which none needs to be exact."""
    ledger = Ledger()
    ledger.expected = expected
    ledger.judge(rows, [], since=0, heard_since=0, exact_since=1000)


def test_a_row_that_says_little_is_not_taken_from_the_row_that_needs_it():
    # The recorder was late, so its rows are nearer to other decisions than to their own.
    judged([Expected(100.350, "1/5/0", "unseen"), Expected(100.364, "1/5/0", "withdrawn"),
            Expected(100.382, "1/5/0", "passed", "beta")],
           [row(100.393, "unseen"), row(100.437, "withdrawn"), row(100.486, "passed", "beta")])


def test_a_row_too_few_is_found():
    with pytest.raises(Contradiction, match="lacks"):
        judged([Expected(100.350, "1/5/0", "unseen"), Expected(100.382, "1/5/0", "passed", "beta")],
               [row(100.486, "passed", "beta")])


def test_a_row_that_names_another_decider_is_found():
    with pytest.raises(Contradiction, match="lacks"):
        judged([Expected(100.382, "1/5/0", "passed", "beta")], [row(100.486, "passed", "alpha")])
