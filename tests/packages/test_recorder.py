"""The recorder beside the gate: it records, comes back, and the gate does not care whether it is there."""
import json
import re

RECORDER = "cg_recorderd.service"
HISTORY = "/var/lib/cg_recorder/history.sqlite"


def metric(device, name):
    """The value of a metric, by its name with its labels; None without it."""
    found = re.search(rf"^{re.escape(name)} (\S+)$", device.metrics(), re.MULTILINE)
    return float(found[1]) if found else None


def told(device, verb):
    """What a verb of cgctl tells of the history."""
    return json.loads(device.sh(f"cgctl {verb} --json 2>/dev/null"))


def expect_two_recorded(device):
    """The two cards of judge_two() are in the history, with what was decided and by whom."""
    recorded = {decision["card"]: decision for decision in told(device, "history")["decisions"]}
    passed, denied = recorded["1/3/0"], recorded["1/4/0"]
    assert (passed["outcome"], passed["decider"], passed["name"]) == ("passed", "firmware", "lc-48")
    assert (denied["outcome"], denied["decider"], denied["name"]) == ("denied", "firmware", "lc-12")
    assert denied["reason"] == "too old"


def judge_two(device):
    """Has one card passed and one denied, and waits until the recorder has counted both."""
    device.wait_active(name=RECORDER)
    device.module("firmware", "sh", "-c", '[ "$CG_CARD" != 1/4/0 ] || { echo too old; exit 1; }')
    device.wait_active()
    device.cgctl("role", "master")
    device.cgctl("card", "plug", "1/3/0", "--name", "lc-48")
    device.cgctl("card", "plug", "1/4/0", "--name", "lc-12")
    for outcome, decider in (("passed", "firmware"), ("denied", "firmware")):
        device.wait(lambda wanted=f'cg_decisions_total{{decider="{decider}",outcome="{outcome}"}}':
                    metric(device, wanted) == 1, f"a card is counted as {outcome}")


def test_it_is_guarded(device):
    pid = device.wait_active(name=RECORDER)
    assert device.run("systemctl", "is-enabled", RECORDER).strip() == "enabled"
    assert device.run("stat", "-c", "%U", f"/proc/{pid}").strip() == "cg_recorder"
    assert device.run("stat", "-c", "%U:%G %a", HISTORY).strip() == "cg_recorder:cg_recorder 640"
    # An assessment between 0.0 (locked up) and 10.0 (may do everything): at most 2.0.
    device.run("systemd-analyze", "security", "--threshold=20", RECORDER)
    device.run("systemd-analyze", "--man=no", "verify", RECORDER)


def test_it_records_what_was_decided(device):
    judge_two(device)
    expect_two_recorded(device)
    modules = {module["name"]: module for module in told(device, "modules")["modules"]}
    assert modules["firmware"]["denials"] == 1
    assert metric(device, 'cg_module_answer_seconds_count{module="firmware"}') == 2
    for state in ("passed", "denied"):  # counted at the recorder's next look at all cards, not with the decision
        device.wait(lambda wanted=f'cg_cards{{state="{state}"}}': metric(device, wanted) == 1, f"a card stands as {state}")


def test_it_comes_back_and_has_kept_everything(device):
    judge_two(device)
    before = device.pid(RECORDER)
    gate = device.pid()
    device.sh(f"kill -9 {before}")
    device.wait_active(other_than=before, name=RECORDER)
    device.wait(lambda: metric(device, 'cg_cards{state="passed"}') == metric(device, 'cg_cards{state="denied"}') == 1,
                "what it has kept is there again")
    expect_two_recorded(device)
    assert device.pid() == gate


def test_it_counts_how_the_gate_ended(device):
    device.wait_active(name=RECORDER)
    device.wait(lambda: metric(device, "cg_daemon_starts_total"), "the first start is counted")
    starts = metric(device, "cg_daemon_starts_total")
    before = device.pid()
    device.cgctl("role", "master")
    device.run("systemctl", "kill", "-s", "KILL", "redis-server")  # it returns empty
    before = device.wait_active(other_than=before)
    device.wait(lambda: metric(device, 'cg_daemon_exits_total{status="77"}') == 1, "the wish to be started afresh")
    device.sh(f"kill -9 {before}")
    device.wait(lambda: metric(device, 'cg_daemon_exits_total{status="KILL"}') == 1, "the kill")
    device.wait(lambda: metric(device, "cg_daemon_starts_total") == starts + 2, "the new starts")


def test_the_gate_does_without_it(device):
    gate = device.pid()
    device.run("dpkg", "--purge", "app-cg-recorder")
    device.sh(f"! test -e {HISTORY}; ! getent passwd cg_recorder")
    device.cgctl("card", "plug", "1/3/0")
    device.wait(lambda: "no module registered" in device.verdict("1/3/0"), "1/3/0 is admitted")
    assert device.pid() == gate
    assert "cg_recorderd" in device.run("cgctl", "history", status=1), "who asks is told what is missing"


def test_what_was_switched_off_stays_so(device):
    device.run("systemctl", "disable", "--now", RECORDER)
    device.install()
    assert device.run("systemctl", "is-enabled", RECORDER, check=False).strip() == "disabled"
    assert device.state(RECORDER) == "inactive"
