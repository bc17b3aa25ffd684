"""The operator's command against the real daemon: check modules as processes, watching, and bad input."""
import json
import subprocess

import pytest

from demo import programs
from rig import CARD_INFO, HOST, PASS


def test_modules_as_processes_pass_a_card(rig, runner):
    rig.start_master("m1", "m2", "m3")
    for name in ("m1", "m2", "m3"):
        runner(name, "true")
    rig.plug("1/3/0")
    rig.expect(lambda: rig.by_position("1/3/0"), "a verdict")
    assert rig.by_position("1/3/0")["6"] == PASS
    rig.expect_no_request("1/3/0")


def test_a_command_sees_the_card_and_gives_the_reason(rig, runner):
    rig.start_master("m1")
    runner("m1", "sh", "-c",
           'echo "$CG_MODULE: $CG_CARD $CG_DEV_TYPE $CG_NODE_TYPE $CG_NODEID $CG_CARD_NAME"; exit 3')
    rig.plug("1/3/0")
    rig.expect(lambda: len(rig.system_log.lines()) >= 2, "two system-log lines")
    assert rig.system_log.lines()[0][1].endswith(" reason: m1: 1/3/0 200 DM_TYPE_LC 103 card-3.")


def test_a_command_that_takes_too_long_denies(rig, runner):
    rig.start_master("m1")
    runner("m1", "sleep", "600", options=["--timeout", "0.2"])
    rig.plug("1/3/0")
    rig.expect_logged("is denied by[m1]")


def test_a_module_that_starts_late_answers_what_waits(rig, runner):
    rig.start_master("m1")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    runner("m1", "true")
    rig.expect_no_request("1/3/0")
    assert rig.by_tipc(3)["6"] == PASS


def test_a_module_outlives_daemon_and_store(rig, runner):
    rig.start_master("m1")
    module = runner("m1", "true")
    rig.daemon.stop()
    rig.store.ask(b"SAVE\r\n")
    rig.store.stop()
    rig.store.start()
    rig.start()
    rig.plug("1/3/0")
    rig.expect(lambda: rig.by_tipc(3), "a verdict")
    assert rig.by_tipc(3)["6"] == PASS
    assert module.poll() is None


def test_watch_tells_a_card_s_life(rig):
    rig.start_master("m1")
    watch = rig.cgctl.start("watch", "card_info", "app_cg_card_check_ack", "--json", stdout=subprocess.PIPE,
                            text=True)
    try:
        for _ in range(2):
            assert json.loads(watch.stdout.readline())["cmd"] == "subscribed"
        rig.plug("1/3/0")
        rig.expect_request("1/3/0")
        rig.answer("1/3/0", "m1", 1, "no")
        rig.expect_no_request("1/3/0")
        rig.cgctl("card", "pull", "1/3/0")
        told = [json.loads(watch.stdout.readline()) for _ in range(4)]
    finally:
        programs.stop(watch)
        watch.stdout.close()
    seen = [(event["type"].split(".")[1], event["cmd"]) for event in told]
    assert sorted(seen) == [("app_cg_card_check_ack", "deleted"), ("app_cg_card_check_ack", "set"),
                            ("card_info", "deleted"), ("card_info", "set")]
    pulled = told[seen.index(("card_info", "deleted"))]
    assert pulled["record"]["static_info"]["node_type"] == "DM_TYPE_LC", "a deletion carries what was deleted"


def test_list_and_show_tell_the_verdict(master):
    master.plug("1/3/0")
    master.plug("1/4/0")
    master.plug("1/1/0", node_type="mb")
    for slot in (3, 4):
        master.expect_request(f"1/{slot}/0")
    master.answer("1/3/0", "m1", 1, "no")
    master.expect_no_request("1/3/0")
    master.settle()
    cards = {card["card"]: card for card in master.cgctl.json("list")["cards"]}
    assert {position: cards[position]["verdict"] for position in ("1/1/0", "1/3/0", "1/4/0")} == {
        "1/1/0": "passed", "1/3/0": "denied", "1/4/0": "waiting"}
    assert cards["1/3/0"]["results"]["custom_status"] == "CANNOT_STARTUP"
    assert cards["1/3/0"]["state"] == "denied" and cards["1/3/0"]["reason"] == "no"
    assert cards["1/4/0"]["state"] == "waiting" and set(cards["1/4/0"]["waiting_for"]) == {"m1", "m2"}
    assert "1/3/0" in master.cgctl("show", "1/3/0")
    assert master.cgctl.attempt("show", "1/5/0").returncode == 1


def test_the_list_knows_from_the_daemon_whom_a_card_waits_for(master):
    master.plug("1/4/0")
    master.expect_request("1/4/0")
    master.answer("1/4/0", "m1")
    master.settle()
    assert "waiting for m2" in master.cgctl("list", "1/4")
    assert "m2 has not answered" in master.cgctl("show", "1/4/0")
    assert master.cgctl.json("list", "--state", "waiting")["cards"][0]["waiting_for"] == ["m2"]


@pytest.mark.parametrize("command", [
    ["card", "plug", "1"], ["card", "plug", "one/3/0"], ["card", "plug", "1/3/0", "--node-type", "toaster"],
    ["card", "plug", "1/3/0", "--type", "many"], ["card", "sell", "1/3/0"], ["role", "king"],
    ["set", CARD_INFO, "devid=1", "colour=red"], ["set", "p_dev.nothing", "devid=1"], ["get", CARD_INFO, "devid=x"],
    ["set", CARD_INFO, "devid=99999999999"], ["frobnicate"], ["list", "--state", "tired"]])
def test_bad_input_is_one_line_and_writes_nothing(rig, command):
    refused = rig.cgctl.attempt(*command)
    assert refused.returncode == 2, refused
    assert refused.stdout == ""
    assert len(refused.stderr.strip().splitlines()) == 1, refused.stderr
    assert rig.database(HOST).keys() == []


def test_without_a_store_every_verb_says_so(rig):
    rig.store.stop()
    rig.cgctl.env["VX_MOM_DEADLINE_MS"] = "300"
    for command in (["list"], ["card", "plug", "1/3/0"], ["get", CARD_INFO]):
        failed = rig.cgctl.attempt(*command)
        assert failed.returncode == 1 and failed.stdout == "" and failed.stderr.strip(), command


def test_without_a_daemon_the_debug_shell_says_so(rig):
    failed = rig.cgctl.attempt("debug", "dump_node")
    assert failed.returncode == 1 and failed.stdout == ""
    assert len(failed.stderr.strip().splitlines()) == 1


def test_a_write_that_the_server_refuses_says_why(rig):
    rig.cgctl("card", "plug", "1/3/0")
    assert rig.store.ask(b"CONFIG SET maxmemory 1\r\n") == b"+OK\r\n"
    refused = rig.cgctl.attempt("card", "plug", "1/4/0")
    assert refused.returncode == 1
    assert "(-121: refused by the server): " in refused.stderr and "refused: OOM " in refused.stderr
