"""The master of a sentinel group is killed while cards are being admitted."""
import collections
import contextlib
import re
import sys
import time

import pytest
import redis

from demo import programs
from demo.device_manager import DeviceManager
from demo.pace import Pace
from demo.records import tipc_node
from demo.supervisor import NO_STORE, START_AFRESH, Supervisor
from device import Modules
from rig import (ACK, BY_POSITION, BY_TIPC, CAP, CARD_INFO, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, REQUEST)
from sentinel_group import Group, Patient

_MODULES = ("m1", "m2", "m3")
_FIRST = "99/1/0"  # the card by which the daemon shows that it serves
_IN_HAND = 20  # cards that the chassis plugs ahead of their verdicts
_DISABLED = re.compile(r"Card in slot (\d+/\d+) will be disabled")


def cards(count):
    """So many positions, of as many TIPC nodes."""
    return [f"{1 + i // 100}/{1 + i % 100}/0" for i in range(count)]


def is_denied(position):
    """What the second module thinks of a card."""
    return tipc_node(position) % 7 == 0


class Scene:
    """A device on a group: its daemon, as its service unit keeps it, its modules, its device manager."""

    def __init__(self, rig, stack):
        self.rig = rig
        self.group = stack.enter_context(Group(rig.folder / "group"))
        rig.modules(*_MODULES)
        self._runs = [0]  # how many system-log lines there were when each daemon was started
        self.supervisor = stack.enter_context(Supervisor(
            rig.new_daemon(VX_MOM_ENDPOINT=self.group.endpoint), lambda: self._runs.append(len(self._denials()))))
        self._stores = {number: self.group.follow(number) for number in (HOST, CAP, DEV_GLOBAL)}
        self.patient = Patient(self._stores[HOST])
        self.chassis = DeviceManager(self.patient)
        stack.enter_context(contextlib.closing(Modules(
            lambda: self.group.follow(HOST), _MODULES,
            lambda name, position: "too hot" if name == "m2" and is_denied(position) else "")))
        self.plugged = []
        self.chassis.role()
        self.pace = stack.enter_context(Pace(self._verdicts_if_known))
        self.plug(_FIRST)
        programs.wait_until(self._count_verdicts, 20, "the daemon serves")

    def plug(self, position):
        """Plugs a card, not too far ahead of the verdicts."""
        self.chassis.plug(position)
        self.plugged.append(position)
        wanted = len(self.plugged) - _IN_HAND
        if self._count_verdicts() < wanted:
            programs.wait_until(lambda: self.write_missing_again() or self._count_verdicts() >= wanted, 60,
                                f"{wanted} verdicts")

    def _verdicts_if_known(self):
        with contextlib.suppress(redis.RedisError):
            return self._stores[CAP].scard(f"@idx:{BY_POSITION}")
        return None

    def _count_verdicts(self):
        return self._verdicts_if_known() or 0

    def write_missing_again(self):
        """As a device manager does that keeps its part of the store true: what should be there and is not, is
        written again. Returns whether anything was missing."""
        missing = []
        with contextlib.suppress(redis.RedisError):
            there = self._stores[HOST].smembers(f"@idx:{CARD_INFO}")
            missing = [position for position in self.plugged
                       if f"{CARD_INFO}:0:{position.replace('/', ':')}" not in there]
            if not self._stores[HOST].exists("p_dev.dp_lib_grole"):
                self.chassis.role()
        for position in missing:
            self.chassis.plug(position)
        return bool(missing)

    def expect_verdicts(self, progress, seconds):
        """Every card ends with its verdict and its results, and those denied, they alone, are marked; the chassis keeps its
        part true meanwhile. A daemon whose last writes are lost in one database has yet to notice it there."""
        wanted = {position: DENY if is_denied(position) else PASS for position in self.plugged}
        denied = {position for position in self.plugged if is_denied(position)}

        def ready():
            self.write_missing_again()
            with contextlib.suppress(redis.RedisError):
                progress(f"{self._count_verdicts()} of {len(self.plugged)} verdicts")
                return self._verdicts() == wanted and self._marked() == denied
            return False
        programs.wait_until(ready, seconds, "every card has its verdict")

    def _verdicts(self):
        """The verdicts on which both results agree, and no check open; nothing before that."""
        by_position = self._all(CAP, BY_POSITION)
        by_tipc = self._all(HOST, BY_TIPC)
        if self._stores[HOST].scard(f"@idx:{REQUEST}") or self._stores[HOST].scard(f"@idx:{ACK}"):
            return None
        found = {}
        for key, fields in by_position.items():
            position = "/".join(key.split(":")[2:])
            verdict = fields.get("6", DENY)
            if by_tipc.get(f"{BY_TIPC}:{tipc_node(position)}", {}).get("6", DENY) == verdict:
                found[position] = verdict
        return found if len(by_tipc) == len(found) else None

    def _all(self, database, kind):
        store = self._stores[database]
        keys = sorted(store.smembers(f"@idx:{kind}"))
        with store.pipeline(transaction=False) as batch:
            for key in keys:
                batch.hgetall(key)
            return dict(zip(keys, batch.execute()))

    def _marked(self):
        return {"/".join(key.split(":")[1:4]) for key in self._all(DEV_GLOBAL, CUSTOM_STATUS)}

    def _denials(self):
        return [match.group(1) for _, text in self.rig.system_log.lines() if (match := _DISABLED.search(text))]

    def check_denials(self):
        """Each daemon denies a card once at most; all together deny those that are to be denied."""
        denials = self._denials()
        runs = [*self._runs, len(denials)]
        for first, last in zip(runs, runs[1:]):
            twice = [slot for slot, times in collections.Counter(denials[first:last]).items() if times > 1]
            assert not twice, f"denied twice by one daemon: {twice}"
        assert set(denials) == {position.rsplit("/", 1)[0] for position in self.plugged if is_denied(position)}


