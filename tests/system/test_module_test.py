"""cgctl module test against modules that behave, and against those with one fault each."""
import json
import os
import signal
import pathlib
import subprocess
import tempfile

import pytest

from demo import programs
from rig import BUILD, PROJECT

CGCTL = BUILD / "bin" / "cgctl"
FAULTY = PROJECT / "tests" / "kit" / "faulty_module.py"
CASES = ["answers-in-time", "answers-once", "right-name", "deny-has-reason", "reason-fits", "two-at-once", "card-leaves",
         "asked-again", "store-restarts", "was-away", "ends"]


@pytest.fixture
def folder():
    """A folder whose path is short: the store's socket goes there, and pytest's own folders may be too deep for it."""
    with tempfile.TemporaryDirectory(prefix="app_cg-") as path:
        yield pathlib.Path(path)


@pytest.fixture
def try_module(folder):
    """Runs the verb: try_module(command..., options) returns (exit status, {case: result}, everything)."""
    def run(*command, options=(), **env):
        limit = () if "--timeout" in options else ("--timeout", "4")
        done = subprocess.run([CGCTL, "module", "test", "--json", *limit, *options, "--", *command],
                              env={**os.environ, "TMPDIR": str(folder), "PYTHONDONTWRITEBYTECODE": "1", **env},
                              capture_output=True, text=True, timeout=60, check=False)
        assert list(folder.glob("cgctl-store-*")) == [], "something is left"
        told = json.loads(done.stdout) if done.stdout else {}
        return done.returncode, {case["name"]: case for case in told.get("cases", ())}, done.stdout + done.stderr

    return run


def failed(cases):
    return [name for name, case in cases.items() if case["state"] == "failed"]


def test_a_good_module_passes_every_case(try_module):
    status, cases, said = try_module(FAULTY, "denies-300", "types", options=["--name", "types"])
    assert status == 0, said
    assert list(cases) == CASES
    assert {case["state"] for case in cases.values()} == {"ok"}
    assert json.loads(said)["version"] == 2 and json.loads(said)["passed"] is True


def test_the_settings_of_an_installed_store_do_not_apply(try_module):
    status, cases, said = try_module(BUILD / "bin" / "examples/power_budget", "power",
                                     PROJECT / "kit/examples/power_budget/power.table",
                                     VX_MOM_ENDPOINT="unix:/nowhere", VX_MOM_ENDPOINT_1="unix:/nowhere/either")
    assert status == 0 and list(cases) == CASES, said


@pytest.mark.parametrize("command", [
    ("examples/power_budget", "power", PROJECT / "kit/examples/power_budget/power.table"),
    ("examples/compatibility", "compat", PROJECT / "kit/examples/compatibility/slots.table"),
    ("cgctl", "module", "run", "serials", "--", PROJECT / "kit/examples/shell/known_serials.sh", "/dev/null"),
])
def test_the_examples_pass(try_module, command):
    status, cases, said = try_module(BUILD / "bin" / command[0], *command[1:])
    assert (status, failed(cases)) == (0, []), said


@pytest.mark.parametrize("fault, case, found", [
    ("no-reason", "deny-has-reason", "1/1/0 was denied without a reason"),
    ("long-reason", "reason-fits", "the longest reason has 256 bytes"),
    ("asked-again", "asked-again", "no answer for 1/1/0"),
    ("dies-of-loss", "store-restarts", "the module has ended: exit status 1; it printed: "),
    ("was-away", "was-away", "no answer for 1/2/0"),
    ("serial", "card-leaves", "1/1/0 was answered long after its request was gone"),
    ("forget", "asked-again", "no answer for 1/1/0"),
])
def test_a_fault_is_found_and_said(try_module, fault, case, found):
    limits = {"asked-again": "1", "was-away": "1", "forget": "3"}
    more = ("--timeout", limits[fault]) if fault in limits else ()
    status, cases, said = try_module(FAULTY, fault, "types", options=more)
    assert status == 1
    assert case in failed(cases), said
    assert found in cases[case]["found"]
    assert cases[case]["fix"]


def test_a_silent_module_is_told_once_and_ends_well(try_module):
    status, cases, said = try_module(BUILD / "bin" / "kit_silent", "silent", options=["--timeout", "0.5"])
    assert (status, failed(cases)) == (1, ["answers-in-time"]), said
    assert "no answer for 1/1/0 (card 1/1/0, type 200) within 0.5" in cases["answers-in-time"]["found"]
    assert "it printed: silent: " in cases["answers-in-time"]["found"]
    assert cases["was-away"]["state"] == "skipped"


