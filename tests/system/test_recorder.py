"""The recorder beside the real daemon: what it keeps, through restarts, outages and kills."""
import contextlib
import datetime
import json
import os
import pathlib
import signal
import socket
import sqlite3
import subprocess
import time

import pytest

from demo import programs
from demo.daemon import faketime_library, scaled_time
from recording import sql
from rig import BUILD, CAP, DEV_GLOBAL, HOST


def note_life(recorder, line):
    with open(recorder.life, "a") as life:
        life.write(line + "\n")


def test_every_outcome_with_its_decider(rig, recorder):
    if faketime_library() is None:
        pytest.skip("libfaketime is not installed")
    factor = 50  # 300 seconds in six, for both of them
    rig.modules("m1", "m2")
    recorder.start(**scaled_time(factor))
    rig.start_scaled(factor)
    rig.play("""
        role master
        module m1 answers pass for 1/3/0
        module m2 answers pass for 1/3/0 after 1s
        module m2 answers deny "too hot" for 1/4/0
        plug 1/6 mb
        plug 1/3 name=card-3
        plug 1/4
        plug 1/5
        plug 1/2
        expect 1/5 waiting for m1, m2
        pull 1/5
        expect 1/3 passed by m2
        expect 1/4 denied by m2 because "too hot"
        offline 1/4  # as its power-off makes it
        expect 1/2 admitted by time-out of m1, m2
        """, "--speed", factor, "--keep")

    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["decider"] == "m2" and passed["name"] == "card-3"
    assert [answer["module"] for answer in passed["answers"]] == ["m1", "m2"] and passed["complete"]
    denied = recorder.expect_decision("1/4/0", "denied")
    assert (denied["decider"], denied["reason"], denied["role"]) == ("m2", "too hot", "master")
    recorder.expect_decision("1/5/0", "withdrawn")
    recorder.expect_decision("1/6/0", "exempt")
    silence = recorder.expect_decision("1/2/0", "silence")
    assert sorted(silence["silent"]) == ["m1", "m2"] and 290 < silence["took_s"] < 320

    metrics = recorder.metrics()
    assert metrics['cg_decisions_total{decider="m2",outcome="denied"}'] == 1
    assert metrics['cg_admissions_by_silence_total{module="m1"}'] == 1
    assert metrics["cg_cards_admitted_by_silence_total"] == 1
    assert metrics['cg_module_answer_seconds_count{module="m2"}'] == 2
    assert metrics['cg_module_answer_seconds_bucket{module="m2",le="300"}'] == 2
    rig.expect(lambda: recorder.metrics()['cg_cards{state="denied"}'] == 1, "the states are shown")
    assert recorder.metrics()['cg_cards{state="offline"}'] == 0
    modules = {module["name"]: module for module in recorder.json("modules", "--modules", rig.view.modules)["modules"]}
    assert modules["m1"]["silences"] == 1 and modules["m2"]["denials"] == 1


@pytest.mark.parametrize("signum, status", [(signal.SIGTERM, 0), (signal.SIGKILL, -signal.SIGKILL)])
def test_a_restart_in_mid_check_goes_on_and_tells_of_the_gap(rig, recorder, signum, status):
    rig.start_master("m1", "m2")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
    open_answers = "SELECT (SELECT count(*) FROM open_answers) || ' ' || (SELECT count(*) FROM open_checks)"
    rig.expect(lambda: sql(recorder, open_answers) == "1 2", "the open checks are in the file")
    assert recorder.end(signum) == status
    rig.cgctl("card", "pull", "1/4/0")
    rig.expect_no_request("1/4/0")
    recorder.start()
    rig.answer("1/3/0", "m2")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert [answer["module"] for answer in passed["answers"]] == ["m1", "m2"]
    assert passed["requested_at"] and not passed["complete"]
    unseen = recorder.expect_decision("1/4/0", "unseen")
    assert unseen["name"] == "card-4"
    assert [gap["why"] for gap in recorder.gaps()] == ["the recorder was not running"]
    assert recorder.gaps()[0]["until"]
    text = rig.cgctl("history", "--history", recorder.history)
    assert "the recorder was not running: decisions may be missing" in text
    assert "moved to" not in recorder.said()


