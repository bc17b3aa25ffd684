"""Only the global master publishes in databases 28 and 33; a change of role publishes nothing by itself."""
import pytest

from rig import CUSTOM_STATUS, DEV_GLOBAL, PASS, POWER


def pass_card(rig, position):
    rig.plug(position)
    rig.expect_request(position)
    rig.answer(position, "m1")
    rig.expect_no_request(position)


def start_as(rig, role):
    rig.modules("m1")
    rig.level("2\n")
    if role:
        rig.role(role)
    rig.start()


@pytest.mark.parametrize("role", [None, "none", "slave", "candidate"])
def test_others_publish_by_tipc_node_only(rig, role):
    start_as(rig, role)
    pass_card(rig, "1/3/0")
    assert rig.by_tipc(3)["6"] == PASS
    assert not rig.by_position("1/3/0")


def test_a_slave_denies_and_powers_off_but_marks_nothing(rig):
    start_as(rig, "slave")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1", 1, "no")
    rig.expect_no_request("1/3/0")
    assert rig.by_tipc(3) and not rig.by_position("1/3/0")
    assert rig.keys(DEV_GLOBAL, CUSTOM_STATUS) == []
    assert rig.keys(DEV_GLOBAL, POWER) != []
    rig.expect(lambda: len(rig.system_log.lines()) == 2, "two system-log lines")


def test_becoming_master_publishes_nothing_until_the_card_moves(rig):
    start_as(rig, "slave")
    pass_card(rig, "1/3/0")
    rig.role("master")
    rig.expect_logged("dp grole 1")
    rig.settle()
    assert not rig.by_position("1/3/0")

    rig.cgctl("card", "offline", "1/3/0")
    rig.expect(lambda: not rig.by_tipc(3), "result withdrawn")
    rig.cgctl("card", "online", "1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    rig.expect_no_request("1/3/0")
    assert rig.by_position("1/3/0")["6"] == PASS


def test_what_a_master_published_stays_when_it_becomes_slave(rig):
    start_as(rig, "master")
    pass_card(rig, "1/3/0")
    rig.role("slave")
    rig.expect_logged("dp grole 2")
    pass_card(rig, "1/4/0")
    assert rig.by_position("1/3/0")["6"] == PASS
    assert not rig.by_position("1/4/0")


def test_a_deleted_role_record_leaves_the_role(rig):
    start_as(rig, "master")
    rig.cgctl("del", "p_dev.dp_lib_grole")
    pass_card(rig, "1/3/0")
    assert rig.by_position("1/3/0")["6"] == PASS
