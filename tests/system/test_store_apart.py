"""Database 1 is on the device's own server, 28 and 33 are on another one: each is lost and comes back by itself."""
import contextlib
import json
import signal

import pytest

from access_lists import DAEMON, AccessLists
from demo import programs
from rig import BY_POSITION, BY_TIPC, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, POWER, REQUEST

HOSTS, GLOBAL = "unix:/store/store.sock", "unix:/store/global/store.sock"  # as the daemon has them


@pytest.fixture
def apart(rig):
    """A device that holds the global master role, with the module m1 and two servers; no daemon started yet."""
    rig.apart()
    rig.level("2\n")
    rig.modules("m1")
    rig.role("master")
    return rig


def judge(rig, position, ret=0):
    """Lets the module answer for a card, and waits for the end of its check."""
    rig.answer(position, "m1", ret)
    rig.expect_no_request(position)


def plug_and_judge(rig, position, ret=0):
    """The same for a new card."""
    rig.plug(position)
    rig.expect_request(position)
    judge(rig, position, ret)


def verdict(record):
    """What a result says; nothing where there is none. A zero may be left out."""
    return record.get("6", DENY) if record else None


def health(rig, *fields):
    """What the daemon says of itself."""
    return rig.database(HOST).hmget("@health", *fields)


def save(server):
    """Has a server keep its present data over its next end."""
    assert b"OK" in server.ask(b"SAVE\r\n")


def test_records_go_to_their_servers(apart):
    apart.start()
    plug_and_judge(apart, "1/3/0")
    plug_and_judge(apart, "1/4/0", ret=1)
    assert [verdict(apart.by_tipc(slot)) for slot in (3, 4)] == [PASS, DENY]
    assert [verdict(apart.by_position(f"1/{slot}/0")) for slot in (3, 4)] == [PASS, DENY]
    apart.expect(lambda: apart.keys(DEV_GLOBAL, POWER), "a power-off is asked for")
    assert len(apart.keys(DEV_GLOBAL, CUSTOM_STATUS)) == 1
    of_the_host, of_the_stack = (server.ask(b"INFO keyspace\r\n") for server in (apart.store, apart.global_store))
    assert b"db1:" in of_the_host and b"db28:" not in of_the_host and b"db33:" not in of_the_host
    assert b"db1:" not in of_the_stack and b"db28:" in of_the_stack and b"db33:" in of_the_stack


@pytest.mark.parametrize("fault", ["gone", "hanging"])
def test_without_the_global_store_cards_go_on(apart, fault):
    apart.start(VX_MOM_DEADLINE_MS="500")
    plug_and_judge(apart, "1/2/0")
    if fault == "gone":
        save(apart.global_store)
        apart.global_store.kill()
    else:
        apart.global_store.send(signal.SIGSTOP)
    for db in (CAP, DEV_GLOBAL):
        apart.expect_logged(f"enter db {db}\n")
    apart.expect(lambda: health(apart, "away_28", "away_33") == ["1", "1"], "its health says what it misses")
    plug_and_judge(apart, "1/3/0")
    plug_and_judge(apart, "1/4/0", ret=1)
    assert [verdict(apart.by_tipc(slot)) for slot in (3, 4)] == [PASS, DENY]
    assert ", rv -110" in apart.logged() and "Power off devid 1, slotid 4, sslotid 0  failed" in apart.logged()
    assert f"store lost: {GLOBAL}: " in apart.logged()
    assert f"enter db {HOST}\n" not in apart.logged() and apart.daemon.is_running

    apart.cgctl.env["VX_MOM_DEADLINE_MS"] = "500"
    listed = apart.cgctl.attempt("list")
    away = f"the store at {apart.global_store.endpoint} cannot be used, databases 28 and 33 "
    assert listed.returncode == 1 and away in listed.stderr and "are not shown\n" in listed.stderr
    assert [line.split()[0] for line in listed.stdout.splitlines()[1:]] == ["1/2/0", "1/3/0", "1/4/0"]
    shown = apart.cgctl.attempt("show", "1/4/0", "--json")
    card = json.loads(shown.stdout)
    assert shown.returncode == 1 and card["verdict"] == "denied" and card["power_off"] is None
    assert [server["databases"] for server in card["away"]] == [[CAP, DEV_GLOBAL]]

    if fault == "gone":
        apart.global_store.start()
    else:
        apart.global_store.send(signal.SIGCONT)
    assert apart.daemon.wait() == 77, "what could not be written is missing in 28 and 33"
    assert f"con change, db {HOST} " not in apart.logged()
    apart.start()
    for position, ret in (("1/2/0", 0), ("1/3/0", 0), ("1/4/0", 1)):
        apart.expect_request(position)
        judge(apart, position, ret)
    assert [verdict(apart.by_position(f"1/{slot}/0")) for slot in (2, 3, 4)] == [PASS, PASS, DENY]
    apart.expect(lambda: apart.keys(DEV_GLOBAL, POWER), "a power-off is asked for")


