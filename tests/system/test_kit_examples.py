"""The examples of the kit beside the real daemon, and what the kit does when time runs out."""
import re
import subprocess

import pytest

from demo import daemon, programs
from rig import BUILD, PROJECT

EXAMPLES = PROJECT / "kit" / "examples"
BUILT = BUILD / "bin" / "examples"


@pytest.fixture
def module(rig):
    """Starts modules: module(name, command...); returns (process, function that reads its log)."""
    started = []

    def start(name, *command, waits_for="waits for cards", **env):
        log = rig.folder / f"{name}{len(started)}.err"
        with open(log, "wb") as errors:
            process = programs.start(command, {"VX_MOM_ENDPOINT": rig.store.endpoint, **env}, stderr=errors)
        started.append(process)
        programs.wait_until(lambda: waits_for in log.read_text() or process.poll() is not None, 20, f"{name} starts")
        assert process.poll() is None, log.read_text()
        return process, log.read_text

    yield start
    for process in started:
        programs.stop(process)


def expect_disabled(rig, slot, reason):
    """Waits until the system log says that the card in the slot is disabled."""
    text = f"Card in slot {slot} will be disabled due to reason: {reason}."
    rig.expect(lambda: any(text in line for _, line in rig.system_log.lines()), text)


def test_power_budget_denies_what_exceeds_it_and_forgets_what_leaves(rig, module):
    # A main board is asked of nobody, and draws 95 W.
    rig.cgctl("card", "plug", "1/1/0", "--type", 999, "--node-type", "mb", "--name", "uplink")
    rig.start_master("power")
    command = (BUILT / "power_budget", "power", EXAMPLES / "power_budget" / "power.table")
    process, _ = module("power", *command)
    reason = "draws 60 W, but 465 W of 500 W are in use by 3 cards"
    rig.play(f"""
        plug 1/3 type=230
        expect 1/3 passed by power
        plug 1/4 type=200
        expect 1/4 passed by power
        plug 1/5 type=777
        expect 1/5 denied by power because "{reason}"
        """, "--keep")
    expect_disabled(rig, "1/5", reason)
    # Another start of the module knows as much.
    process.terminate()
    assert process.wait(20) == 0
    rig.cgctl("card", "pull", "1/5/0")
    rig.cgctl("card", "pull", "1/4/0")
    module("power", *command)
    reason = "draws 250 W, but 345 W of 500 W are in use by 2 cards"
    rig.play(f"""
        plug 1/6 type=230
        expect 1/6 denied by power because "{reason}"
        plug 1/5 type=777
        expect 1/5 passed by power
        """)
    expect_disabled(rig, "1/6", reason)


def test_compatibility_is_a_matter_of_type_and_slot(rig, module):
    rig.start_master("compat")
    module("compat", BUILT / "compatibility", "compat", EXAMPLES / "compatibility" / "slots.table")
    rig.play("""
        plug 1/12 type=230
        expect 1/12 passed by compat
        plug 1/9 type=230
        expect 1/9 denied by compat because "card type 230 does not go into slot 9; its slots: 1-8,12"
        plug 1/3 type=300
        expect 1/3 denied by compat because "card type 300 does not go into slot 3; its slots: none"
        plug 1/16 type=7
        expect 1/16 passed by compat
        """)
    expect_disabled(rig, "1/9", "card type 230 does not go into slot 9; its slots: 1-8,12")
    expect_disabled(rig, "1/3", "card type 300 does not go into slot 3; its slots: none")


def test_a_shell_script_knows_serial_numbers(rig, module):
    known = rig.folder / "known"
    known.write_text("# ours\n00E0FF\n")
    rig.start_master("serials")
    module("serials", BUILD / "bin" / "cgctl", "module", "run", "serials", "--",
           EXAMPLES / "shell" / "known_serials.sh", known)
    reason = f"serial number 00e0 is not in {known}"
    rig.play(f"""
        plug 1/3 serial=00e0ff
        expect 1/3 passed by serials
        plug 1/4 serial=00e0
        expect 1/4 denied by serials because "{reason}"
        """)
    expect_disabled(rig, "1/4", reason)


@pytest.mark.parametrize("program, lines, complaint", [
    ("power_budget", "budget = 5\ntype x = 3\n", ":2: 'x' is not a card type"),
    ("power_budget", "budget = 5\n\ntype 3\n", ":3: no '='"),
    ("power_budget", "budget = 5\ntype 3 = 4\ntype 3 = 5\n", ":3: repeats an earlier line"),
    ("power_budget", "budget = 5\nbudget = 6\n", ":2: budget is set by an earlier line"),
    ("power_budget", "budget = -5\n", ":1: '-5' is not a number of watts"),
    ("power_budget", "watts = 5\n", ":1: 'watts' is unknown"),
    ("power_budget", "budget = 5\n", ": no cards"),
    ("power_budget", "type 3 = 4\n", ": no line 'budget = W'"),
    ("power_budget", "", ": no line 'budget = W'"),
    ("compatibility", "# nothing\n", ": no lines"),
    ("compatibility", "230 1-8\n", ":1: '230 1-8': no ':'"),
    ("compatibility", "\nx: 1-8\n", ":2: 'x': not a card type"),
    ("compatibility", "1: 1-8\n1: 9\n", ":2: '1': there is a line for this type already"),
    ("compatibility", "1: 8-1\n", ":1: '8-1': neither a slot"),
    ("compatibility", "1: 256\n", ":1: '256': neither a slot"),
    ("compatibility", "1: 1,,2\n", ":1: '': neither a slot"),
    ("compatibility", "1:\n", ":1: '': neither a slot"),
    ("compatibility", "1: " + "1," * 1000 + "1\n", ":1: '1: 1,1,1,1,1,1,1,1,1': the line is too long"),
])
def test_a_bad_table_is_an_error_that_names_the_line(tmp_path, program, lines, complaint):
    table = tmp_path / "table"
    table.write_text(lines)
    done = subprocess.run([BUILT / program, "m1", table], capture_output=True, text=True, timeout=20, check=False)
    assert done.returncode == 2
    assert f"{program}: {table}{complaint}" in done.stderr


@pytest.mark.parametrize("program", ["power_budget", "compatibility"])
def test_a_table_that_cannot_be_read_is_an_error(tmp_path, program):
    done = subprocess.run([BUILT / program, "m1", tmp_path / "none"], capture_output=True, text=True, timeout=20,
                          check=False)
    assert done.returncode == 2
    assert "none: cannot be read: No such file or directory" in done.stderr


def test_the_kit_warns_before_and_when_the_daemon_waits_no_more(rig, module):
    fast = daemon.scaled_time(500)
    _, log = module("silent", BUILD / "bin" / "kit_silent", "silent", **fast)
    rig.cgctl("set", "--fields", "app_cg_card_check_info", "devid=1", "slotid=3", "type=1")
    rig.expect(lambda: "1/3/0: no verdict for 300 s; the time is over" in log(), "the second warning")
    assert re.search(r"1/3/0: no verdict for 240 s; the daemon admits the card unexamined when 300 s are over\n.*"
                     r"1/3/0: no verdict for 300 s", log(), re.DOTALL), log()
