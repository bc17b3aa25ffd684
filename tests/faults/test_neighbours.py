"""Neighbours of the daemon that do not do their part: nobody reads what it writes.

Each of them is held while cards are denied, which is what is written about most. The daemon has to go on deciding, and
its debug shell to answer; what is lost must be said.
"""
import re

import pytest
import redis

from device import Chassis, Modules
from rig import DENY, HOST

_MODULE = "thermal"


class Gate:
    """The daemon with one module, which denies every card for the same reason."""

    def __init__(self, rig):
        self.rig = rig
        self.chassis = Chassis(rig.database(HOST))
        self.reason = "too hot"
        self._slots = 0
        self._modules = Modules(self._connect, [_MODULE], lambda name, position: self.reason)

    def _connect(self):
        return redis.Redis(unix_socket_path=str(self.rig.store.socket_path), db=HOST, decode_responses=True)

    def start(self, **env):
        """Starts the daemon on a device that holds the global master role."""
        self.rig.start_master(_MODULE, **env)
        self.wait_until_watching()

    def wait_until_watching(self):
        """Returns when the module hears of requests."""
        self._modules.wait_until_watching()

    def expect_denials(self, count=1, seconds=20):
        """Plugs so many cards; waits until the daemon has denied them and its shell answers. Returns the slots."""
        slots = range(self._slots + 1, self._slots + count + 1)
        self._slots += count
        for slot in slots:
            self.chassis.plug(f"1/{slot}/0")
        for slot in slots:
            self.rig.expect(lambda at=slot: self._is_denied(at), f"slot {slot} is denied", seconds)
        assert "app_cg_wait_obj_num 1" in self.rig.debug("dump_check_module")
        return slots

    def _is_denied(self, slot):
        result = self.rig.by_position(f"1/{slot}/0")
        return result and result.get("6", DENY) == DENY

    def close(self):
        """Ends the module."""
        self._modules.close()


@pytest.fixture
def gate(rig):
    """See Gate; the daemon is not started yet."""
    gate = Gate(rig)
    yield gate
    gate.close()


# The system log

def lines_about(slots, reason):
    """What the system log has of these denials."""
    return [line for slot in slots for line in (
        f"APP_CG-4-CG_MNG: Card in slot 1/{slot} will be disabled due to reason: {reason}.",
        f"APP_CG-4-MIX_MNG: Card in slot 1/{slot} will be controlled to shutdown for not compatible.")]


def system_log_texts(rig):
    """The lines that the system log has, without who wrote them."""
    return [text.split(": ", 1)[1] for _, text in rig.system_log.lines()]


def published_health(rig):
    """What the daemon says of itself in the store."""
    return rig.database(HOST).hgetall("@health")


def test_a_slow_system_log_loses_nothing(rig, gate):
    gate.start()
    rig.system_log.hold()
    slots = gate.expect_denials(100)
    rig.system_log.release()
    wanted = lines_about(slots, "too hot")
    rig.expect(lambda: len(system_log_texts(rig)) >= len(wanted), "the system log has every line")
    assert system_log_texts(rig) == wanted
    assert "system log:" not in rig.logged()
    assert published_health(rig) == {}


def test_a_system_log_that_nobody_reads_is_reported(rig, gate):
    gate.reason = "r" * 60_000
    gate.start()
    rig.system_log.hold()
    slots = gate.expect_denials(100)
    rig.expect(lambda: published_health(rig), "the daemon says what is not well, while it lasts")
    assert rig.logged().count("system log: dropping lines: /dev/log is not read") == 1
    rig.system_log.release()
    rig.expect_logged("lines were dropped; all others have left")
    dropped = re.search(r"system log: (\d+) lines were dropped", rig.logged())[1]
    rig.expect(lambda: published_health(rig)["system_log_dropped"] == dropped, "the number in the store")
    wanted = lines_about(slots, gate.reason)
    rig.expect(lambda: len(rig.system_log.lines()) == len(wanted) - int(dropped), "the others left")
    arrived = system_log_texts(rig)
    assert arrived == [line for line in wanted if line in set(arrived)], "in order"
    gate.reason = "too hot"
    slots = gate.expect_denials()
    rig.expect(lambda: system_log_texts(rig)[-2:] == lines_about(slots, "too hot"), "later lines are there")
    rig.daemon.stop()
    rig.start()
    assert published_health(rig) == {}, "that was another life"


def test_a_system_log_that_is_restarted_gets_what_waited(rig, gate):
    gate.start()
    rig.system_log.close()
    rig.view.system_log_socket.unlink()
    slots = gate.expect_denials(3)
    rig.system_log = type(rig.system_log)(rig.view.system_log_socket)
    rig.expect(lambda: system_log_texts(rig) == lines_about(slots, "too hot"), "the lines that waited")


def test_a_system_log_that_nobody_reads_does_not_hold_up_the_end(rig, gate):
    gate.start()
    rig.system_log.hold()
    gate.expect_denials(20)
    rig.daemon.stop()
    assert rig.daemon.wait() == 0
    assert "wait at the process's end and are lost" in rig.logged()
