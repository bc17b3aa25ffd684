"""Who decided, where records alone look as if somebody else had: restarts, late answers, a folder that was emptied.

Each of these is told right because every write says which notification or timer it belongs to, and which life of the
daemon made it. The list has it from the store alone, the history from the recorder.
"""
import signal

import pytest

from demo.daemon import faketime_library, scaled_time
from recording import sql
from rig import ACK, HOST, PASS


def outcomes(recorder, position):
    """What the history has of a position, the oldest first: (outcome, decider)."""
    return [(decision["outcome"], decision["decider"]) for decision in recorder.decisions(position)]


def listed(rig, position):
    """A card as the list has it, without a history."""
    cards = {card["card"]: card for card in rig.cgctl.json("list", "--history", "/nowhere")["cards"]}
    return cards[position]


def kill(rig):
    rig.daemon.signal(signal.SIGKILL)
    rig.daemon.wait()


def expect_answer_read(rig, position, module):
    rig.expect(lambda: not rig.record(HOST, ACK, 0, *position.split("/"), module), f"{module}'s answer is read")


def expect_passed_by_m1(rig, recorder):
    """The last answer that is missing passes the card; another one afterwards changes nothing."""
    rig.answer("1/3/0", "m1")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["decider"] == "m1" and passed["silent"] == []
    rig.answer("1/3/0", "m2")
    expect_answer_read(rig, "1/3/0", "m2")
    rig.settle()


def test_an_answer_that_stood_at_a_restart_counts(rig, recorder):
    rig.start_master("m1", "m2")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    kill(rig)
    rig.answer("1/3/0", "m2")
    rig.start()
    expect_answer_read(rig, "1/3/0", "m2")
    expect_passed_by_m1(rig, recorder)
    assert outcomes(recorder, "1/3/0") == [("withdrawn", None), ("passed", "m1")]
    assert listed(rig, "1/3/0")["state"] == "passed" and listed(rig, "1/3/0")["decider"] == "m1"


@pytest.mark.parametrize("who", ["daemon", "both"])
def test_an_answer_that_a_resynchronisation_brings_counts(rig, recorder, who):
    """It is news to nobody: a subscriber that was away finds it among the records."""
    rig.start_master("m1", "m2")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    away = [rig.daemon] + ([recorder] if who == "both" else [])
    for program in away:
        program.signal(signal.SIGSTOP)
    for kind in ("normal", "pubsub"):
        rig.store.ask(f"CLIENT KILL TYPE {kind} SKIPME yes\r\n".encode())
    rig.answer("1/3/0", "m2", ret=1, reason="too early")
    rig.answer("1/3/0", "m2")
    for program in away:
        program.signal(signal.SIGCONT)
    expect_answer_read(rig, "1/3/0", "m2")
    expect_passed_by_m1(rig, recorder)
    assert outcomes(recorder, "1/3/0") == [("passed", "m1")]
    assert listed(rig, "1/3/0")["decider"] == "m1"


@pytest.mark.parametrize("first, reason", [("recorder", "hot"), ("daemon", None)])
def test_the_reason_of_a_denial_that_a_resynchronisation_brings(rig, recorder, first, reason):
    """Found unread it is known; an answer that came and was read while the recorder was away is gone, and nobody guesses."""
    rig.start_master("m1", "m2")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_checks") == "1", "the check is in the file")
    for program in (rig.daemon, recorder):
        program.signal(signal.SIGSTOP)
    for kind in ("normal", "pubsub"):
        rig.store.ask(f"CLIENT KILL TYPE {kind} SKIPME yes\r\n".encode())
    rig.answer("1/3/0", "m1", ret=1, reason="hot")
    if first == "recorder":
        recorder.signal(signal.SIGCONT)
        rig.expect(lambda: recorder.said().count("subscribed; following") == 2, "the recorder is back")
        rig.daemon.signal(signal.SIGCONT)
    else:
        rig.daemon.signal(signal.SIGCONT)
        rig.expect_no_request("1/3/0")
        recorder.signal(signal.SIGCONT)
    denied = recorder.expect_decision("1/3/0", "denied")
    assert (denied["decider"], denied["reason"], denied["complete"]) == ("m1", reason, False)


def test_a_pass_after_a_withdrawal_and_a_restart_of_the_recorder_has_its_decider(rig, recorder):
    rig.start_master("m1", "m2")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m2")
    expect_answer_read(rig, "1/3/0", "m2")
    rig.cgctl("card", "offline", "1/3/0")
    recorder.expect_decision("1/3/0", "withdrawn")
    recorder.end()
    recorder.start()
    rig.answer("1/3/0", "m1")
    rig.expect(lambda: rig.by_tipc(3), "the daemon passes it all the same")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["decider"] == "m1"


