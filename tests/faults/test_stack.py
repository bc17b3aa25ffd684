"""A stack while its group fails, or is out of reach for one device.

What is cut off is a device's way to the group, for its daemon and commands: servers and sentinels still reach each other.
Were they cut off, a sentinel that is alone would go on naming the master beside it, and what is written there would be lost
at the return: test_fail_over.py has that loss.
"""
import collections
import contextlib
import json
import shutil
import sys
import time

import pytest
import redis

from demo.device_manager import MASTER
from demo.pace import Pace
from demo.private_view import new_folder
from demo.records import BY_POSITION, BY_TIPC, CAP
from demo.supervisor import NO_STORE, START_AFRESH
from stack import DENIED_TYPE, Stack, writer

_SHORT_DEADLINE = "3000"  # milliseconds; longer than anything takes on a busy machine while nothing is cut


@pytest.fixture
def make_stack():
    """Starts a stack with additional settings."""
    folder = new_folder("cgs-")
    with contextlib.ExitStack() as started:
        yield lambda **env: started.enter_context(Stack(folder, **env))
    shutil.rmtree(folder)


def position(number):
    """A card's place: device by device in turn."""
    return f"{1 + number % 3}/{11 + number // 3}/0"


def is_denied(number):
    """Some of each device's."""
    return number % 7 == 0


def plug(stack, numbers):
    """Plugs cards, the denied ones among them."""
    for number in numbers:
        stack.plug(position(number), **({"card_type": DENIED_TYPE} if is_denied(number) else {}))


def count(connection, kind):
    """A function that says how many records of a type there are; None while nobody knows."""
    def known():
        with contextlib.suppress(redis.RedisError):
            return connection.scard(f"@idx:{kind}")
        return None
    return known


