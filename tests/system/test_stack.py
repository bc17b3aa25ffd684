"""Three devices of a stack, each with a store of its own, and databases 28 and 33 on a group of servers."""
import json
import re
import shutil

import pytest

from demo.device_manager import MASTER, SLAVE
from demo.private_view import new_folder
from demo.records import BY_POSITION, CAP, DEV_GLOBAL, POWER
from stack import DENIED_TYPE, Stack, writer

pytestmark = pytest.mark.xdist_group("stack")  # one stack for all of them: it takes some seconds to start


@pytest.fixture(scope="module")
def started():
    """The stack of this file."""
    folder = new_folder("cgs-")
    with Stack(folder) as stack:
        yield stack
    shutil.rmtree(folder)


@pytest.fixture
def stack(started):
    """The same, without cards, and with A as the master."""
    for position in list(started.cards):
        started.pull(position)
    for letter, role in (("a", MASTER), ("b", SLAVE), ("c", SLAVE)):
        if started.member(letter).role != role:
            started.give_role(started.member(letter), role)
    started.settle()
    started.expect_judged()
    started.expect_complete()
    return started


def life(stack, letter):
    """The present life of a device's daemon, by what it wrote last."""
    lives = {writer(fields) for fields in stack.own(letter).values()}
    assert len(lives) == 1
    return lives.pop()


def power_offs(stack):
    """How many requests stand, and how many were written."""
    shared = stack.shared(DEV_GLOBAL)
    return len(stack.of_kind(shared, POWER)), int(shared.get(f"@rev:{POWER}") or 0)


def test_every_device_judges_every_card_and_only_the_master_publishes(stack):
    stood, written = power_offs(stack)
    denials = {letter: len(stack.denials(letter)) for letter in "abc"}
    lines = {letter: len(stack.member(letter).system_log.lines()) for letter in "abc"}
    stack.plug("1/3/0", "2/3/0", "3/3/0")
    stack.plug("2/4/0", card_type=DENIED_TYPE)
    stack.expect_judged()
    stack.expect_complete()
    stack.settle()
    assert len({life(stack, letter) for letter in "abc"}) == 3
    published = [*stack.published().values(), *stack.marked().values()]
    assert len(published) == 5 and {writer(fields) for fields in published} == {life(stack, "a")}
    for letter in "bc":
        assert b"not master, no need to pro" in stack.member(letter).daemon.logged()
    assert power_offs(stack) == (stood + 1, written + 3), "one request, written by each"
    for letter in "abc":
        assert stack.denials(letter)[denials[letter]:] == ["2/4"]
        assert len(stack.member(letter).system_log.lines()) == lines[letter] + 2


def test_each_device_lists_the_whole_stack(stack):
    stack.plug("1/3/0", "3/3/0")
    stack.plug("2/4/0", card_type=DENIED_TYPE)
    stack.expect_judged()
    stack.expect_complete()
    for printed in stack.everywhere(lambda member: member.cgctl("list", "--json")).values():
        cards = {card["card"]: card for card in json.loads(printed)["cards"] if card["card"] in stack.cards}
        assert {position: card["state"] for position, card in cards.items()} == {
            "1/3/0": "passed", "3/3/0": "passed", "2/4/0": "denied"}
        assert {card["results"]["by_position"] for card in cards.values()} == {"PASS", "DENY"}


def test_a_removal_is_carried_out_by_any_device(stack):
    stack.plug("1/3/0", "1/4/0")
    stack.expect_judged()
    stack.expect_complete()
    with stack.shared(CAP).pubsub() as changes:
        changes.psubscribe(f"@chg:{CAP}:{BY_POSITION}:*")
        assert changes.get_message(timeout=5)["type"] == "psubscribe"
        # Only B hears of it, and B is not the master.
        stack.member("b").manager.offline("1/3/0")
        stack.expect(lambda: "1/3/0" not in stack.published(), "the result is gone")
        deletion = changes.get_message(timeout=5)["data"]
    assert re.search(r"2:by\d+:(\w+)\.\d+ ", deletion).group(1) == life(stack, "b")
    assert "1/3/0" in stack.own("a") and "1/3/0" not in stack.own("b")

    stack.member("b").manager.pull("1/4/0")
    stack.settle()
    assert "1/4/0" not in stack.own("b") and "1/4/0" in stack.published(), "a pulled card's result is the master's affair"
    stack.member("a").manager.pull("1/4/0")
    stack.expect(lambda: "1/4/0" not in stack.published(), "the master removes it")


def test_a_role_handed_over_publishes_nothing_by_itself(stack):
    stack.plug("1/3/0", "2/3/0")
    stack.plug("2/4/0", card_type=DENIED_TYPE)
    stack.expect_judged()
    stack.expect_complete()
    before = stack.published(), stack.marked()
    stack.give_role(stack.member("a"), SLAVE)
    stack.give_role(stack.member("b"), MASTER)
    stack.settle()
    assert (stack.published(), stack.marked()) == before

    stack.everywhere(lambda member: member.manager.offline("1/3/0"))
    stack.settle()  # each has removed what there was, before anything new can be there
    assert "1/3/0" not in stack.published()
    stack.everywhere(lambda member: member.manager.online("1/3/0"))
    stack.expect_judged()
    stack.expect_complete()
    after = stack.published()
    assert writer(after.pop("1/3/0")) == life(stack, "b")
    assert after == {position: fields for position, fields in before[0].items() if position != "1/3/0"}


def test_a_device_switched_off_and_back(stack):
    stack.plug("1/3/0", "3/3/0")
    stack.plug("2/4/0", card_type=DENIED_TYPE)
    stack.expect_judged()
    c = stack.member("c")
    assert c.supervisor.ends == []
    stack.turn_off(c)
    stack.plug("2/5/0")
    stack.pull("3/3/0")
    stack.expect_judged("a", "b")
    stack.expect_complete()
    before = stack.published(), stack.marked()
    stack.turn_on(c)
    stack.expect_judged()
    stack.settle()
    assert (stack.published(), stack.marked()) == before, "a device that is not the master changes nothing"
    assert c.supervisor.ends == [], "nothing that it believed was wrong"