def test_a_quiet_absence_costs_no_restart(apart):
    apart.start()
    plug_and_judge(apart, "1/3/0")
    save(apart.global_store)
    apart.global_store.stop()
    for db in (CAP, DEV_GLOBAL):
        apart.expect_logged(f"enter db {db}\n")
    apart.global_store.start()
    apart.expect_logged("module: num[", times=2)
    for db in (CAP, DEV_GLOBAL):
        apart.expect_logged(f"con change, db {db} type 2")
    assert f"con change, db {HOST} " not in apart.logged()
    plug_and_judge(apart, "1/4/0")
    assert apart.by_position("1/3/0") and apart.by_position("1/4/0")
    assert f"store answers again at {GLOBAL}" in apart.logged()
    apart.expect(lambda: health(apart, "away_28", "away_33") == ["0", "0"], "its health says that it misses nothing")
    assert apart.daemon.is_running


def test_without_the_host_store_the_global_one_is_untouched(apart):
    apart.start()
    plug_and_judge(apart, "1/3/0")
    save(apart.store)
    apart.store.stop()
    apart.expect_logged(f"enter db {HOST}\n")
    apart.store.start()
    apart.expect_logged("module: num[", times=2)
    assert f"con change, db {HOST} type 2" in apart.logged()
    for db in (CAP, DEV_GLOBAL):
        assert f"enter db {db}\n" not in apart.logged() and f"con change, db {db} " not in apart.logged()
    assert f"store lost: {HOSTS}: " in apart.logged() and f"store lost: {GLOBAL}" not in apart.logged()
    plug_and_judge(apart, "1/4/0")
    assert len(apart.keys(HOST, BY_TIPC)) == len(apart.keys(CAP, BY_POSITION)) == 2


def test_start_without_the_global_store(apart):
    apart.global_store.kill()
    daemon = apart.new_daemon(VX_MOM_DEADLINE_MS="300").start()
    assert daemon.wait() == 146
    assert "connect dev global sync failed, rv -110" in apart.logged()
    assert GLOBAL in daemon.complained()


def test_start_without_database_28_alone(apart):
    apart.new_daemon(VX_MOM_ENDPOINT_28="unix:/store/nowhere.sock", VX_MOM_DEADLINE_MS="300").start()
    apart.expect_logged("db 28 not connected")
    apart.expect(lambda: health(apart, "away_28", "away_33") == ["1", None], "its health says what it misses")
    assert "app_cg_wait_obj_num" in apart.debug("dump_check_module")
    assert "module: num[" not in apart.logged(), "nothing is subscribed to before all three are there"


@contextlib.contextmanager
def watching(apart, folder):
    """`cgctl watch --lines`; its two outputs, each as a function that returns what there is of it."""
    apart.cgctl.env["VX_MOM_DEADLINE_MS"] = "300"
    printed, said = folder / "printed", folder / "said"
    with open(printed, "wb") as out, open(said, "wb") as err:
        watch = apart.cgctl.start("watch", "--lines", stdout=out, stderr=err)
    try:
        yield printed.read_text, said.read_text
    finally:
        programs.stop(watch)


def return_of(server):
    """The line of the return of database 33."""
    return f"the store is back, database 33 at {server.endpoint}\n"


