"""Scenarios, played by cg_sim against the real daemon."""
import json
import signal
import subprocess

import pytest

from demo import programs
from rig import CARD_INFO, DEV_GLOBAL, HOST, POWER, PROJECT, REQUEST


@pytest.fixture
def device(rig):
    """A running daemon with the modules m1, m2 and m3; its clock is ours."""
    rig.modules("m1", "m2", "m3")
    rig.start()
    return rig


def play(rig, text, *options, seconds=60):
    """Plays a text; returns the completed process."""
    file = rig.folder / "story.scenario"
    file.write_text(text)
    return rig.sim.attempt(*options, file, seconds=seconds)


PASS = "module m1 answers pass\nmodule m2 answers pass\nmodule m3 answers pass after 200ms\n"


def test_a_whole_story(device):
    played = play(device, f"""
        role master
        {PASS}
        module m2 answers deny "too \\"warm\\"" for 1/3/0 after 100ms
        module m1 silent for type 230
        plug 1/1 mb
        plug 1/2 lc name="lc 48" serial=00e0
        plug 1/3
        plug 1/4 sub_lc type=230
        expect 1/1 exempt
        expect 1/2 passed by m3 within 5s
        expect 1/3 denied by m2 because "\\"warm\\""
        expect 1/3 marked
        expect 1/4 waiting for m1
        expect 1/4 waiting throughout 300ms
        offline 1/3
        expect 1/3 offline
        expect 1/3 unmarked
        pull 1/2
        expect 1/2 absent
        """)
    assert played.returncode == 0, played.stderr + played.stdout
    assert "9 of 9 expectations held." in played.stdout
    assert 'm2 answers DENY: too "warm"' in played.stderr and "DENIED by m2" in played.stderr
    assert device.keys(HOST, CARD_INFO) == [] and device.keys(DEV_GLOBAL, POWER) == []
    device.expect(lambda: device.keys(HOST, REQUEST) == [], "nothing is left")


def test_a_slave_marks_nothing(device):
    assert play(device, f"""
        role slave
        {PASS}
        module m1 answers deny "no"
        plug 1/3
        expect 1/3 denied by m1
        expect 1/3 unmarked throughout 200ms""").returncode == 0


def test_a_miss_is_told_with_what_was_seen(device):
    played = play(device, PASS + "plug 1/3\nexpect 1/3 waiting within 5s\nexpect 1/3 denied within 500ms")
    assert played.returncode == 1
    assert "1 of 2 expectations held." in played.stdout
    [line] = [line for line in played.stdout.splitlines() if line.endswith("MISSED")]
    assert line.split()[:2] == ["6", "1/3/0"] and "passed by m3" in line
    assert device.keys(HOST, CARD_INFO) == []


def test_a_module_that_returns_answers_what_stands(device):
    played = play(device, PASS + """
        module m2 away
        plug 1/3
        expect 1/3 waiting for m2 within 5s
        module m2 answers pass
        expect 1/3 passed by m2""")
    assert played.returncode == 0, played.stderr + played.stdout


def test_a_file_with_mistakes_touches_nothing(device):
    refused = play(device, "plug 1/3\nexpect 1/3 denied by m9 within\nplgu 1/4\n")
    assert refused.returncode == 2 and refused.stdout == ""
    assert "story.scenario:2:32: a time as in 5s is missing here" in refused.stderr
    assert "story.scenario:3:1: \"plgu\" is not a statement; nearest: plug\n    plgu 1/4\n    ^\n" in refused.stderr
    assert "plugged" not in refused.stderr and device.keys(HOST, CARD_INFO) == []
    mistakes = json.loads(play(device, "plug", "--json").stderr)["mistakes"]
    assert [(mistake["line"], mistake["column"]) for mistake in mistakes] == [(1, 6)]


def test_a_module_that_the_daemon_does_not_know_is_named(device):
    refused = play(device, "module m7 silent\nplug 1/3\n")
    assert refused.returncode == 1
    assert "does not know m7, it asks m" in refused.stderr and "touch /etc/app_cg/deny_check/m7" in refused.stderr
    assert device.keys(HOST, CARD_INFO) == []
    assert "also asks" in play(device, "module m1 silent\n").stderr


def test_a_card_that_is_there_is_left_alone(device):
    device.plug("1/3/0", offline=True)
    refused = play(device, "plug 1/3/0 mb")
    assert refused.returncode == 1 and "there is a card at 1/3/0" in refused.stderr
    assert len(device.keys(HOST, CARD_INFO)) == 1