def test_the_groups_master_is_killed_under_load(make_stack, is_long, capfd):
    cards = 3 * (64 if is_long else 20)
    stack = make_stack()
    with contextlib.ExitStack() as watches:
        shared = watches.enter_context(Pace(count(stack.shared(CAP), BY_POSITION)))
        hosts = {letter: watches.enter_context(Pace(count(stack.host(letter), BY_TIPC))) for letter in "abc"}
        plug(stack, range(cards // 3))
        struck = time.monotonic()
        stack.group.master.kill()
        plug(stack, range(cards // 3, cards))
        stack.expect_judged(seconds=120)
        stack.expect_complete(seconds=120)
    ends = {member.letter: member.supervisor.ends for member in stack.members}
    with capfd.disabled():
        pauses = ", ".join(f"{pace.longest_after(struck):.2f} s on {letter}" for letter, pace in hosts.items())
        print(f"\n  {cards} cards on 3 devices: no result in database 28 for {shared.longest_after(struck):.2f} s; no result in "
              f"database 1 for {pauses}; restarts {[len(of) for of in ends.values()]}", file=sys.stderr, flush=True)
    denied = {position(number).rsplit("/", 1)[0] for number in range(cards) if is_denied(number)}
    for letter, of in ends.items():
        assert set(of) <= {START_AFRESH, NO_STORE}
        times = collections.Counter(stack.denials(letter))
        assert set(times) == denied
        assert max(times.values()) <= 1 + len(of), "each life of a daemon denies a card once"


def listed(member):
    """What cgctl prints on a device, and how it ends."""
    done = member.cgctl.attempt("list", seconds=60)
    return done.returncode, done.stdout + done.stderr


@pytest.mark.parametrize("silent", [False, True], ids=["refused", "silent"])
def test_a_device_is_cut_off_and_returns(make_stack, silent):
    stack = make_stack(VX_MOM_DEADLINE_MS=_SHORT_DEADLINE)
    stack.plug("1/3/0")
    stack.expect_judged()
    stack.expect_complete()
    c = stack.member("c")
    before = {writer(fields) for fields in stack.own("c").values()}
    c.gateway.cut(silent)
    stack.plug("1/4/0", "2/4/0")
    stack.plug("3/4/0", card_type=DENIED_TYPE)
    stack.expect_judged()
    stack.expect_complete()
    log = c.daemon.logged()
    assert b"Power off devid 3, slotid 4, sslotid 0  failed" in log and b"set power off success!!!" in log
    assert stack.denials("c") == ["3/4"] and len(c.system_log.lines()) == 2
    for letter in "ab":
        assert listed(stack.member(letter))[0] == 0
    status, printed = listed(c)
    assert status == 1 and c.gateway.endpoint in printed
    assert c.supervisor.ends == []

    c.gateway.join()
    stack.expect(lambda: c.supervisor.ends, "C starts over, since it could not write everything")
    stack.expect_judged()
    stack.expect_complete()
    stack.expect(lambda: not before & {writer(fields) for fields in stack.own("c").values()}, "C checked every card again")
    stack.settle()
    assert c.supervisor.ends == [START_AFRESH]
    assert [member.supervisor.ends for member in stack.members[:2]] == [[], []]
    assert listed(c)[0] == 0


def test_a_device_that_had_nothing_to_write_returns_without_a_restart(make_stack):
    stack = make_stack(VX_MOM_DEADLINE_MS=_SHORT_DEADLINE)
    stack.plug("1/3/0")
    stack.expect_judged()
    c = stack.member("c")
    c.gateway.cut()
    for number in (28, 33):
        stack.expect(lambda one=number: b"enter db %d\n" % one in c.daemon.logged(), f"database {number} is lost")
    stack.plug("1/4/0", "3/4/0")
    stack.expect_judged()
    c.gateway.join()
    for number in (28, 33):
        stack.expect(lambda one=number: b"con change, db %d type 2" % one in c.daemon.logged(), f"database {number} is back")
    stack.plug("1/5/0")
    stack.expect_judged()
    stack.expect_complete()
    assert [member.supervisor.ends for member in stack.members] == [[], [], []]


def test_the_device_that_is_the_master_is_cut_off_and_returns(make_stack):
    stack = make_stack(VX_MOM_DEADLINE_MS=_SHORT_DEADLINE)
    stack.plug("1/3/0")
    stack.expect_judged()
    stack.expect_complete()
    a = stack.member("a")
    assert a.role == MASTER
    a.gateway.cut()
    stack.plug("1/4/0")
    stack.plug("3/4/0", card_type=DENIED_TYPE)
    stack.expect_judged()
    stack.settle()
    assert set(stack.published()) == {"1/3/0"} and stack.marked() == {}, "nobody else publishes"
    a.gateway.join()
    stack.expect_complete()
    stack.expect_judged()
    assert a.supervisor.ends == [START_AFRESH]
    assert {writer(fields) for fields in stack.published().values()} == {writer(stack.own("a")["1/3/0"])}


def failed_checks(member):
    """The doctor's findings of failure on a device: {name of the check: the finding}."""
    done = member.cgctl.attempt("doctor", "--json", "--modules", member.view.modules, seconds=60)
    return {check["name"]: check for check in json.loads(done.stdout) if check["state"] == "fail"}


def test_the_doctor_on_a_device_names_the_store_that_is_down(make_stack):
    stack = make_stack(VX_MOM_DEADLINE_MS=_SHORT_DEADLINE)
    c = stack.member("c")
    stack.expect(lambda: failed_checks(c) == {}, "nothing fails")
    for server in stack.group.servers:
        server.kill()
    found = failed_checks(c)
    assert list(found) == ["store"]
    assert found["store"]["server"] == c.gateway.endpoint and found["store"]["databases"] == [28, 33]
    for server in stack.group.servers:
        server.start()
    stack.expect(lambda: failed_checks(c) == {}, "nothing fails any more", 60)
    c.store.kill()
    found = failed_checks(c)
    assert list(found) == ["store"]
    assert found["store"]["server"] == c.store.endpoint and found["store"]["databases"] == [1]
    c.store.start()  # empty
    c.cgctl("role", "slave")
    stack.expect(lambda: failed_checks(c) == {}, "nothing fails any more", 60)
