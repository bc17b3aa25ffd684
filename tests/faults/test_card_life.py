"""The store ends in the same state whatever happens to the daemon's connection, or to the daemon, at any call."""
import pytest

from card_life import DENIED, PASSED, REASON, SilentLife, live
from demo.daemon import faketime_library
from proxy import CutAfter, CutBefore, KillAfter, KillBefore, is_call, is_opening
from rig import BY_POSITION, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, PASS, POWER, REQUEST, Rig
from demo.supervisor import KILLED

_FEWEST_CALLS = 20
_SHORT = {"calls": 16, "openings": 4}  # how many of them are tried in the short form
_COUNTED = {"calls": is_call, "openings": is_opening}


@pytest.fixture
def reference():
    """The life without a fault, by what is counted."""
    return {name: live(Rig, counted=counted) for name, counted in _COUNTED.items()}


def chosen(count, wanted, seed, is_long):
    """The commands at which faults are to happen: all of them, or some that lie evenly, beginning by the seed."""
    if is_long:
        return range(1, count + 1)
    stride = max(1, count // wanted)
    return range(1 + seed % stride, count + 1, stride)


def without_counting(calls):
    """Calls but the questions for the counters, whose number depends on how many changes arrive together."""
    return [call for call in calls if not call.startswith("GET @rev:")]


def test_the_life_itself():
    outcome = live(Rig)
    again = live(Rig)
    assert outcome.records == again.records
    assert without_counting(outcome.calls()) == without_counting(again.calls())
    assert outcome.ends == [] and outcome.losses() == []
    results = outcome.records[CAP]
    assert results[f"{BY_POSITION}:0:{DENIED.replace('/', ':')}"].get("6", "0") == DENY
    assert results[f"{BY_POSITION}:0:{PASSED.replace('/', ':')}"]["6"] == PASS
    marks = [key.split(":")[0] for key in outcome.records[DEV_GLOBAL]]
    assert sorted(marks) == sorted([CUSTOM_STATUS, POWER])
    assert len(outcome.system_log) == 2 and REASON in outcome.system_log[0]


@pytest.mark.parametrize("counted", _COUNTED)
@pytest.mark.parametrize("fault", [CutBefore, CutAfter])
def test_the_connection_is_cut(reference, fault, counted, seed, is_long, progress):
    expected = reference[counted]
    assert counted != "calls" or len(expected.commands) > _FEWEST_CALLS
    for at in chosen(len(expected.commands), _SHORT[counted], seed, is_long):
        progress(f"{fault.__name__} at {at} of {len(expected.commands)}: {expected.calls()[at - 1]}")
        outcome = live(Rig, fault(), at, _COUNTED[counted])
        where = f"{fault.__name__} at {at}, {outcome.struck!r}"
        assert outcome.struck, where
        assert outcome.ends == [], where
        assert outcome.records == expected.records, where
        assert outcome.losses() == [], where
        assert len(outcome.system_log) == 2, where


@pytest.mark.parametrize("fault", [KillBefore, KillAfter])
def test_the_daemon_is_killed(reference, fault, seed, is_long, progress):
    expected = reference["calls"]
    assert len(expected.commands) > _FEWEST_CALLS
    for at in chosen(len(expected.commands), _SHORT["calls"], seed, is_long):
        progress(f"{fault.__name__} at {at} of {len(expected.commands)}: {expected.calls()[at - 1]}")
        outcome = live(Rig, fault(), at)
        where = f"{fault.__name__} at {at}, {outcome.struck!r}"
        assert outcome.struck and outcome.ends == [KILLED], where
        assert outcome.records == expected.records, where
        assert outcome.losses() == [], where


@pytest.mark.skipif(faketime_library() is None, reason="libfaketime is not installed")
@pytest.mark.parametrize("fault", [CutBefore, CutAfter, KillBefore, KillAfter])
def test_the_time_runs_out(fault, seed, is_long, progress):
    """The calls of the check of a card to which one module is silent, those of the timer among them."""
    expected = live(Rig, kind=SilentLife)
    calls = len(expected.commands)
    first = 1 + next(at for at, call in enumerate(expected.calls()) if call.split()[-1].startswith(REQUEST))
    assert calls - first >= 5, "the request, the answer, three results and the request's end"
    chosen_calls = range(first, calls + 1) if is_long else [first + seed % (calls - first + 1)]
    for at in chosen_calls:
        progress(f"{fault.__name__} at {at} of {calls}: {expected.calls()[at - 1]}")
        outcome = live(Rig, fault(), at, kind=SilentLife)
        where = f"{fault.__name__} at {at}, {outcome.struck!r}"
        assert outcome.struck and outcome.ends == ([KILLED] if issubclass(fault, KillBefore) else []), where
        assert outcome.records == expected.records, where
        assert outcome.losses() == [], where
