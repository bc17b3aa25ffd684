"""Somebody between the daemon and the store who counts every command and strikes at a chosen one.

It serves a unix socket (or a loopback port) and passes everything on, message by message. A command is counted
when it has come as a whole; those of a connection's opening are not calls of the daemon's and are counted
apart. At the chosen command one fault happens, once; connections made afterwards are served as if nothing had
been. Cutting packets at random was rejected: no seed would say which call had been cut.
"""
import collections
import contextlib
import os
import selectors
import signal
import socket
import struct
import threading

from demo.resp import Messages, is_pushed

# What a connection begins with, and how a new server run is registered. The second word decides where the first
# does not.
_OPENING = {b"AUTH", b"HELLO", b"SELECT", b"CLIENT", b"INFO", b"ROLE", b"FUNCTION", b"SCRIPT"}
_OPENING_KEYS = {(b"GET", b"@set"), (b"HGETALL", b"@runs"), (b"FCALL", b"vx_mom2_register"), (b"DEL", b"@health")}


def is_opening(parts):
    """Whether a command belongs to a connection's opening."""
    words = [part for part in parts[:2] if part is not None]
    return words[0].upper() in _OPENING or (words[0].upper(), *words[1:]) in _OPENING_KEYS


def is_health_check(parts):
    """Whether a command comes by the clock: is the connection alive, are the functions there, what is not well."""
    name, *words = parts
    name = name.upper()
    return bool(words) and name == b"PING" or name == b"FCALL" and words[1] == b"0" or [name, *words][:2] == [
        b"HSET", b"@health"]


def is_call(parts):
    """Whether a command is a call of the daemon's."""
    return not is_opening(parts) and not is_health_check(parts)


class CutBefore:
    """The command does not reach the store; both ends of its connection are closed."""

    before = True

    def strike(self, _pid):
        """Nothing more than that."""


class CutAfter:
    """The store carries the command out, but its answer does not come back; both ends are closed."""

    before = False

    def strike(self, _pid):
        """Nothing more than that."""


class KillBefore:
    """The process at the other end is killed, and the store never hears of the command."""

    before = True

    def strike(self, pid):
        """Kills it; one that is dead already is fine."""
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGKILL)


class KillAfter(KillBefore):
    """The process at the other end is killed when the store has answered, before it hears of the answer."""

    before = False


class Proxy:
    """Serves until closed; a context manager."""

    def __init__(self, store_path, own_path=None, counted=is_call, kept=None):
        """Passes on to the unix socket `store_path`; serves `own_path`, or a free loopback port without it.

        The last `kept` commands are remembered, all of them without it.
        """
        self._store_path = str(store_path)
        self._counted = counted
        self._lock = threading.Lock()
        self._commands = collections.deque(maxlen=kept)
        self._count = 0
        self.accepted = 0  # connections so far
        self.pushed = lambda raw, parts: raw  # what becomes of a published message on its way to the daemon
        self._fault = None
        self._at = None
        self.struck = None  # the command at which the fault happened
        self._struck_pid = None
        self._closing = False
        self._listener = self._listen(own_path)
        self.port = None if own_path else self._listener.getsockname()[1]
        self._thread = threading.Thread(target=self._accept, daemon=True)
        self._thread.start()

    @staticmethod
    def _listen(own_path):
        if own_path:
            listener = socket.socket(socket.AF_UNIX)
            listener.bind(str(own_path))
        else:
            listener = socket.create_server(("127.0.0.1", 0))
        listener.listen(64)
        return listener

    def arm(self, at, fault):
        """Lets `fault` happen at the counted command number `at`, the first being 1."""
        with self._lock:
            self._at, self._fault = at, fault

    @property
    def is_armed(self):
        """Whether a fault is still to happen."""
        with self._lock:
            return self._fault is not None

    def commands(self):
        """The counted commands so far, as texts."""
        with self._lock:
            return [as_text(parts) for _, parts in self._commands]

    def commands_of_others(self):
        """The counted commands of other processes than the one at whose command the fault happened."""
        with self._lock:
            return [as_text(parts) for pid, parts in self._commands if pid != self._struck_pid]

    @property
    def count(self):
        """How many commands were counted."""
        with self._lock:
            return self._count

    def disarm(self):
        """Takes a fault back that has not happened."""
        with self._lock:
            self._fault = None

    def close(self):
        """Stops serving; connections that stand are closed by their own threads."""
        self._closing = True
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        self._thread.join(5)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _accept(self):
        while not self._closing:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            self.accepted += 1
            threading.Thread(target=self._serve, args=[client], daemon=True).start()

    def _serve(self, client):
        server = socket.socket(socket.AF_UNIX)
        with contextlib.suppress(OSError), client, server:
            server.connect(self._store_path)
            _Passage(self, client, server).run()

    def note(self, parts, pid):
        """Counts a command of a process, if it is one to count. Returns the fault that is due at it."""
        if not self._counted(parts):
            return None
        with self._lock:
            self._commands.append((pid, parts))
            self._count += 1
            if self._fault is None or self._count != self._at:
                return None
            fault, self._fault = self._fault, None
            self._struck_pid = pid
            self.struck = as_text(parts)
            return fault

    @property
    def is_closing(self):
        """Whether connections are to end."""
        return self._closing