@pytest.mark.parametrize("watched", [True, False], ids=["with the notes of its service", "without"])
def test_a_restart_of_the_daemon_cuts_a_check_off(rig, recorder, watched):
    rig.modules("m1", "m2")
    rig.role("master")
    daemon = rig.start()
    if watched:
        note_life(recorder, "1700000000000 start 42")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    rig.plug("1/3/0")  # told again: the daemon does not ask again
    rig.settle()
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_answers") == "1", "the answer is in the file")
    daemon.signal(signal.SIGKILL)
    daemon.wait()
    if watched:
        note_life(recorder, "1700000001000 exit killed KILL")
    rig.start()
    cut = recorder.expect_decision("1/3/0", "withdrawn")
    assert cut["reason"] == "the daemon was restarted" and cut["silent"] == ["m2"] and cut["admitted"] is None
    assert [answer["module"] for answer in cut["answers"]] == ["m1"] and cut["complete"] and cut["took_s"] >= 0
    if watched:
        note_life(recorder, "1700000002000 start 43")
    rig.answer("1/3/0", "m1")
    rig.answer("1/3/0", "m2")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["requested_at"] == cut["decided_at"] and len(passed["answers"]) == 2 and passed["complete"]
    assert [decision["outcome"] for decision in recorder.decisions("1/3/0")] == ["withdrawn", "passed"]
    assert "withdrawn while waiting for m2: the daemon was restarted" in rig.cgctl(
        "history", "--history", recorder.history)
    metrics = recorder.metrics()
    assert metrics['cg_decisions_total{decider="",outcome="withdrawn"}'] == 1
    assert metrics['cg_admissions_by_silence_total{module="m2"}'] == 0


def test_a_file_that_somebody_holds_at_the_start_is_taken_up_when_he_lets_go(rig, recorder):
    rig.modules("m1")
    rig.role("master")
    rig.start()
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_checks") == "1", "the open check is in the file")
    recorder.end(signal.SIGKILL)
    with contextlib.closing(sqlite3.connect(recorder.history, isolation_level=None)) as held:
        held.execute("BEGIN EXCLUSIVE")
        recorder.start()
        assert "retrying; kept in memory" in recorder.said()
        held.execute("ROLLBACK")
    rig.expect(lambda: "the history is written again" in recorder.said(), "it is written again")
    rig.answer("1/3/0", "m1")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["requested_at"] and not passed["complete"]
    assert [gap["why"] for gap in recorder.gaps()] == ["the recorder was not running"] and recorder.gaps()[0]["until"]


def test_the_store_comes_late_and_goes_and_returns(rig, recorder):
    rig.modules("m1")
    rig.store.stop()
    recorder.launch()
    rig.expect(lambda: "the store does not answer yet, databases 1 and 33;" in recorder.said(), "the recorder waits for the store")
    rig.expect(recorder.gaps, "the recorder notes that it hears nothing")
    rig.store.start()
    rig.expect(lambda: "subscribed; following" in recorder.said(), "the recorder finds the store")
    rig.role("master")
    rig.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.store.ask(b"SAVE\r\n")
    rig.store.stop()
    rig.expect(lambda: recorder.said().count("lost the store") == 2, "the recorder notices")
    rig.store.start()
    rig.expect(lambda: recorder.said().count("subscribed; following") == 2, "the recorder is back")
    rig.expect_logged("module: num[", times=2)
    rig.answer("1/3/0", "m1")
    recorder.expect_decision("1/3/0", "passed")
    gaps = recorder.gaps()
    assert [gap["why"] for gap in gaps] == ["the store was away"] * 2
    assert gaps[0]["from"] < gaps[0]["until"] <= gaps[1]["from"] < gaps[1]["until"]
    assert recorder.metrics()["cg_recorder_gaps_total"] == 2
    for db in (HOST, DEV_GLOBAL):
        assert recorder.of_database("cg_store_outages_total", db) == 1, "what was never there was not lost"


def test_a_hole_is_only_what_database_1_missed(rig, recorder):
    rig.apart()
    rig.start_master("m1", VX_MOM_DEADLINE_MS="500")
    recorder.start()
    there = f"database 33 at {rig.global_store.endpoint}"
    rig.expect(lambda: f"subscribed to {there}\n" in recorder.said(), "it says what it follows, and where")
    rig.global_store.stop()
    rig.expect(lambda: recorder.of_database("cg_store_connected", DEV_GLOBAL) == 0, "the metrics say which is away")
    for db in (CAP, DEV_GLOBAL):
        rig.expect(lambda db=db: recorder.of_database("cg_daemon_database_away", db) == 1, "and that the daemon misses it")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["complete"] and passed["decider"] == "m1"
    rig.expect(lambda: f", {there}; reconnecting\n" in recorder.said(), "it says so")
    assert "the store has not answered since " in recorder.said()
    rig.global_store.start()
    rig.expect(lambda: recorder.of_database("cg_store_connected", DEV_GLOBAL) == 1, "it is back")
    assert f"the store is back, {there}, with other data than before\n" in recorder.said()
    assert recorder.gaps() == [] and recorder.metrics()["cg_recorder_gaps_total"] == 0
    assert [recorder.of_database("cg_store_outages_total", db) for db in (HOST, DEV_GLOBAL)] == [0, 1]
    assert recorder.of_database("cg_store_connected", HOST) == 1
    rig.store.stop()
    rig.expect(recorder.gaps, "without database 1 there is a hole")
    assert [gap["why"] for gap in recorder.gaps()] == ["the store was away"]
    assert [recorder.of_database("cg_store_connected", db) for db in (HOST, DEV_GLOBAL)] == [0, 1]


