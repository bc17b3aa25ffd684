"""A group of store servers with Sentinels: one master, two replicas, three sentinels, on free loopback ports."""
import contextlib
import pathlib
import signal
import socket
import threading
import time

import redis
from redis.sentinel import Sentinel

from demo import programs
from demo.store import DATABASES, server_program

NAME = "gate"
_REPLICAS = 2
_SENTINELS = 3
_QUORUM = 2
_DOWN_AFTER_MS = 500
_BALLAST = 16  # megabytes: more than the sockets between a master and a frozen replica hold


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
        assert self.process.poll() is None, f"it ended: see {self._folder / 'log'}"
        with contextlib.suppress(redis.RedisError):
            return self.client().ping()
        return False

    def client(self, **more):
        """A connection to just this one."""
        return redis.Redis(port=self.port, decode_responses=True, socket_timeout=5, **more)

    def signal(self, signum):
        """Signals it, if it lives."""
        if self.process is not None and self.process.poll() is None:
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
    def endpoint(self):
        """The group as VX_MOM_ENDPOINT says it."""
        return f"sentinel:{NAME}@" + ",".join(f"127.0.0.1:{sentinel.port}" for sentinel in self.sentinels)

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
        for server in [*self.sentinels, *self.replicas, self.master]:
            server.kill()

    def _replicates(self):
        info = self.master.client().info("replication")
        return sum(info.get(f"slave{i}", {}).get("state") == "online" for i in range(_REPLICAS)) == _REPLICAS

    def _is_known(self):
        def knows(sentinel):
            group = sentinel.client().sentinel_masters().get(NAME, {})
            return (group.get("num-slaves"), group.get("num-other-sentinels")) == (_REPLICAS, _SENTINELS - 1)
        return all(knows(sentinel) for sentinel in self.sentinels)

    def agrees(self):
        """Whether each sentinel names the same master, and sees nothing wrong with it: only then does a program that
        knows nothing of the group's data yet rely on that server."""
        masters = [sentinel.client().sentinel_masters().get(NAME, {}) for sentinel in self.sentinels]
        return len({master.get("port") for master in masters}) == 1 and all(
            master.get("flags") == "master" for master in masters)

    def freeze_replicas(self):
        """From now on nothing that the master takes on reaches a replica."""
        for replica in self.replicas:
            replica.signal(signal.SIGSTOP)
        # The kernel delivers what stands in its sockets even for a master that is dead. So they are filled.
        ballast = self.master.client(db=DATABASES - 1)
        for number in range(_BALLAST):
            ballast.set(f"ballast-{number}", "x" * 2 ** 20)

    def thaw_replicas(self):
        """Lets them go on."""
        for replica in self.replicas:
            replica.signal(signal.SIGCONT)

    def follow(self, database):
        """A connection that asks the sentinels for the master whenever it has to connect."""
        sentinels = Sentinel([("127.0.0.1", sentinel.port) for sentinel in self.sentinels], socket_timeout=0.5)
        return sentinels.master_for(NAME, db=database, decode_responses=True, socket_timeout=2)


# What passes when the group has its master again and somebody has brought it the functions.
_PASSING = ("READONLY", "LOADING", "MASTERDOWN", "Function not found", "NOREPLICAS", "UNBLOCKED")


class Patient:
    """A connection for writers that repeat a command until it is carried out, and note how long that took."""

    def __init__(self, connection, seconds=60):
        self._connection = connection
        self._seconds = seconds
        self._lock = threading.Lock()
        self.longest = 0.0  # how long the slowest command took, in seconds
        self.failures = 0  # attempts that were not carried out, as far as known

    def execute_command(self, *command):
        """The answer, in the end."""
        began = time.monotonic()
        answer = programs.wait_until(lambda: self._attempt(command), self._seconds, f"the store takes {command[:4]}")
        with self._lock:
            self.longest = max(self.longest, time.monotonic() - began)
        return answer[0]

    def _attempt(self, command):
        try:
            return [self._connection.execute_command(*command)]
        except (redis.ConnectionError, redis.TimeoutError, redis.ReadOnlyError):
            pass
        except redis.ResponseError as refusal:
            if not any(text in str(refusal) for text in _PASSING):
                raise
        self.failures += 1
        return None
