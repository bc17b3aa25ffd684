"""What the daemon writes says what it was handling, so that nobody has to guess who decided."""
from rig import ACK, CARD_INFO, HOST, REQUEST


def mark(record):
    """Writer and cause of a record's last change."""
    writer, cause = record["by"].split(" ", 1)
    instance, number = writer.split(".")
    assert int(number) > 0
    return instance, cause


def results(rig, position):
    """The marks of a card's results, by position and by TIPC node."""
    rig.expect(lambda: rig.by_position(position), f"a result for {position}")
    return {mark(rig.by_position(position)), mark(rig.by_tipc(int(position.split("/")[1])))}


def test_a_result_names_the_answer_that_decided(rig):
    rig.start_master("m1", "m2")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    instance, cause = mark(rig.request("1/3/0"))
    assert cause == f"1 {CARD_INFO}:0:1:3:0", "asked because of the card"
    rig.answer("1/3/0", "m1")  # revision 1 of the answers, and its deletion 2
    rig.settle()
    rig.answer("1/3/0", "m2")
    rig.expect_no_request("1/3/0")
    assert results(rig, "1/3/0") == {(instance, f"3 {ACK}:1:3:0:m2")}

    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
    revision = int(rig.database(HOST).get(f"@rev:{ACK}")) + 1
    rig.answer("1/4/0", "m1", ret=1, reason="too hot")
    rig.expect_no_request("1/4/0")
    assert results(rig, "1/4/0") == {(instance, f"{revision} {ACK}:1:4:0:m1")}


def test_a_result_by_time_says_so(rig):
    rig.modules("m1")
    rig.role("master")
    rig.start_scaled(200)
    rig.plug("1/3/0")
    assert {cause for _, cause in results(rig, "1/3/0")} == {"timer"}


def test_a_card_that_needs_no_check_is_its_own_cause(rig):
    rig.start_master("m1")
    rig.plug("1/0/0", node_type="mb")
    revision = rig.database(HOST).hget(f"{CARD_INFO}:0:1:0:0", "rev")
    assert {cause for _, cause in results(rig, "1/0/0")} == {f"{revision} {CARD_INFO}:0:1:0:0"}


def test_a_daemon_that_starts_afresh_is_another_writer(rig):
    rig.start_master("m1")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    first, cause = mark(rig.request("1/3/0"))
    rig.daemon.signal(9)
    rig.daemon.wait()
    rig.start()
    rig.expect(lambda: mark(rig.request("1/3/0"))[0] != first, "the request by the new daemon")
    assert mark(rig.request("1/3/0"))[1] == cause, "for the same card"
    assert rig.keys(HOST, REQUEST) == [f"{REQUEST}:0:1:3:0"], "in the place of the one before"
