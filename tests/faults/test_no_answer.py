"""What the daemon has to ask the system for, and gets no answer: a mount, a name server.

Both hold up its only thread. Each is played without root: the view has user and mount or network namespaces of its own,
in which the daemon's process breaks the thing before it becomes the daemon. What it broke stays so for as long as it
lives, by a descriptor that it inherits from itself and nobody reads.
"""
import itertools
import pathlib
import signal
import time

import pytest

from demo.daemon import Daemon
from demo.private_view import PrivateView
from rig import DAEMON
from test_neighbours import Receiver

# A mount whose file system is a program that never reads a request.
_MOUNT = """
import ctypes, os, sys
server = os.open("/dev/fuse", os.O_RDWR)
libc = ctypes.CDLL(None, use_errno=True)
options = f"fd={server},rootmode=40000,user_id={os.getuid()},group_id={os.getgid()}"
if libc.mount(b"fuse", sys.argv[1].encode(), b"fuse", 0, options.encode()) != 0:
    raise OSError(ctypes.get_errno(), "mount")
os.set_inheritable(server, True)
os.execv(sys.argv[2], sys.argv[2:])
"""

# A name server that reads no question.
_NAME_SERVER = """
import os, socket, sys
server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind(("127.0.0.1", 53))
server.set_inheritable(True)
os.execv(sys.argv[1], sys.argv[1:])
"""


class BrokenView(PrivateView):
    """A view in which a script runs first, with some options of bubblewrap's more, and becomes the daemon."""

    def __init__(self, folder, options, script, *arguments):
        super().__init__(folder)
        self._options = [*map(str, options)]
        self._script = ["/usr/bin/python3", "-c", script, *arguments]

    def command(self, program, env, info_fd):
        """See PrivateView."""
        argv = super().command(program, env, info_fd)
        mounted, program_at = argv.index("--remount-ro"), argv.index("--") + 1
        return [*argv[:mounted], *self._options, *argv[mounted:program_at], *self._script, *argv[program_at:]]


@pytest.mark.skipif(not pathlib.Path("/dev/fuse").exists(), reason="the kernel has no /dev/fuse")
@pytest.mark.parametrize("folder", ["/etc/app_cg/deny_check", "/log", "/data"])
def test_a_mount_that_does_not_answer_holds_up_the_daemon(rig, folder):
    options = ["--unshare-user", "--cap-add", "CAP_SYS_ADMIN", "--dev-bind", "/dev/fuse", "/dev/fuse"]
    daemon = Daemon(DAEMON, BrokenView(rig.folder, options, _MOUNT, folder)).start()

    def waits_for_the_mount():
        name, _, rest = pathlib.Path(f"/proc/{daemon.pid}/stat").read_text().partition("(")[2].rpartition(")")
        return name == "app_cg" and rest.split()[0] == "D"
    try:
        rig.expect(waits_for_the_mount, "the daemon waits for the mount")
    finally:
        # As the process manager does after its time-out: such a wait ignores the first.
        daemon.signal(signal.SIGABRT)
        daemon.signal(signal.SIGKILL)
    assert daemon.wait() == 128 + signal.SIGKILL
    rig.start()  # the mount has gone with it


def test_a_name_server_that_does_not_answer_holds_up_the_loop_for_as_long_as_the_resolver(rig):
    resolver = rig.folder / "resolv.conf"
    resolver.write_text("nameserver 127.0.0.1\noptions timeout:1 attempts:1\n")
    options = ["--unshare-user", "--unshare-net", "--cap-add", "CAP_NET_BIND_SERVICE",
               "--ro-bind", resolver, "/etc/resolv.conf"]
    manager = Receiver(rig.view.run / "notify")
    rig.daemon = Daemon(DAEMON, BrokenView(rig.folder, options, _NAME_SERVER),
                        {"VX_MOM_ENDPOINT_28": "tcp:store.example:6379", "NOTIFY_SOCKET": "/run/notify",
                         "WATCHDOG_USEC": "200000"}).start()
    try:
        rig.expect_logged("store.example")
        assert "app_cg_wait_obj_num" in rig.debug("dump_check_module"), "the debug shell answers in between"
        beats = [time.monotonic()]

        def was_held_up():
            if "WATCHDOG=1" in manager.read():
                beats.append(time.monotonic())
            return any(later - earlier > 1 for earlier, later in itertools.pairwise(beats[1:]))
        rig.expect(was_held_up, "a second between two heartbeats, of which there are ten in it otherwise")
    finally:
        rig.daemon.stop()
    assert rig.daemon.wait() == 0
