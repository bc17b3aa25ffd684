"""Who decided, and why, as each write of the real daemon says: where times and lists of answers would mislead."""
import signal

import pytest

from demo.daemon import faketime_library, scaled_time


def outcomes(recorder, position):
    return [(decision["outcome"], decision["decider"]) for decision in recorder.decisions(position)]


def card(recorder, position):
    (found,) = [
        each for each in recorder.json("list")["cards"] if each["card"] == position
    ]
    return found


def test_an_answer_that_stood_when_the_daemon_was_restarted_counts(rig, recorder):
    rig.modules("a", "b")
    rig.role("master")
    daemon = rig.start()
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    daemon.signal(signal.SIGKILL)
    daemon.wait()
    rig.answer("1/3/0", "b")
    rig.start()
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "a")
    passed = recorder.expect_decision("1/3/0", "passed")
    rig.answer("1/3/0", "b")
    rig.settle()
    assert passed["decider"] == "a" and passed["silent"] == []
    assert outcomes(recorder, "1/3/0") == [("withdrawn", None), ("passed", "a")]


def test_a_pass_after_a_withdrawal_and_a_restart_of_the_recorder_is_a_pass(rig, recorder):
    rig.start_master("m1")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.cgctl("card", "offline", "1/3/0")
    recorder.expect_decision("1/3/0", "withdrawn")
    recorder.end()
    recorder.start()
    rig.answer("1/3/0", "m1")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["decider"] == "m1"


def test_the_time_admits_a_card_that_a_late_answer_passed_while_it_was_offline(rig, recorder):
    if faketime_library() is None:
        pytest.skip("libfaketime is not installed")
    factor = 50
    rig.modules("a")
    rig.role("master")
    recorder.start(**scaled_time(factor))
    rig.start_scaled(factor)
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.cgctl("card", "offline", "1/3/0")
    rig.expect_no_request("1/3/0")
    rig.answer("1/3/0", "a")
    recorder.expect_decision("1/3/0", "passed")
    rig.cgctl("card", "online", "1/3/0")
    recorder.expect_decision("1/3/0", "silence")
    assert outcomes(recorder, "1/3/0") == [("withdrawn", None), ("passed", "a"), ("silence", None)]


def test_a_daemon_without_modules_admits_whoever_waited_and_whoever_was_denied(rig, recorder):
    rig.modules("power")
    rig.role("master")
    daemon = rig.start()
    recorder.start()
    rig.plug("1/3/0")
    rig.plug("1/4/0")
    rig.expect_request("1/3/0")
    rig.expect_request("1/4/0")
    rig.answer("1/4/0", "power", ret=1, reason="no")
    recorder.expect_decision("1/4/0", "denied")
    daemon.signal(signal.SIGKILL)
    daemon.wait()
    rig.modules()
    rig.start()
    for position in ("1/3/0", "1/4/0"):
        recorder.expect_decision(position, "unasked")
    assert outcomes(recorder, "1/3/0") == [("withdrawn", None), ("unasked", None)]
    assert outcomes(recorder, "1/4/0") == [("denied", "power"), ("unasked", None)]
    rig.expect_request("1/3/0")  # nobody deletes it, and nobody is waited for
    shown = card(recorder, "1/3/0")
    assert (shown["state"], shown["request"], shown["time_left_s"]) == ("unasked", True, None)


def test_the_store_alone_knows_who_decided(rig):
    rig.start_master("m1")
    rig.plug("1/3/0")
    rig.plug("1/4/0")
    rig.expect_request("1/3/0")
    rig.expect_request("1/4/0")
    rig.answer("1/3/0", "m1")
    rig.answer("1/4/0", "m1", ret=1, reason="no")
    rig.expect_no_request("1/4/0")
    rig.expect_no_request("1/3/0")
    cards = {each["card"]: each for each in rig.cgctl.json("list", "--history", "/nowhere")["cards"]}
    assert [(cards[at]["state"], cards[at]["decider"]) for at in ("1/3/0", "1/4/0")] == [("passed", "m1"), ("denied", "m1")]
    assert not cards["1/3/0"]["unseen"]