def test_lines_for_programs(device):
    played = play(device, PASS + "plug 1/3 name=x\nsay \"hello\"\nexpect 1/3 passed by m3", "--json")
    assert played.returncode == 0, played.stderr
    events = [json.loads(line) for line in played.stdout.splitlines()]
    assert events[-1] == {"version": 1, "event": "summary", "expectations": 1, "held": 1, "missed": 0,
                          "complete": True}
    kinds = [event["event"] for event in events]
    assert {"plugged", "say", "request", "answer", "decision", "expectation"} <= set(kinds)
    assert all("time" in event for event in events[:-1])
    [expectation] = [event for event in events if event["event"] == "expectation"]
    assert (expectation["card"], expectation["held"], expectation["seen"]) == ("1/3/0", True, "passed by m3")
    [decision] = [event["decision"] for event in events if event["event"] == "decision"]
    assert decision["decider"] == "m3" and len(decision["answers"]) == 3


def test_files_one_after_the_other_and_standard_input(device):
    first = device.folder / "first"
    first.write_text(PASS + "plug 1/3\nexpect 1/3 passed\n")
    second = device.folder / "second"
    second.write_text("module m1 answers deny\nplug 1/3\nexpect 1/3 denied by m1\n")
    played = device.sim.attempt(first, second)
    assert played.returncode == 0, played.stderr + played.stdout
    assert "2 of 2 expectations held." in played.stdout
    checked = subprocess.run([device.sim.program, "--check", "-"], input="plug 1/1 mb\nwait 1s\n", text=True,
                             capture_output=True, check=False)
    assert checked.returncode == 0 and "syntax OK, 2 statements" in checked.stderr


@pytest.mark.parametrize("options, left", [((), 0), (("--keep",), 1)])
def test_an_interrupt_pulls_what_was_plugged(device, options, left):
    file = device.folder / "long"
    file.write_text("plug 1/3 offline\nexpect 1/3 offline\nwait 1h\nexpect 1/3 offline\n".replace("1h", "60m"))
    player = device.sim.start(*options, file, stdout=subprocess.PIPE, text=True)
    device.expect(lambda: device.keys(HOST, CARD_INFO), "the card is plugged")
    device.expect(lambda: "slotid[3]" in device.debug("dump_node"), "the daemon knows it")
    player.send_signal(signal.SIGINT)
    out = player.communicate(timeout=20)[0]
    assert player.returncode == 1
    assert " of 2 expectations held; the play was aborted." in out
    assert len(device.keys(HOST, CARD_INFO)) == left


def test_staying_plays_the_modules_on(device):
    file = device.folder / "stay"
    file.write_text(PASS + "plug 1/3\nexpect 1/3 passed\n")
    player = device.sim.start("--stay", file, stdout=subprocess.PIPE, text=True)
    try:
        while "expectations held" not in player.stdout.readline():
            pass
        assert len(device.keys(HOST, CARD_INFO)) == 1
        device.plug("1/5/0")
        device.expect(lambda: device.by_tipc(5), "the modules pass a card that somebody else plugged")
        device.cgctl("card", "pull", "1/5/0")
    finally:
        programs.stop(player)
        player.stdout.close()
    assert device.keys(HOST, CARD_INFO) == [] and player.returncode == 0


def test_a_store_that_returns_is_followed_again(rig):
    file = rig.folder / "long"
    file.write_text("plug 1/3 offline\nexpect 1/3 absent within 60s\n")
    said = rig.folder / "said"
    with open(said, "wb") as errors:
        player = rig.sim.start(file, stdout=subprocess.PIPE, stderr=errors, text=True)
    rig.expect(lambda: "plugged" in said.read_text(), "the card is plugged")
    rig.store.ask(b"SAVE\r\n")
    rig.store.stop()
    rig.expect(lambda: said.read_text().count("lost the store") == 2, "the player notices")
    rig.store.start()
    rig.expect(lambda: said.read_text().count("the store is back") == 2, "the player is back")
    rig.cgctl("card", "pull", "1/3/0")
    assert "1 of 1 expectations held." in player.communicate(timeout=20)[0] and player.returncode == 0


def test_without_a_daemon_nothing_is_decided(rig):
    played = play(rig, "module m1 silent\nplug 1/3\nexpect 1/3 waiting within 100ms")
    assert played.returncode == 1
    assert "cannot ask the daemon" in played.stderr and "undecided" in played.stdout
    assert rig.keys(HOST, CARD_INFO) == []


@pytest.mark.parametrize("options, says", [(["--speed", "0"], "--speed: not a factor"), (["--speed", "x"], "--speed = x"),
                                           ([], "cannot be read")])
def test_wrong_usage(rig, options, says):
    refused = rig.sim.attempt(*options, rig.folder / "nothing-here")
    assert refused.returncode == (2 if options else 1) and says in refused.stderr


def test_the_manual_page_shows_a_scenario_that_is_right(rig):
    page = (PROJECT / "docs" / "cg_scenario.5").read_text()
    example = page.split(".Bd -literal -offset indent\n")[1].split(".Ed")[0]
    assert example.count("expect ") == 4
    checked = play(rig, example, "--check")
    assert checked.returncode == 0, checked.stderr
