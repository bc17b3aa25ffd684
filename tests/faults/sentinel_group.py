"""The group of servers of the demonstration, for tests: connections that follow its master, and replicas that miss writes."""
import signal
import threading
import time

import redis
from redis.sentinel import Sentinel

from demo import group, programs
from demo.store import DATABASES

_BALLAST = 16  # megabytes: more than the sockets between a master and a frozen replica hold


def client(server, **more):
    """A connection to just this server of a group."""
    return redis.Redis(port=server.port, decode_responses=True, socket_timeout=5, **more)


class Group(group.Group):
    """See above; a context manager."""

    def freeze_replicas(self):
        """From now on nothing that the master accepts reaches a replica."""
        for replica in self.replicas:
            replica.signal(signal.SIGSTOP)
        # The kernel delivers what stands in its sockets even for a master that is dead. So they are filled.
        ballast = client(self.master, db=DATABASES - 1)
        for number in range(_BALLAST):
            ballast.set(f"ballast-{number}", "x" * 2 ** 20)

    def thaw_replicas(self):
        """Lets them go on."""
        for replica in self.replicas:
            replica.signal(signal.SIGCONT)

    def follow(self, database):
        """A connection that asks the sentinels for the master whenever it has to connect."""
        sentinels = Sentinel([("127.0.0.1", sentinel.port) for sentinel in self.sentinels], socket_timeout=0.5)
        return sentinels.master_for(group.NAME, db=database, decode_responses=True, socket_timeout=2)


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