def test_it_records_without_the_server_of_database_33(rig, recorder):
    rig.apart()
    rig.global_store.kill()
    recorder.start()
    rig.expect(lambda: "the store does not answer yet, database 33 at " in recorder.said(), "it says which is away")
    rig.plug("1/3/0")
    rig.cgctl("set", "app_cg_card_check_info", "devid=1", "slotid=3")
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_checks") == "1", "what is asked is in the file")
    assert recorder.gaps() == []


def test_it_says_which_database_does_not_answer(rig, recorder):
    rig.store.stop()
    rig.store.start(databases=16)
    recorder.launch()
    rig.expect(lambda: "the store does not answer yet, database 33; reconnecting" in recorder.said(), "it says which")
    rig.store.stop()
    rig.store.start()
    rig.expect(lambda: "subscribed; following" in recorder.said(), "it is connected with both")
    assert recorder.of_database("cg_store_connected", DEV_GLOBAL) == 1


def test_the_daemons_life_is_told_by_its_service(rig, recorder):
    """The unit's script writes the lines; here it is run as the unit runs it."""
    script = pathlib.Path(__file__).resolve().parents[2] / "packaging" / "app_cg-life"
    recorder.start()
    life = {"LIFE_FILE": str(recorder.life)}
    subprocess.run([script, "start", "4711"], env=life, check=True)
    subprocess.run([script, "exit"], env={**life, "EXIT_CODE": "exited", "EXIT_STATUS": "77"}, check=True)
    subprocess.run([script, "exit"], env={**life, "EXIT_CODE": "killed", "EXIT_STATUS": "KILL"}, check=True)
    rig.expect(lambda: recorder.metrics().get('cg_daemon_exits_total{status="KILL"}') == 1, "the ends are counted")
    metrics = recorder.metrics()
    assert metrics["cg_daemon_starts_total"] == 1 and metrics['cg_daemon_exits_total{status="77"}'] == 1
    events = recorder.json("history")["daemon"]
    assert [event["event"] for event in events] == ["start", "exit", "exit"] and events[1]["status"] == "77"


def test_wrong_use_and_a_second_recorder(rig, recorder):
    recorder.start()
    second = programs.start([BUILD / "bin" / "cg_recorderd", "--history", recorder.history, "--listen", "off"],
                            {"VX_MOM_ENDPOINT": rig.store.endpoint}, stderr=subprocess.PIPE, text=True)
    assert "another process writes it" in second.communicate(timeout=20)[1] and second.returncode == 1
    for arguments in (["--listen", "0.0.0.0:1"], ["--keep-days", "0"], ["--what"]):
        wrong = programs.start([BUILD / "bin" / "cg_recorderd", *arguments], stderr=subprocess.PIPE, text=True)
        assert wrong.communicate(timeout=20)[1].startswith("cg_recorderd: ") and wrong.returncode == 2


def test_a_recorder_that_sees_no_modules_makes_up_nothing(rig, recorder, tmp_path):
    """The daemon has another view of its folder, or other rights on it."""
    rig.start_master("m1", "m2")
    recorder.start(modules=tmp_path / "missing")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    rig.answer("1/3/0", "m2")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["decider"] == "m2" and passed["silent"] == [] and not passed["complete"]
    assert [answer["registered"] for answer in passed["answers"]] == [True, True]
    assert "(not known in full)" in rig.cgctl("history", "--history", recorder.history)
    assert "but the daemon asks some" in recorder.said()
    assert recorder.metrics()["cg_cards_admitted_by_silence_total"] == 0


def test_a_gap_begins_when_the_store_begins_to_hang(rig, recorder):
    begun = time.time()
    recorder.start(VX_MOM_DEADLINE_MS="100")
    rig.store.send(signal.SIGSTOP)
    frozen = time.time()
    rig.expect(lambda: "lost the store, database 1: " in recorder.said(), "the recorder notices")
    noticed = time.time()
    rig.expect(lambda: "the store has not answered since " in recorder.said(), "it says since when")
    rig.store.send(signal.SIGCONT)
    rig.expect(lambda: recorder.said().count("subscribed; following") == 2, "the recorder is back")
    rig.expect(lambda: recorder.gaps() and recorder.gaps()[-1]["until"], "the gap ended")
    start, end = (datetime.datetime.fromisoformat(recorder.gaps()[-1][key]).timestamp() for key in ("from", "until"))
    assert begun < start <= frozen < noticed <= end
    assert recorder.metrics()["cg_recorder_last_gap_end_seconds"] == pytest.approx(end, abs=0.01)
    assert "does not answer yet" not in recorder.said()