def test_an_answer_under_another_name_is_found(try_module):
    status, cases, _ = try_module(FAULTY, "none", "types", options=["--name", "volt"])
    assert (status, failed(cases)) == (1, ["right-name"])
    assert cases["right-name"]["found"] == 'an answer of "types" instead of "volt"'


def test_a_second_answer_is_found(try_module):
    twice = (f"{CGCTL} set app_cg_card_check_ack devid=$CG_DEVID slotid=$CG_SLOTID mod_name=volt; exit 0")
    status, cases, said = try_module(CGCTL, "module", "run", "volt", "--", "sh", "-c", twice)
    assert (status, failed(cases)[:1]) == (1, ["answers-once"]), said
    assert cases["answers-once"]["found"] == "3 answers too many"


def test_a_module_that_dies_says_why(try_module):
    status, cases, _ = try_module("sh", "-c", "echo starting; echo no licence >&2; exit 3")
    assert (status, failed(cases)) == (1, ["answers-in-time"])
    assert "the module has ended: exit status 3; it printed: no licence" in cases["answers-in-time"]["found"]
    assert {case["state"] for name, case in cases.items() if name != "answers-in-time"} == {"skipped"}


def test_a_module_that_does_not_hear_sigterm_is_found(try_module):
    status, cases, said = try_module("sh", "-c", "trap '' TERM; while :; do sleep 1; done",
                                     options=["--timeout", "0.3"])
    assert (status, failed(cases)) == (1, ["answers-in-time", "ends"]), said
    assert cases["ends"]["found"] == "no exit within the time limit"


def test_the_cards_are_those_that_were_named(try_module):
    status, cases, said = try_module(FAULTY, "denies-300", "types", options=[
        "--card", "name=line card 3 type=300 slot=3 node-type=sfc serial=00e0", "--card", "slot=4"])
    assert status == 0, said
    assert cases["deny-has-reason"]["found"] == "1 denial"
    assert cases["two-at-once"]["found"] == "1/3/0 and 1/4/0"


def test_lines_for_people(folder):
    done = subprocess.run([CGCTL, "module", "test", "--timeout", "4", "--", FAULTY, "no-reason", "types"],
                          env={**os.environ, "TMPDIR": str(folder)}, capture_output=True, text=True, timeout=60,
                          check=False)
    assert done.returncode == 1
    lines = done.stdout.splitlines()
    assert [line.split()[1] for line in lines] == CASES
    assert lines[0].startswith("ok   answers-in-time 3 cards, the slowest in ")
    assert lines[3].startswith("FAIL deny-has-reason 1/1/0 was denied without a reason; fix: give a reason")


@pytest.mark.parametrize("arguments, complaint", [
    ((), "no command; put it at the end, as in `cgctl module test -- ./my-module`"),
    (("--name", "sixteen_bytes_xx", "--", "true"), "sixteen_bytes_xx"),
    (("--timeout", "0", "--", "true"), "--timeout: Value 0 not in range"),
    (("--card", "slot", "--", "true"), "no '='"),
    (("--card", "slot=x", "--", "true"), "slot=x: not a whole number"),
    (("--card", "colour=red", "--", "true"), "colour=red"),
    (("--card", "serial=xyz", "--", "true"), "serial=xyz"),
    (("--card", "slot=3", "--card", "slot=3 type=5", "--", "true"), "two cards at 1/3/0"),
    (("--", "/nowhere/module"), "cannot be executed"),
])
def test_wrong_usage(arguments, complaint):
    done = subprocess.run([CGCTL, "module", "test", *arguments], capture_output=True, text=True, timeout=20, check=False)
    assert done.returncode == 2
    assert complaint in done.stderr


def test_without_a_server_program_it_says_where_one_is(try_module):
    status, _, said = try_module("/bin/sleep", "9", PATH="/nowhere")
    assert status == 1
    assert "apt-get install redis-tools" in said


def test_a_folder_too_deep_for_a_socket_is_not_used(try_module, folder):
    deep = folder / ("d" * 90)
    deep.mkdir()
    status, cases, said = try_module(FAULTY, "denies-300", "types", TMPDIR=str(deep))
    assert status == 0, said
    assert list(cases) == CASES
    assert list(deep.iterdir()) == []


def test_an_interrupted_try_leaves_nothing(folder):
    process = programs.start([CGCTL, "module", "test", "--", "sleep", "1000"], {"TMPDIR": str(folder)})
    programs.wait_until(lambda: list(folder.glob("cgctl-store-*/store.sock")), 20, "the store is there")
    process.send_signal(signal.SIGINT)
    assert process.wait(20) != 0
    assert list(folder.iterdir()) == []
