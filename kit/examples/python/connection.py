"""One connection to the store, and who is asked for it.

The connection is redis-py's plain Connection. Its Redis and PubSub were rejected: they may connect anew by
themselves and subscribe again, and what was published in between would be lost without a word.
"""
import redis
import redis.sentinel

TIMEOUT_S = 5  # as long as a server may take to answer

# The server lives and cannot serve now; the same question can be answered soon.
_PASSING = (redis.exceptions.BusyLoadingError, redis.exceptions.ReadOnlyError, redis.exceptions.TryAgainError)
_PASSING_WORDS = ("LOADING", "BUSY", "MASTERDOWN", "READONLY", "TRYAGAIN", "NOREPLICAS")


class Lost(Exception):
    """The connection is gone, or is of no use: begin anew with another one."""


class Refused(Exception):
    """The server answers with an error that asking again does not change."""


def _judged(reply):
    """The reply; an error of the kind that passes is a loss."""
    passing = isinstance(reply, _PASSING) or str(reply).startswith(_PASSING_WORDS)
    if isinstance(reply, redis.ResponseError) and passing:
        raise Lost(str(reply))
    return reply


def _tcp(host, port):
    return {"host": host, "port": port, "socket_connect_timeout": TIMEOUT_S, "socket_keepalive": True}


def _place(endpoint, credentials):
    """The class and arguments of a connection to where the endpoint leads at this moment."""
    if endpoint.path:
        return redis.UnixDomainSocketConnection, {"path": endpoint.path}
    if endpoint.address:
        return redis.Connection, _tcp(*endpoint.address)
    sentinels = redis.sentinel.Sentinel(
        endpoint.sentinels,
        sentinel_kwargs={"username": credentials.sentinel_user or None,
                         "password": credentials.sentinel_password or None,
                         "socket_timeout": 1, "socket_connect_timeout": 1})
    try:
        host, port = sentinels.discover_master(endpoint.group)
    except redis.RedisError as problem:
        raise Lost(f"no master of '{endpoint.group}' is known: {problem}") from problem
    return redis.Connection, _tcp(host, port)


class Link:
    """See above. Raises Lost when it breaks; it is of no use afterwards."""

    def __init__(self, endpoint, credentials, database, client_name):
        kind, place = _place(endpoint, credentials)
        self._connection = kind(db=database, username=credentials.user or None,
                                password=credentials.password or None, client_name=client_name,
                                socket_timeout=TIMEOUT_S, **place)
        refusal = self._guarded(self._connection.connect)
        if refusal is not None:
            raise Refused(f"{endpoint.text}: {refusal}")

    @staticmethod
    def _guarded(call, *args):
        try:
            return call(*args)
        except redis.ResponseError as problem:
            return problem
        except (redis.RedisError, OSError) as problem:
            raise Lost(str(problem) or type(problem).__name__) from problem

    def send(self, *command):
        """Sends a command and does not wait."""
        self._guarded(self._connection.send_command, *command)

    def receive(self):
        """Waits for the next reply; an error is returned as one."""
        return _judged(self._guarded(self._connection.read_response))

    def has_reply(self, seconds):
        """Waits so long at most for something to receive."""
        return self._guarded(self._connection.can_read, seconds)

    def ask_all(self, commands):
        """Sends commands in one go; returns all replies, errors among them."""
        self._guarded(self._connection.send_packed_command, self._connection.pack_commands(commands))
        return [self.receive() for _ in commands]

    def ask(self, *command):
        """Sends a command and returns its reply; raises Refused when that is an error."""
        [reply] = self.ask_all([command])
        if isinstance(reply, redis.ResponseError):
            raise Refused(f"{command[0]}: {reply}")
        return reply

    def close(self):
        """Ends the connection."""
        self._connection.disconnect()
