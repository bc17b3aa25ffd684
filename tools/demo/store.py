"""A private store server on a unix socket.

Debian's redis-tools carries the server's code: the program does what the name says that it is called by. So
a link is enough where the package that would start a server of the system is not installed.
"""
import os
import pathlib
import shutil
import signal
import socket

from demo import programs

DATABASES = 64


def server_program(folder):
    """The server's program: the one that is installed, or a link in `folder` to where its code is."""
    installed = shutil.which("redis-server")
    if installed:
        return installed
    checker = shutil.which("redis-check-rdb")
    if not checker:
        raise FileNotFoundError("neither redis-server nor redis-check-rdb is installed (package redis-tools)")
    link = pathlib.Path(folder) / "redis-server"
    if not link.is_symlink():
        link.symlink_to(checker)
    return link


class StoreServer:
    """A server with 64 empty databases that keeps nothing on disk unless asked to."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.socket_path = self.folder / "store.sock"
        self._process = None

    @property
    def endpoint(self):
        """Where it is, as VX_MOM_ENDPOINT says it."""
        return f"unix:{self.socket_path}"

    def start(self, databases=DATABASES):
        """Starts the server and waits until it answers."""
        with open(self.folder / "store.log", "ab") as log:
            self._process = programs.start(
                [server_program(self.folder), "--databases", databases, "--port", "0", "--unixsocket", self.socket_path,
                 "--unixsocketperm", "700", "--save", "", "--appendonly", "no", "--dir", self.folder],
                stdout=log, stderr=log)
        programs.wait_until(self._answers, 10, "the store server answers")

    def _answers(self):
        if self._process.poll() is not None:
            raise RuntimeError(f"the store server ended: see {self.folder / 'store.log'}")
        try:
            return self.ask(b"PING\r\n").startswith(b"+PONG")
        except OSError:
            return False

    def ask(self, command):
        """Sends one inline command and returns the first bytes of the answer."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(5)
            connection.connect(str(self.socket_path))
            connection.sendall(command)
            return connection.recv(4096)

    def stop(self):
        """Ends the server; its data are lost unless they were saved."""
        programs.stop(self._process)
        self._process = None

    def send(self, signum):
        """Sends the server a signal, such as SIGSTOP, after which it hangs until SIGCONT."""
        self._process.send_signal(signum)

    def kill(self):
        """Ends the server as a power cut would; one that ended already is fine."""
        if self._process is None:
            return
        os.kill(self._process.pid, signal.SIGKILL)
        self._process.wait()
        self._process = None