def replaced(history):
    """An older copy takes its place."""
    with contextlib.closing(sqlite3.connect(history)) as source, contextlib.closing(sqlite3.connect(f"{history}-copy")) as copy:
        source.backup(copy)
    os.replace(f"{history}-copy", history)


@pytest.mark.parametrize("befalls, what", [
    (os.remove, "was deleted or moved"),
    (lambda history: os.rename(history, f"{history}-moved"), "was deleted or moved"),
    (lambda history: os.truncate(history, 0), "was cut"),
    (replaced, "was replaced"),
], ids=["deleted", "moved", "cut", "replaced"])
def test_a_history_that_is_not_in_its_place_is_opened_again(rig, recorder, befalls, what):
    rig.start_master("m1")
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.expect(lambda: sql(recorder, "SELECT count(*) FROM open_checks") == "1", "the open check is in the file")
    befalls(recorder.history)
    rig.expect(lambda: f"the history {what} and is opened again" in recorder.said(), "it notices")
    rig.expect(lambda: recorder.history.exists() and sql(recorder, "SELECT count(*) FROM open_checks") == "1",
               "what stands is in the file again")
    rig.answer("1/3/0", "m1")
    passed = recorder.expect_decision("1/3/0", "passed")
    assert passed["complete"] and passed["requested_at"]
    assert [gap["why"] for gap in recorder.gaps()] == [f"the history {what}"] and recorder.gaps()[0]["until"]
    assert f"the history {what}: decisions may be missing" in rig.cgctl("history", "--history", recorder.history)
    metrics = recorder.metrics()
    assert metrics["cg_recorder_gaps_total"] == 1 and metrics["cg_recorder_last_gap_end_seconds"] > 0
    assert recorder.said().count("opened again") == 1
    moved = pathlib.Path(f"{recorder.history}-moved")
    if moved.exists():
        recorder.end()
        os.rename(next(recorder.history.parent.glob("*.left-*-wal")), f"{moved}-wal")
        with contextlib.closing(sqlite3.connect(moved)) as file:
            assert file.execute("SELECT count(*) FROM open_checks").fetchone() == (1,)
            assert file.execute("SELECT count(*) FROM decisions").fetchone() == (0,)


def test_a_hundred_slow_clients_do_not_keep_the_metrics_from_others(rig, recorder):
    recorder.start()
    slow = []
    with contextlib.ExitStack() as held:
        for _ in range(100):
            slow.append(held.enter_context(socket.create_connection(("127.0.0.1", recorder.metrics_port()))))
            slow[-1].sendall(b"GET /metrics HTTP/1.1\r\nHo")
            slow[-1].setblocking(False)
        assert recorder.of_database("cg_store_connected", HOST) == 1
        for client in slow:
            with pytest.raises(BlockingIOError):  # it would be b"" if it were not connected any more
                client.recv(1)


def test_a_registry_that_became_empty_is_an_alarm(rig, recorder):
    """The daemon does not see its folder; what the recorder finds there is no proof that somebody is asked."""
    rig.modules("m1")
    rig.role("master")
    daemon = rig.start()
    recorder.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    recorder.expect_decision("1/3/0", "passed")
    assert recorder.metrics()["cg_modules_registered"] == 1
    daemon.signal(signal.SIGKILL)
    daemon.wait()
    rig.modules()
    rig.start()
    rig.modules("m1")
    rig.plug("1/4/0")
    recorder.expect_decision("1/4/0", "unasked")
    assert recorder.metrics()["cg_modules_registered"] == 0
    assert "no module is registered any more, and every card is admitted unchecked; before: m1" in recorder.said()
    rig.cgctl.env["CG_HISTORY"] = str(recorder.history)
    done = rig.cgctl.attempt("doctor", "--json", "--modules", rig.view.modules, seconds=60)
    checks = {check["name"]: check for check in json.loads(done.stdout)}
    assert checks["module-registry"]["state"] == "fail" and 'before: "m1"' in checks["module-registry"]["found"]
    assert checks["module-registry"]["fix"] == "`systemctl restart app_cg`"


def test_what_the_daemon_publishes_of_its_health_is_in_the_metrics(rig, recorder):
    recorder.start()
    assert recorder.metrics()["cg_system_log_dropped_total"] == 0
    rig.store.ask(b"SELECT 1\r\nHSET @health instance a system_log_dropped 3 descriptors 900 descriptors_limit 1024\r\n")
    rig.expect(lambda: recorder.metrics()["cg_system_log_dropped_total"] == 3, "it is read")
    metrics = recorder.metrics()
    assert metrics["cg_daemon_descriptors"] == 900 and metrics["cg_daemon_descriptors_limit"] == 1024