def as_text(parts):
    """A command for people."""
    return " ".join(part.decode("utf-8", "replace") for part in parts if part is not None)


def _answers_to(parts):
    """How many answers a command gets: a subscription one for each channel."""
    return len(parts) - 1 if parts[0].upper() in (b"SUBSCRIBE", b"PSUBSCRIBE") else 1


class _Passage:
    """One connection of the daemon's, and ours to the store that belongs to it."""

    def __init__(self, proxy, client, server):
        self._proxy = proxy
        self._client = client
        self._server = server
        self._from_client = Messages()
        self._from_server = Messages()
        self._unanswered = 0
        self._pid = self._client_pid()

    def run(self):
        """Passes on until one end closes or a fault ends it."""
        with selectors.DefaultSelector() as selector:
            selector.register(self._client, selectors.EVENT_READ)
            selector.register(self._server, selectors.EVENT_READ)
            while not self._proxy.is_closing:
                for key, _ in selector.select(0.5):
                    data = key.fileobj.recv(65536)
                    if not data or not self._take(key.fileobj is self._client, data):
                        return

    def _take(self, from_client, data):
        if from_client:
            self._from_client.feed(data)
            return self._pass_commands()
        self._from_server.feed(data)
        self._pass_answers(None)
        return True

    def _client_pid(self):
        """Who connected; 0 unless it is by a unix socket."""
        if self._client.family != socket.AF_UNIX:
            return 0
        size = struct.calcsize("3i")
        return struct.unpack("3i", self._client.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, size))[0]

    def _pass_commands(self):
        """Passes whole commands on. Returns False when a fault ended the connection."""
        while (message := self._from_client.take()) is not None:
            raw, parts = message
            fault = self._proxy.note(parts, self._pid)
            if fault is not None and fault.before:
                fault.strike(self._pid)
                return False
            self._unanswered += _answers_to(parts)
            self._server.sendall(raw)
            if fault is not None:
                self._swallow_answer()
                fault.strike(self._pid)
                return False
        return True

    def _swallow_answer(self):
        """Passes on what answers earlier commands, and waits for the last answer, which is kept back."""
        while self._pass_answers(keep_back=1):
            data = self._server.recv(65536)
            if not data:
                return
            self._from_server.feed(data)

    def _pass_answers(self, keep_back):
        """Passes whole messages of the server on. Returns whether answers are awaited still.

        With `keep_back` the last answer awaited is taken and not passed on.
        """
        while (message := self._from_server.take()) is not None:
            raw, parts = message
            if is_pushed(parts):
                raw = self._proxy.pushed(raw, parts)
            else:
                self._unanswered -= 1
                if keep_back and self._unanswered == 0:
                    return False
            self._client.sendall(raw)
        return True
