"""Whom the daemon writes to besides the store, each of which may stop reading: standard error, journal, process manager.

The daemon has one log at a time. So each of its lives logs elsewhere: most into files that are rotated soon, some to
standard error or to the journal, and some onto a disk that is full for good.
"""
import contextlib
import fcntl
import os
import random
import select
import shutil
import socket
import threading

from demo.daemon import Daemon
from rig import DAEMON

FULL = "file:/dev/full"
JOURNAL = "journal"
_FILE = "file:/log/own/app_cg.log:16384:99"  # small, so that it is rotated while its folder is gone
_LOGS = ((5, _FILE), (2, "stderr"), (2, JOURNAL), (1, FULL))
CANNOT_LOG = 256 - 11  # the daemon was started while its log's folder was gone


class _Reader:
    """Reads on a thread of its own until closed; while it is held, the other end finds no room."""

    def __init__(self, on_data):
        self._on_data = on_data
        self._closing = threading.Event()
        self._may_read = threading.Event()
        self._may_read.set()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        while True:
            self._may_read.wait()
            if not select.select([self.fileno()], [], [], 0.2)[0]:
                if self._closing.is_set():
                    return
            elif self._may_read.is_set():
                with contextlib.suppress(BlockingIOError):
                    self._on_data(self._read())

    def fileno(self):
        """What is read from."""
        raise NotImplementedError

    def hold(self):
        """Reads nothing more, and leaves no room, until release()."""
        self._may_read.clear()
        with contextlib.suppress(BlockingIOError):
            while True:
                self._fill()

    def release(self):
        """Reads on."""
        self._may_read.set()

    def close(self):
        """Ends the thread, when nothing is left to read."""
        self._closing.set()
        self.release()
        self._thread.join(5)


class Datagrams(_Reader):
    """A service of the system that listens on a datagram socket."""

    def __init__(self, path, on_data):
        path.parent.mkdir(parents=True, exist_ok=True)
        self._path = str(path)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(self._path)
        self._socket.setblocking(False)
        super().__init__(on_data)

    def fileno(self):
        return self._socket.fileno()

    def _read(self):
        return self._socket.recv(1 << 20)

    def _fill(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.setblocking(False)
            sender.sendto(b"x", self._path)


class Pipe(_Reader):
    """What standard error leads to."""

    def __init__(self, path, on_data):
        os.mkfifo(path)
        self._fd = os.open(path, os.O_RDWR | os.O_NONBLOCK)
        fcntl.fcntl(self._fd, fcntl.F_SETPIPE_SZ, 1 << 20)  # a reader that is merely slow loses nothing
        super().__init__(on_data)

    def fileno(self):
        return self._fd

    def _read(self):
        return os.read(self._fd, 65536)

    def _fill(self):
        os.write(self._fd, b"x")


class Manager(Datagrams):
    """The process manager."""

    def __init__(self, path):
        self.heartbeats = 0
        self.status = ""
        super().__init__(path, self._hear)

    def _hear(self, notice):
        for line in notice.decode("utf-8", "replace").split("\n"):
            self.heartbeats += line == "WATCHDOG=1"
            self.status = line.partition("=")[2] if line.startswith("STATUS=") else self.status


class LoggingDaemon(Daemon):
    """The daemon with all that it logs to; its standard error ends in a file, log/stderr.log."""

    def __init__(self, view, seed, env):
        super().__init__(DAEMON, view, {**env, "NOTIFY_SOCKET": "/run/notify", "WATCHDOG_USEC": "30000000"})
        self._random = random.Random(f"{seed}/log")
        self._folder = view.log / "own"
        self._stderr = view.log / "stderr.log"
        self._pipe = Pipe(view.root / "daemon.err", self._keeper(self._stderr))
        self._journal = Datagrams(view.run / "systemd" / "journal" / "socket", self._keeper(view.log / "journal.log"))
        self.manager = Manager(view.run / "notify")
        self.log = ""  # of this life

    @staticmethod
    def _keeper(path):
        path.touch()

        def keep(data):
            with open(path, "ab") as file:
                file.write(data.lstrip(b"x"))  # with which it was filled
        return keep

    def start(self):
        logs = [log for log in _LOGS if log[1] != _FILE or not self._folder.is_file()] if self.log else _LOGS[:1]
        self.log, = self._random.choices([log for _, log in logs], [weight for weight, _ in logs])
        self._env["VX_ZLOG"] = self.log
        return super().start()

    def complained(self):
        return self._stderr.read_text(errors="replace")

    def hold_log(self):
        """Nothing can be logged any more: nobody reads, and there is no folder when the file is rotated."""
        self._pipe.hold()
        self._journal.hold()
        gone = self._folder.with_name("gone")
        shutil.rmtree(gone, ignore_errors=True)
        with contextlib.suppress(FileNotFoundError):  # no life of the daemon has logged there so far
            self._folder.rename(gone)
        self._folder.touch()

    def release_log(self):
        """The opposite."""
        self._folder.unlink()
        self._journal.release()
        self._pipe.release()

    def close(self):
        """Ends the threads, when the daemon has ended."""
        for reader in (self._pipe, self._journal, self.manager):
            reader.close()