@pytest.fixture
def scene(rig):
    with contextlib.ExitStack() as stack:
        scene = Scene(rig, stack)
        yield scene
        assert set(scene.supervisor.ends) <= {START_AFRESH, NO_STORE}, scene.supervisor.ends


def report(capfd, scene, text, struck):
    """Shown in the short form, too."""
    with capfd.disabled():
        print(f"\n  {text}, no verdict for {scene.pace.longest_after(struck):.2f} s; the daemon was restarted "
              f"{scene.supervisor.restarts} times", file=sys.stderr, flush=True)


def test_the_master_is_killed_under_load(scene, is_long, progress, capfd):
    positions = cards(1000 if is_long else 60)
    struck = None
    for position in positions:
        if position == positions[len(positions) // 3]:
            struck = time.monotonic()
            scene.group.master.kill()
        scene.plug(position)
    scene.expect_verdicts(progress, 120)
    scene.check_denials()
    assert scene.patient.failures > 0, "nobody noticed the fail-over"
    report(capfd, scene, f"{len(positions)} cards x {len(_MODULES)} modules: no write accepted for "
                         f"{scene.patient.longest:.2f} s", struck)


def test_acknowledged_writes_are_lost(scene, is_long, progress, capfd):
    positions = cards(1000 if is_long else 60)
    half = len(positions) // 2
    for position in positions[:half]:
        scene.plug(position)
    scene.expect_verdicts(progress, 120)
    scene.group.freeze_replicas()
    for position in positions[half:-_IN_HAND]:
        scene.plug(position)
    scene.expect_verdicts(progress, 120)
    struck = time.monotonic()
    scene.group.master.kill()
    scene.group.thaw_replicas()
    programs.wait_until(lambda: scene.supervisor.restarts > 0, 60, "the daemon does not believe the new master")
    assert scene.supervisor.ends[0] == START_AFRESH
    for position in positions[-_IN_HAND:]:
        scene.plug(position)
    scene.expect_verdicts(progress, 120)
    scene.check_denials()
    report(capfd, scene, f"{len(positions)} cards, of which {half - _IN_HAND} were lost with the master", struck)
