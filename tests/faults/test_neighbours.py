"""Neighbours of the daemon that do not do their part: nobody reads what it writes, or a disk is full.

Each of them is held while cards are denied, which is what is written about most. The daemon has to go on deciding, and
its debug shell to answer; what is lost must be said.
"""
import contextlib
import os
import re
import shutil
import socket

import pytest
import redis

from demo.device_manager import DeviceManager
from device import Modules
from rig import DENY, HOST, fill_queue

_MODULE = "thermal"


class Gate:
    """The daemon with one module, which denies every card for the same reason."""

    def __init__(self, rig):
        self.rig = rig
        self.chassis = DeviceManager(rig.database(HOST))
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
            self.rig.expect(lambda at=slot: self.is_denied(at), f"slot {slot} is denied", seconds)
        assert "app_cg_wait_obj_num 1" in self.rig.debug("dump_check_module")
        return slots

    def is_denied(self, slot):
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
    rig.expect_logged("; all others have left")
    dropped = re.search(r"system log: lines dropped: (\d+);", rig.logged())[1]
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


def test_a_reason_longer_than_a_message_of_the_system_log_is_cut(rig, gate):
    gate.reason = "r" * 1_000_000
    gate.start()
    slots = gate.expect_denials()
    first, second = lines_about(slots, gate.reason)
    rig.expect(lambda: len(system_log_texts(rig)) == 2, "both lines of the denial")
    cut, whole = system_log_texts(rig)
    assert whole == second
    assert cut.endswith("r[truncated]") and len(cut) > 100_000
    assert first.startswith(cut.removesuffix("[truncated]"))
    assert published_health(rig) == {}


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
    assert "lost at the process's end: " in rig.logged()


# The daemon's own log

class UnreadPipe:
    """What stands for the daemon's standard error: a pipe that nobody reads until read() is called."""

    def __init__(self, rig):
        self._path = rig.view.root / "daemon.err"  # where the rig sends it
        os.mkfifo(self._path)
        self._fd = os.open(self._path, os.O_RDWR | os.O_NONBLOCK)

    def fill(self):
        """Leaves no room in it."""
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(self._fd, b"x")

    def read(self):
        """All that stands in it, as lines."""
        found = b""
        with contextlib.suppress(BlockingIOError):
            while True:
                found += os.read(self._fd, 65536)
        return found.decode("utf-8", "replace").split("\n")

    def close(self):
        """Leaves an empty file in its place."""
        os.close(self._fd)
        self._path.unlink()
        self._path.touch()


@pytest.fixture
def errors(rig):
    """The daemon's standard error, which nobody reads."""
    pipe = UnreadPipe(rig)
    yield pipe
    pipe.close()


def start_without_log(gate, **env):
    """Starts the daemon where the rig cannot see by the log that it has subscribed."""
    rig = gate.rig
    rig.modules(_MODULE)
    rig.role("master")
    rig.daemon = rig.new_daemon(**env).start()
    gate.wait_until_watching()


def test_standard_error_that_nobody_reads(gate, errors):
    errors.fill()
    start_without_log(gate, VX_ZLOG="stderr")
    gate.expect_denials(5)
    errors.read()
    gate.expect_denials()
    assert "records that could not be written here and are lost: " in errors.read()[0]
    assert int(published_health(gate.rig)["log_dropped"]) > 0


def test_settings_that_are_wrong_on_standard_error_that_nobody_reads(rig, gate, errors):
    errors.fill()
    (rig.view.run / "platform.conf").write_text("not a setting\n")
    start_without_log(gate, VX_PLATFORM_CONF="/run/platform.conf", VX_ZLOG="none")
    gate.expect_denials()


def test_a_debug_shell_that_cannot_listen_on_standard_error_that_nobody_reads(rig, gate, errors):
    errors.fill()
    start_without_log(gate, SSAT_SOCKET="/run/nowhere/app_cg.ssat", VX_ZLOG="none")
    gate.chassis.plug("1/3/0")
    rig.expect(lambda: gate.is_denied(3), "the card is denied")


def test_a_full_disk_under_the_log(rig, gate, errors):
    log = rig.view.log / "own.log"
    log.symlink_to("/dev/full")
    errors.fill()
    start_without_log(gate, VX_ZLOG="file:/log/own.log")
    gate.expect_denials(5)
    rig.expect(lambda: int(published_health(rig).get("log_dropped", 0)) > 0, "the number in the store")
    log.unlink()

    def first_line():
        gate.expect_denials()
        return log.read_text().partition("\n")[0] if log.exists() else ""
    rig.expect(first_line, "the log is written again")
    lost = re.search(r"records that could not be written here and are lost: (\d+)$", first_line())[1]
    rig.expect(lambda: published_health(rig)["log_dropped"] == lost, "the same number in the store")


def test_a_log_whose_folder_is_gone_when_it_is_rotated(rig, gate):
    folder = rig.view.log / "own"
    gate.reason = "r" * 700
    start_without_log(gate, VX_ZLOG="file:/log/own/app_cg.log:2048:1")
    gate.expect_denials(2)
    shutil.rmtree(folder)
    folder.touch()
    gate.expect_denials(10)
    folder.unlink()

    def is_logged_again():
        gate.expect_denials()
        return any("are lost" in file.read_text() for file in folder.glob("*")) if folder.exists() else False
    rig.expect(is_logged_again, "the log is written again, with the number of what is lost")
    assert int(published_health(rig)["log_dropped"]) > 0


class Receiver:
    """A service of the system that listens on a datagram socket and reads when it is asked to."""

    def __init__(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(path))
        self._socket.setblocking(False)
        self._path = str(path)

    def fill(self):
        """Leaves no room in its queue."""
        fill_queue(self._path)

    def read(self):
        """What has come, until its queue is empty."""
        found = []
        with contextlib.suppress(BlockingIOError):
            while True:
                found.append(self._socket.recv(1 << 20).decode("utf-8", "replace"))
        return found


def test_a_journal_that_nobody_reads(rig, gate):
    journal = Receiver(rig.view.run / "systemd" / "journal" / "socket")
    start_without_log(gate, VX_ZLOG="journal")
    gate.expect_denials(20)
    journal.read()
    gate.expect_denials()
    assert any("records that could not be written here and are lost: " in entry for entry in journal.read())
    assert int(published_health(rig)["log_dropped"]) > 0


# The process manager, and the debug shell's clients

def test_a_process_manager_that_does_not_listen_yet(rig, gate):
    manager = Receiver(rig.view.run / "notify")
    manager.fill()
    gate.start(NOTIFY_SOCKET="/run/notify", WATCHDOG_USEC="200000")
    gate.expect_denials(5)
    manager.read()
    rig.expect(lambda: any("READY=1" in text for text in manager.read()), "READY=1, late")
    rig.expect(lambda: "WATCHDOG=1" in manager.read(), "a heartbeat")


def test_clients_of_the_debug_shell_that_say_nothing(rig, gate):
    gate.start()
    with contextlib.ExitStack() as silent:
        for _ in range(30):
            silent.enter_context(socket.socket(socket.AF_UNIX)).connect(str(rig.view.run / "app_cg.ssat"))
        gate.expect_denials()
