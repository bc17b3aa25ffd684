"""A group of store servers with Sentinels: one master, two replicas, three sentinels, on free loopback ports."""
import contextlib
import pathlib
import re
import signal
import socket

from demo import programs
from demo.resp import Connection, Refused
from demo.store import DATABASES, server_program

NAME = "gate"
_REPLICAS = 2
_SENTINELS = 3
_QUORUM = 2
_DOWN_AFTER_MS = 500


def free_ports(count):
    """So many loopback ports that nobody listens on."""
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.create_server(("127.0.0.1", 0))) for _ in range(count)]
        return [one.getsockname()[1] for one in sockets]


class Server:
    """One process of the group."""

    def __init__(self, folder, port, *arguments):
        self.port = port
        self._folder = pathlib.Path(folder)
        self._folder.mkdir()
        self._arguments = arguments
        self.process = None

    def start(self):
        """Starts it; returns when it answers."""
        with open(self._folder / "log", "ab") as log:
            self.process = programs.start(
                [server_program(self._folder), *self._arguments, "--port", self.port, "--bind", "127.0.0.1",
                 "--dir", self._folder], stdout=log, stderr=log)
        programs.wait_until(self._answers, 20, f"the server on port {self.port} answers")

    def _answers(self):
        if not self.is_running:
            raise RuntimeError(f"the server on port {self.port} ended: see {self._folder / 'log'}")
        with contextlib.suppress(OSError, Refused):
            return self.ask("PING") == b"PONG"
        return False

    @property
    def is_running(self):
        """Whether the process lives."""
        return self.process is not None and self.process.poll() is None

    def connect(self, database=0):
        """A connection to just this one."""
        return Connection(self.port, database)

    def ask(self, *command):
        """The answer to one command, outside of any database."""
        with self.connect() as connection:
            return connection.execute_command(*command)

    def group(self):
        """What this one, a sentinel, knows of the group: {name: text}."""
        with self.connect() as connection:
            return connection.pairs("SENTINEL", "MASTER", NAME)

    def signal(self, signum):
        """Signals it, if it lives."""
        if self.is_running:
            self.process.send_signal(signum)

    def kill(self):
        """Ends it as a power cut would; also one that is frozen."""
        self.signal(signal.SIGKILL)
        if self.process is not None:
            self.process.wait(20)


class Group:
    """See above; a context manager. `master` is who was so at the start."""

    def __init__(self, folder):
        folder = pathlib.Path(folder)
        folder.mkdir()
        ports = free_ports(1 + _REPLICAS + _SENTINELS)
        data = ["--databases", DATABASES, "--save", "", "--appendonly", "no", "--repl-diskless-sync-delay", "0"]
        self.master = Server(folder / "master", ports[0], *data)
        self.replicas = [Server(folder / f"replica{port}", port, *data, "--replicaof", f"127.0.0.1 {ports[0]}")
                         for port in ports[1:1 + _REPLICAS]]
        self.sentinels = [self._sentinel(folder / f"sentinel{port}", port) for port in ports[1 + _REPLICAS:]]

    def _sentinel(self, folder, port):
        """A sentinel rewrites its configuration, so each has a file of its own."""
        server = Server(folder, port, folder / "sentinel.conf", "--sentinel")
        (folder / "sentinel.conf").write_text(
            f"sentinel monitor {NAME} 127.0.0.1 {self.master.port} {_QUORUM}\n"
            f"sentinel down-after-milliseconds {NAME} {_DOWN_AFTER_MS}\n"
            f"sentinel failover-timeout {NAME} 3000\n"
            f"sentinel parallel-syncs {NAME} {_REPLICAS}\n")
        return server

    @property
    def servers(self):
        """Master and replicas, as they were at the start."""
        return [self.master, *self.replicas]

    @property
    def endpoint(self):
        """The group as VX_MOM_ENDPOINT says it."""
        return endpoint_of(sentinel.port for sentinel in self.sentinels)

    def __enter__(self):
        try:
            self.master.start()
            for replica in self.replicas:
                replica.start()
            programs.wait_until(self._replicates, 20, "the replicas follow")
            # Started last: a sentinel asks a master for its replicas at once, and then every 10 s only.
            for sentinel in self.sentinels:
                sentinel.start()
            programs.wait_until(self._is_known, 30, "the sentinels know the group and each other")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for server in [*self.sentinels, *self.servers]:
            server.kill()

    def _replicates(self):
        info = self.master.ask("INFO", "replication")
        return len(re.findall(rb"^slave\d+:.*state=online", info, re.MULTILINE)) == _REPLICAS

    def _is_known(self):
        return all((known.get("num-slaves"), known.get("num-other-sentinels")) == (str(_REPLICAS), str(_SENTINELS - 1))
                   for known in (sentinel.group() for sentinel in self.sentinels))

    def agrees(self):
        """Whether each sentinel that runs names the same master, and sees nothing wrong with it: only then does a
        program that knows nothing of the group's data yet rely on that server."""
        masters = [sentinel.group() for sentinel in self.sentinels if sentinel.is_running]
        return {master["flags"] for master in masters} == {"master"} and len({master["port"] for master in masters}) == 1

    def present_master(self):
        """The server that the sentinels agree on; None while they do not, or while it does not run."""
        if not self.agrees():
            return None
        port = next(int(sentinel.group()["port"]) for sentinel in self.sentinels if sentinel.is_running)
        return next((server for server in self.servers if server.port == port and server.is_running), None)


def endpoint_of(ports):
    """A group by the ports of its sentinels, as VX_MOM_ENDPOINT says it."""
    return f"sentinel:{NAME}@" + ",".join(f"127.0.0.1:{port}" for port in ports)
