"""The life of the process: starts, refusals, exit statuses, the process manager, the level file."""
import contextlib
import os
import pathlib
import re
import resource
import signal
import socket

import pytest

from rig import HOST, LEVEL_FILE, fill_queue


def start_and_wait(rig, **env):
    """Starts a daemon that will not live long; returns its exit status."""
    daemon = rig.new_daemon(**env).start()
    status = daemon.wait()
    return status, daemon.printed()


def as_status(result):
    """A result as the parent of the process sees it."""
    return int(result) & 255


@pytest.mark.parametrize("signum", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_ends_the_loop(master, signum):
    master.daemon.signal(signum)
    assert master.daemon.wait() == 0


def test_a_broken_pipe_does_not_end_the_daemon(master):
    master.daemon.signal(signal.SIGPIPE)
    assert "app_cg_wait_obj_num 2" in master.debug("dump_check_module")


def test_a_second_instance_is_refused(master):
    status, printed = start_and_wait(master)
    assert status == as_status(-1)
    assert re.fullmatch(r"app_cg, ret=(-?[1-9]\d*), FAIL\r\n", printed)
    assert master.daemon.is_running
    assert "app_cg_wait_obj_num 2" in master.debug("dump_check_module"), "the first one's shell is untouched"


def test_the_lock_is_released_by_a_kill_and_by_a_normal_end(master):
    for signum in (signal.SIGKILL, signal.SIGTERM):
        master.daemon.signal(signum)
        master.daemon.wait()
        master.start()
        assert start_and_wait(master)[0] == as_status(-1)
    assert "app_cg_wait_obj_num 2" in master.debug("dump_check_module")


def test_a_log_that_cannot_be_opened(rig):
    status, _ = start_and_wait(rig, VX_ZLOG="file:/proc/nowhere/app_cg.log")
    assert status == as_status(-11)


def test_a_log_without_a_journal(rig):
    status, _ = start_and_wait(rig, VX_ZLOG="journal")
    assert status == as_status(-11)


def test_a_platform_context_that_cannot_be_created(rig):
    # Without any way to wait for events libevent has no loop to offer.
    status, _ = start_and_wait(rig, EVENT_NOEPOLL="1", EVENT_NOPOLL="1", EVENT_NOSELECT="1")
    assert status == as_status(-11)
    assert "g_app_cg_global init failed" in rig.logged()


def test_a_refused_registration(rig):
    status, _ = start_and_wait(rig, NOTIFY_SOCKET="not-a-path")
    logged = rig.logged()
    assert "init ham fail" in logged
    [result] = re.findall(r"app_cg_indep_init failed rv (-?\d+)", logged)
    assert status == as_status(result) != 0
    assert f"failed,rv {result}" in logged
    assert "connect" not in logged, "no store connection is attempted"


def test_a_store_that_cannot_be_reached(rig):
    rig.store.stop()
    status, _ = start_and_wait(rig, VX_MOM_DEADLINE_MS="300")
    [result] = re.findall(r"connect host sync failed, rv (-?\d+)", rig.logged())
    assert status == as_status(result) != 0
    assert int(result) < 0 and int(result) != -5
    assert f"main: failed,rv {result}" in rig.logged()


def test_a_wrong_endpoint(rig):
    status, _ = start_and_wait(rig, VX_MOM_ENDPOINT="somewhere")
    [result] = re.findall(r"connect host sync failed, rv (-?\d+)", rig.logged())
    assert status == as_status(result) != 0


class Manager:
    """The process manager's end of the notification protocol."""

    def __init__(self, rig):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._path = str(rig.view.run / "notify")
        self._socket.bind(self._path)
        self._socket.setblocking(False)
        self.heard = []

    def fill(self):
        """Leaves no room for more until listen()."""
        fill_queue(self._path)

    def listen(self):
        """Everything heard so far, line by line."""
        while True:
            try:
                self.heard += self._socket.recv(4096).decode().split("\n")
            except BlockingIOError:
                return self.heard


def test_the_process_manager_hears_when_the_daemon_serves(rig):
    manager = Manager(rig)
    rig.start(NOTIFY_SOCKET="/run/notify")
    rig.expect(lambda: "READY=1" in manager.listen(), "READY=1")
    rig.daemon.stop()
    assert "STOPPING=1" in manager.listen()


def own_descriptors(rig):
    """The daemon's descriptors as /proc shows them: {number: what it leads to}, less what it closes meanwhile."""
    found = {}
    for path in pathlib.Path("/proc", str(rig.daemon.pid), "fd").iterdir():
        with contextlib.suppress(FileNotFoundError):
            found[int(path.name)] = os.readlink(path)
    return found


def shown(rig, field):
    """A number of the daemon's health, as it is in the store."""
    return rig.database(HOST).hget("@health", field)


def test_out_of_descriptors_the_modules_are_still_asked(rig):
    manager = Manager(rig)
    rig.modules("m1")
    rig.start(NOTIFY_SOCKET="/run/notify")
    soft, hard = resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE)
    assert soft == hard, "all that it may have"
    held = [number for number, target in own_descriptors(rig).items() if number > 2 and target == "/dev/null"]
    # From here on it can open what it holds in reserve, and nothing else.
    resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE, (max(held) + 1, hard))
    rig.expect_logged("file descriptors are open: restart the service before they run out")
    rig.store.ask(b"CLIENT KILL TYPE normal SKIPME yes\r\n")
    rig.store.ask(b"CLIENT KILL TYPE pubsub SKIPME yes\r\n")
    rig.expect_logged("out of file descriptors")
    rig.expect(lambda: any("out of file descriptors" in text for text in manager.listen()), "the manager is notified")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.expect(lambda: shown(rig, "descriptors_limit") == str(max(held) + 1), "the figures in the store")
    resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE, (hard, hard))
    rig.expect_logged("which leaves enough again")
    rig.expect(lambda: "STATUS=Serving" in manager.listen(), "the manager is notified")
    rig.expect(lambda: shown(rig, "descriptors") == shown(rig, "descriptors_limit") == "0", "none are short any more")


