"""The store goes away under the daemon and comes back: with its data, or without."""
from rig import PASS


def start_checking(rig):
    rig.modules("m1")
    rig.role("master")
    rig.level("2\n")
    rig.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")


def test_back_with_its_data(rig):
    start_checking(rig)
    rig.store.ask(b"SAVE\r\n")
    rig.store.stop()
    for db in (1, 28, 33):
        rig.expect_logged(f"enter db {db}")
    rig.store.start()
    rig.expect_logged("module: num[", times=2)
    for db in (1, 28, 33):
        assert f"con change, db {db} type 2" in rig.logged()

    rig.answer("1/3/0", "m1")
    rig.expect_no_request("1/3/0")
    assert rig.by_position("1/3/0")["6"] == PASS
    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
    assert rig.daemon.is_running


def test_modules_are_scanned_again_when_it_is_back(rig):
    start_checking(rig)
    rig.modules("m1", "m2")
    rig.store.ask(b"SAVE\r\n")
    rig.store.stop()
    rig.store.start()
    rig.expect_logged("module: num[2]")
    assert "app_cg_wait_obj_num 2" in rig.debug("dump_check_module")


def test_what_happened_to_cards_meanwhile_is_found(rig):
    start_checking(rig)
    rig.daemon.signal(19)  # stopped: it notices nothing of what follows
    rig.store.ask(b"CLIENT KILL TYPE normal SKIPME yes\r\n")
    rig.store.ask(b"CLIENT KILL TYPE pubsub SKIPME yes\r\n")
    rig.cgctl("card", "pull", "1/3/0")
    rig.plug("1/4/0")
    rig.daemon.signal(18)
    rig.expect_request("1/4/0")
    rig.expect_no_request("1/3/0")
    nodes = rig.debug("dump_node")
    assert "slotid[4]" in nodes and "slotid[3]" not in nodes


def test_back_empty(rig):
    start_checking(rig)
    rig.store.kill()
    rig.store.start()
    assert rig.daemon.wait() == 77
    assert "con change, db " in rig.logged() and " type 1" in rig.logged()


def test_back_with_older_data(rig):
    start_checking(rig)
    rig.store.ask(b"SAVE\r\n")
    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
    rig.store.kill()
    rig.store.start()
    assert rig.daemon.wait() == 77


def test_emptied_while_it_was_away_and_served_afresh(rig):
    start_checking(rig)
    rig.store.kill()
    rig.store.start()
    assert rig.daemon.wait() == 77
    rig.role("master")
    rig.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.answer("1/3/0", "m1")
    rig.expect_no_request("1/3/0")
    assert rig.by_position("1/3/0")["6"] == PASS


def test_functions_that_the_server_lost_are_loaded_while_nothing_happens(rig):
    start_checking(rig)
    rig.store.ask(b"FUNCTION FLUSH\r\n")
    rig.expect(lambda: b"vx_mom2_set" in rig.store.ask(b"FUNCTION LIST LIBRARYNAME vx_mom2\r\n"), "the functions are back")
    rig.expect_logged("the server had lost its functions vx_mom2: they are loaded again")
    rig.plug("1/4/0")
    rig.expect_request("1/4/0")