def is_followed(server):
    """Whether somebody watches channels there."""
    return b" flags=P" in server.ask(b"CLIENT LIST\r\n")


def test_cards_are_watched_without_the_global_store(apart, tmp_path):
    apart.global_store.kill()
    with watching(apart, tmp_path) as (printed, said):
        apart.expect(lambda: "listening" in said(), "the lines begin")
        assert f"the store at {apart.global_store.endpoint} cannot be used, database 33 " in said()
        apart.plug("1/3/0")
        apart.expect(lambda: " plugged" in printed(), "the card's line")
        apart.global_store.start()
        apart.expect(lambda: return_of(apart.global_store) in printed(), "the line of the return")
        assert "database 1" not in printed()


def test_a_global_store_that_comes_before_the_host_store_delivers_is_back(apart, tmp_path):
    apart.global_store.kill()
    assert apart.store.ask(b"ACL SETUSER default -psubscribe\r\n") == b"+OK\r\n"
    with watching(apart, tmp_path) as (printed, said):
        apart.expect(lambda: "cannot be used, database 33 " in said(), "what is missing")
        apart.global_store.start()
        apart.expect(lambda: is_followed(apart.global_store), "database 33 is followed")
        assert "listening" not in said()
        assert apart.store.ask(b"ACL SETUSER default +psubscribe\r\n") == b"+OK\r\n"
        apart.expect(lambda: return_of(apart.global_store) in printed(), "the line of the return")


def test_nobody_waits_for_a_global_store_that_is_lost_before_it_delivers(apart, tmp_path):
    assert apart.global_store.ask(b"ACL SETUSER default -psubscribe\r\n") == b"+OK\r\n"
    with watching(apart, tmp_path) as (printed, said):
        apart.expect(lambda: is_followed(apart.store), "database 1 is followed")
        assert "listening" not in said()
        apart.global_store.kill()
        apart.expect(lambda: "listening" in said(), "the lines begin")
        apart.global_store.start()
        apart.expect(lambda: return_of(apart.global_store) in printed(), "the line of the return")


@pytest.mark.parametrize("where", ["store", "global_store"])
def test_functions_that_one_server_lost_are_loaded_there(apart, where):
    apart.start()
    server = getattr(apart, where)
    assert server.ask(b"FUNCTION FLUSH\r\n").startswith(b"+OK")
    apart.expect(lambda: b"vx_mom2_set" in server.ask(b"FUNCTION LIST LIBRARYNAME vx_mom2\r\n"),
                 "the functions are back")
    apart.expect_logged(f" at {HOSTS if where == 'store' else GLOBAL}: the server had lost its functions vx_mom2")
    plug_and_judge(apart, "1/3/0")
    assert verdict(apart.by_position("1/3/0")) == PASS


def test_each_server_has_an_access_list_of_its_own(apart):
    lists = AccessLists(apart)
    apart.start(**lists.of_daemon())
    host, stack = lists.administrator(HOST), lists.administrator(CAP)
    for slot, ret in ((3, 0), (4, 1)):
        apart.plug(f"1/{slot}/0")
        apart.expect(lambda: host.keys(f"{REQUEST}:*"), "a request")
        apart.answer(f"1/{slot}/0", "m1", ret)
        apart.expect(lambda: not host.keys(f"{REQUEST}:*"), "the end of the check")
    apart.expect(lambda: lists.administrator(DEV_GLOBAL).keys(f"{POWER}:*"), "a power-off is asked for")
    assert len(host.keys(f"{BY_TIPC}:*")) == len(stack.keys(f"{BY_POSITION}:*")) == 2
    for server in (host, stack):
        assert server.execute_command("ACL", "LOG") == [], "nobody tried what he may not do"

    check = ["acl", "--check", "--modules", apart.view.modules]
    assert apart.cgctl(*check) == ""
    stack.execute_command("ACL", "SETUSER", DAEMON, "(+hset ~p_dev.card_info:*)")
    found = apart.cgctl.attempt(*check)
    assert found.returncode == 1
    assert f"{DAEMON} at {apart.global_store.endpoint}: must be refused HSET" in found.stdout
    assert apart.store.endpoint not in found.stdout