def test_when_collecting_has_used_up_all_descriptors_the_modules_are_still_asked(rig):
    rig.modules("m1")
    rig.start()
    limit = len(own_descriptors(rig)) + 12
    resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE, (limit, limit))
    while len(own_descriptors(rig)) + 6 <= limit:  # as many as one takes while it runs
        rig.debug("collect")
    with contextlib.ExitStack() as silent:
        for _ in range(14):  # for the rest, and for what the lost connections leave
            silent.enter_context(socket.socket(socket.AF_UNIX)).connect(str(rig.view.run / "app_cg.ssat"))
        rig.expect(lambda: len(own_descriptors(rig)) == limit, "all descriptors are in use")
        rig.store.ask(b"SAVE\r\n")
        rig.store.kill()
        rig.expect_logged("store lost")
        rig.expect(lambda: len(own_descriptors(rig)) == limit, "all descriptors are in use again")
        rig.store.start()
        rig.expect_logged("out of file descriptors")
        rig.plug("1/3/0")
        rig.expect_request("1/3/0")


def test_a_process_manager_that_is_busy_hears_of_descriptors_later(rig):
    manager = Manager(rig)
    manager.fill()
    rig.start(NOTIFY_SOCKET="/run/notify")
    hard = resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE)[1]
    few = max(own_descriptors(rig)) + 2
    resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE, (few, hard))
    rig.expect_logged("file descriptors are open: restart the service before they run out")
    rig.expect(lambda: any("READY=1" in text for text in manager.listen()), "READY=1, late")
    statuses = [text for text in manager.listen() if text.startswith("STATUS=")]
    assert "file descriptors open" in statuses[-1], "being ready does not hide it"
    resource.prlimit(rig.daemon.pid, resource.RLIMIT_NOFILE, (hard, hard))
    manager.listen()
    manager.fill()
    rig.expect_logged("which leaves enough again")
    manager.heard.clear()
    rig.expect(lambda: "STATUS=Serving" in manager.listen(), "what could not be sent is sent")


def test_the_marker_file_turns_registration_off(rig):
    manager = Manager(rig)
    (rig.view.run / "app_cg_ham.txt").touch()
    rig.start(NOTIFY_SOCKET="/run/notify")
    rig.settle()
    rig.daemon.stop()
    assert rig.daemon.wait() == 0
    assert manager.listen() == []


def test_the_marker_file_is_the_way_out_when_the_manager_refuses(rig):
    (rig.view.run / "app_cg_ham.txt").touch()
    rig.start(NOTIFY_SOCKET="not-a-path")
    rig.settle()


@pytest.mark.parametrize("text, errors, traces", [
    (None, True, False), ("", False, False), ("0\n", False, False), ("1\n", True, False), ("4\n", True, True),
    ("-1", True, True), ("high", False, False), ("99999999999999999999", True, True)])
def test_the_level_file(rig, text, errors, traces):
    if text is not None:
        rig.level(text)
    rig.modules("m1")
    rig.start()
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    rig.settle()
    assert (" CARD_INSTALL enter" in rig.logged()) == errors
    assert ("start 1" in rig.logged()) == traces


def test_the_level_file_is_read_at_start_only(rig):
    rig.level("0\n")
    rig.modules("m1")
    rig.start()
    (rig.view.data / LEVEL_FILE).write_text("4\n")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    assert " CARD_INSTALL enter" not in rig.logged()


def test_two_traces_are_gb2312(rig):
    rig.level("4\n")
    rig.modules("m1")
    rig.start()
    rig.settle()
    log = (rig.view.log / "app_cg.log").read_bytes()
    for text in ("开始遍历备份数据库", "遍历备份数据库结束"):
        assert text.encode("gb2312") in log
        assert text.encode("utf-8") not in log


def test_log_records_carry_their_source(master):
    master.plug("1/3/0")
    master.expect_request("1/3/0")
    [line] = [line for line in master.logged().splitlines() if "CARD_INSTALL" in line]
    assert re.search(r" error app_cg app_cg\.cpp:\d+ app_cg_install_node_pmsg_f:  CARD_INSTALL enter, devid\[1\] "
                     r"slotid\[3\], sslotid\[0\], node_type\[3\] tipc_node_id\[1003\|0x3eb\] $", line)