def test_a_card_that_passed_offline_and_is_admitted_by_the_time_later(rig, recorder):
    if faketime_library() is None:
        pytest.skip("libfaketime is not installed")
    factor = 50  # 300 seconds in six, for both of them
    rig.modules("m1", "m2")
    rig.role("master")
    recorder.start(**scaled_time(factor))
    rig.start_scaled(factor)
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m2")
    expect_answer_read(rig, "1/3/0", "m2")
    rig.cgctl("card", "offline", "1/3/0")
    rig.expect_no_request("1/3/0")
    rig.answer("1/3/0", "m1")
    late = recorder.expect_decision("1/3/0", "passed")
    assert late["decider"] == "m1"
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    silence = recorder.expect_decision("1/3/0", "silence")
    assert sorted(silence["silent"]) == ["m1", "m2"] and silence["decider"] is None
    assert listed(rig, "1/3/0")["state"] == "silence"


def test_an_emptied_folder_and_a_restart_leave_nobody_to_be_silent(rig, recorder):
    """The request of before outlives the admission: the next daemon asks nobody, and does not know of it."""
    rig.start_master("m1")
    recorder.start()
    for slot in (3, 4):
        rig.plug(f"1/{slot}/0")
        rig.expect_request(f"1/{slot}/0")
    rig.answer("1/4/0", "m1", ret=-1, reason="too hot")
    recorder.expect_decision("1/4/0", "denied")
    kill(rig)
    rig.modules()
    rig.start()
    rig.expect(lambda: rig.by_tipc(3), "the waiting card is admitted")
    for slot in (3, 4):
        unasked = recorder.expect_decision(f"1/{slot}/0", "unasked")
        assert unasked["silent"] == [] and unasked["decider"] is None
        assert listed(rig, f"1/{slot}/0")["state"] == "unasked"
    assert outcomes(recorder, "1/3/0") == [("withdrawn", None), ("unasked", None)]
    assert outcomes(recorder, "1/4/0") == [("denied", "m1"), ("unasked", None)]
    assert rig.request("1/3/0"), "the request outlived the admission"
    assert listed(rig, "1/3/0")["waiting_for"] == []
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_checks") == "0", "nobody is waited for")
    recorder.end()
    rig.modules("m1")  # which the daemon that lives does not know
    recorder.start()
    rig.expect(lambda: recorder.metrics().get('cg_cards{state="unasked"}') == 2, "the found request is known as ended")
    assert outcomes(recorder, "1/3/0") == [("withdrawn", None), ("unasked", None)]
    assert sql(recorder, "SELECT count(*) FROM open_checks") == "0"
    assert rig.by_tipc(3)["6"] == PASS


def test_the_first_daemon_has_read_the_folder_after_the_recorder(rig, recorder):
    """An installation on an empty device: recorder and daemon, then modules and a restart, which writes nothing."""
    rig.role("master")
    rig.start()
    recorder.start()
    rig.daemon.stop()
    rig.daemon.wait()
    rig.modules("m1", "m2")
    rig.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "stranger")
    rig.answer("1/3/0", "m1")
    rig.answer("1/3/0", "m2")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["complete"] and [answer["registered"] for answer in passed["answers"]] == [False, True, True]
    assert "but the daemon asks some" not in recorder.said()


def test_a_restart_of_the_recorder_leaves_the_daemon_its_modules(rig, recorder):
    """A module that is installed while the daemon runs is not asked, and nobody says that it was silent."""
    if faketime_library() is None:
        pytest.skip("libfaketime is not installed")
    factor = 50
    rig.modules("m1", "m2")
    rig.role("master")
    recorder.start(**scaled_time(factor))
    rig.start_scaled(factor)
    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_checks") == "1", "the daemon was heard")
    recorder.end()
    rig.modules("m1", "m2", "m3")
    recorder.start(**scaled_time(factor))
    rig.plug("1/3/0")
    silence = recorder.expect_decision("1/3/0", "silence")
    assert sorted(silence["silent"]) == ["m1", "m2"] and silence["complete"]


def test_the_store_alone_knows_who_decided(rig):
    rig.start_master("m1")
    for slot in (3, 4):
        rig.plug(f"1/{slot}/0")
        rig.expect_request(f"1/{slot}/0")
    rig.answer("1/3/0", "m1")
    rig.answer("1/4/0", "m1", ret=1, reason="no")
    for slot, state in ((3, "passed"), (4, "denied")):
        rig.expect_no_request(f"1/{slot}/0")
        card = listed(rig, f"1/{slot}/0")
        assert (card["state"], card["decider"], card["unseen"]) == (state, "m1", False)
