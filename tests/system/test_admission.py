"""From card to verdict, on a real store."""
import pytest

from demo.daemon import faketime_library
from rig import (ACK, BY_POSITION, BY_TIPC, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, POWER)

NOT_COMPATIBLE = "not compatible"


def custom_status(rig, position):
    return rig.database(DEV_GLOBAL).keys(f"{CUSTOM_STATUS}:{position.replace('/', ':')}:*")


def system_log_texts(rig):
    return [text for _, text in rig.system_log.lines()]


def test_a_card_is_held_until_every_module_passed_it(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    request = master.request("1/3/0")
    assert (request["6"], request["7"], request["8"]) == ("200", "3", "103")

    master.answer("1/3/0", "m1")
    master.settle()
    assert master.request("1/3/0") and not master.by_tipc(3) and not master.by_position("1/3/0")
    assert master.keys(HOST, ACK) == [], "the answer is consumed"

    master.answer("1/3/0", "m2")
    master.expect_no_request("1/3/0")
    assert master.by_tipc(3)["6"] == PASS and master.by_tipc(3)["7"] == "3"
    result = master.by_position("1/3/0")
    assert (result["6"], result["7"], result["8"]) == (PASS, "200", "103")
    assert custom_status(master, "1/3/0") == []
    assert master.keys(HOST, ACK) == []
    assert system_log_texts(master) == []


def test_one_denial_is_enough(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m2", 1, "wrong colour")
    master.expect_no_request("1/3/0")

    assert master.by_tipc(3).get("6", "0") == DENY and master.by_tipc(3)["7"] == "3"
    result = master.by_position("1/3/0")
    assert (result.get("6", "0"), result["7"], result["8"]) == (DENY, "200", "103")
    [status] = custom_status(master, "1/3/0")
    assert status.startswith(f"{CUSTOM_STATUS}:1:3:0:APP_CG:")
    status = master.database(DEV_GLOBAL).hgetall(status)
    assert (status["6"], status["7"]) == ("2", "2")
    [power] = master.keys(DEV_GLOBAL, POWER)
    assert power.startswith(f"{POWER}:1:3:0:cap:")
    assert master.database(DEV_GLOBAL).hgetall(power).get("6", "0") == "0", "power off"

    master.expect(lambda: len(master.system_log.lines()) >= 2, "two system-log lines")
    (severity_1, first), (severity_2, second) = master.system_log.lines()
    assert severity_1 == severity_2 == 4
    assert "APP_CG" in first and "CG_MNG" in first
    assert first.endswith("Card in slot 1/3 will be disabled due to reason: wrong colour.")
    assert "APP_CG" in second and "MIX_MNG" in second
    assert second.endswith(f"Card in slot 1/3 will be controlled to shutdown for {NOT_COMPATIBLE}.")


def test_a_denial_without_reason_names_the_module(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1", -1)
    master.expect_no_request("1/3/0")
    master.expect(lambda: len(master.system_log.lines()) >= 2, "two system-log lines")
    assert system_log_texts(master)[0].endswith(
        f"Card in slot 1/3 will be disabled due to reason: m1 {NOT_COMPATIBLE}.")


def test_a_second_denial_says_nothing_new(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1", 1, "first")
    master.expect_no_request("1/3/0")
    master.answer("1/3/0", "m2", 1, "second")
    master.settle()
    assert len(system_log_texts(master)) == 2
    assert master.keys(HOST, ACK) == []


@pytest.mark.parametrize("ending", ["\n", "\r\n", "\x1b[2K\n"])
def test_a_reason_cannot_forge_a_system_log_line(master, ending):
    forged = "<4>APP_CG: Card in slot 1/9 will be disabled due to reason: forged."
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1", 1, f"real{ending}{forged}")
    master.expect_no_request("1/3/0")
    master.expect(lambda: len(master.system_log.lines()) >= 2, "two system-log lines")
    texts = system_log_texts(master)
    assert len(texts) == 2
    for text in texts:
        assert text.isprintable(), repr(text)
    assert "real" in texts[0] and "slot 1/3" in texts[0]
    assert len([line for line in master.logged().splitlines() if "is denied by" in line]) == 1
    assert not [line for line in master.logged().splitlines() if line.startswith("<4>")]


def test_a_long_reason_is_safe(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1", 1, "x" * 3000)
    master.expect_no_request("1/3/0")
    assert "x" * 200 in master.debug("dump_node")
    assert master.daemon.is_running


def test_answers_of_unknown_modules_and_for_unknown_cards_are_consumed(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "stranger", 1, "no")
    master.answer("1/7/0", "m1", 1, "no")
    master.settle()
    assert master.keys(HOST, ACK) == []
    assert master.request("1/3/0") and not master.by_tipc(3)
    assert master.logged().count("find node error[") == 2


def test_a_name_of_more_than_15_characters_answers_under_its_first_15(rig):
    rig.start_master("temperature-sensors")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "temperature-sensors")
    rig.settle()
    assert rig.request("1/3/0"), "the full name is unknown"
    rig.answer("1/3/0", "temperature-sensors"[:15])
    rig.expect_no_request("1/3/0")
    assert rig.by_tipc(3)["6"] == PASS


def test_going_off_line_withdraws_all(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1")
    master.answer("1/3/0", "m2")
    master.expect_no_request("1/3/0")
    master.cgctl("card", "offline", "1/3/0")
    master.expect(lambda: not master.by_tipc(3), "result withdrawn")
    master.settle()
    assert not master.by_position("1/3/0") and not master.request("1/3/0")


def test_off_line_during_a_check_and_on_line_again(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1")
    master.cgctl("card", "offline", "1/3/0")
    master.expect_no_request("1/3/0")
    master.cgctl("card", "online", "1/3/0")
    master.expect_request("1/3/0")
    # What the first check left outstanding is all that the second waits for.
    master.answer("1/3/0", "m2")
    master.expect_no_request("1/3/0")
    assert master.by_tipc(3)["6"] == PASS and master.by_position("1/3/0")["6"] == PASS


def test_a_denied_card_that_returns_is_checked_again(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1", 1, "no")
    master.expect_no_request("1/3/0")
    master.cgctl("card", "offline", "1/3/0")
    master.expect(lambda: custom_status(master, "1/3/0") == [], "custom status withdrawn")
    master.cgctl("card", "online", "1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1")
    master.answer("1/3/0", "m2")
    master.expect_no_request("1/3/0")
    assert master.by_tipc(3)["6"] == PASS and master.by_position("1/3/0")["6"] == PASS


@pytest.mark.parametrize("answered", [False, True])
def test_a_pulled_card_leaves_nothing(master, answered):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    if answered:
        master.answer("1/3/0", "m1", 1, "no")
        master.expect_no_request("1/3/0")
    assert "slotid[3]" in master.debug("dump_node")
    master.cgctl("card", "pull", "1/3/0")
    master.settle()
    assert not master.by_tipc(3) and not master.by_position("1/3/0") and not master.request("1/3/0")
    assert custom_status(master, "1/3/0") == []
    assert "slotid[3]" not in master.debug("dump_node")


def test_a_board_card_is_exempt_even_off_line(master):
    master.plug("1/1/0", node_type="mb")
    master.plug("1/2/0", node_type="mb", offline=True)
    for slot in (1, 2):
        master.expect(lambda slot=slot: master.by_position(f"1/{slot}/0"), f"main board {slot} is passed")
        assert master.by_tipc(slot)["6"] == PASS and master.by_position(f"1/{slot}/0")["6"] == PASS
        assert not master.request(f"1/{slot}/0")


def test_without_modules_every_card_passes(rig):
    rig.start_master()
    rig.plug("1/3/0")
    rig.expect(lambda: rig.by_position("1/3/0"), "the card is passed")
    assert rig.by_tipc(3)["6"] == PASS and rig.by_position("1/3/0")["6"] == PASS
    rig.answer("1/3/0", "m1", 1, "no")
    rig.settle()
    assert rig.keys(HOST, ACK) != [], "nobody subscribed to answers"
    assert rig.by_tipc(3)["6"] == PASS


def test_a_folder_of_modules_that_is_missing_counts_as_empty(rig):
    rig.view.modules.rmdir()
    rig.role("master")
    rig.start()
    rig.plug("1/3/0", offline=True)
    rig.expect(lambda: rig.by_position("1/3/0"), "the card is passed")
    assert "Folder path(/etc/app_cg/deny_check/) error." in rig.logged()


def test_cards_that_were_there_before_the_daemon(rig):
    rig.modules("m1")
    rig.role("master")
    rig.plug("1/3/0")
    rig.plug("1/4/0", offline=True)
    rig.plug("1/1/0", node_type="mb")
    rig.start()
    rig.expect_request("1/3/0")
    rig.settle()
    assert rig.by_position("1/1/0")["6"] == PASS
    assert not rig.request("1/4/0")
    rig.answer("1/3/0", "m1")
    rig.expect_no_request("1/3/0")
    assert rig.by_position("1/3/0")["6"] == PASS


def test_backup_records_of_present_cards_are_removed(rig):
    for slot in (3, 4):
        rig.cgctl("set", "p_libpub.app_cg_card_bak_info", "devid=1", f"slotid={slot}", "sslotid=0",
                  "config_dev_type=200")
    rig.modules("m1")
    rig.plug("1/3/0")
    rig.start()
    rig.expect(lambda: rig.keys(HOST, "p_libpub.app_cg_card_bak_info") ==
               ["p_libpub.app_cg_card_bak_info:0:1:4:0"], "the backup of the present card is removed")


def test_a_silent_module_counts_as_pass_after_300_s(rig):
    if faketime_library() is None:
        pytest.skip("libfaketime is not installed")
    rig.modules("m1", "m2")
    rig.role("master")
    rig.start_scaled(50)
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    rig.settle()
    assert not rig.by_tipc(3) and rig.request("1/3/0"), "6 s of real time have not passed"
    rig.expect_no_request("1/3/0")
    assert rig.by_tipc(3)["6"] == PASS and rig.by_position("1/3/0")["6"] == PASS
    assert "devid[1] slotid[3] sslotid[0] wait_obj_bmp[" in rig.logged()


def test_a_daemon_restarted_during_a_check_begins_it_anew(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1")
    master.settle()
    master.daemon.signal(9)
    assert master.daemon.wait() != 0
    master.answer("1/3/0", "m2")  # nobody there to see it
    master.start()
    master.expect(lambda: master.keys(HOST, ACK) == [], "the answer given meanwhile is found")
    master.settle()
    assert master.request("1/3/0") and not master.by_tipc(3), "the first module's answer is forgotten"
    master.answer("1/3/0", "m1")
    master.expect_no_request("1/3/0")
    assert master.by_tipc(3)["6"] == PASS


def test_results_stand_in_their_own_databases_only(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    master.answer("1/3/0", "m1", 1, "no")
    master.expect_no_request("1/3/0")
    places = {BY_TIPC: HOST, BY_POSITION: CAP, CUSTOM_STATUS: DEV_GLOBAL, POWER: DEV_GLOBAL}
    for kind, home in places.items():
        for db in (HOST, CAP, DEV_GLOBAL):
            assert bool(master.keys(db, kind)) == (db == home), f"{kind} in database {db}"
