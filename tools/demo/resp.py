"""The store's protocol: where a message ends, and what it says; and a connection that speaks it.

Bytes go in as they come; whole messages come out, each with its own bytes, so that they can be passed on
unchanged. A client library was no choice: it hides exactly these borders, and the demonstration does without any.
"""
import socket


class Incomplete(Exception):
    """The message has not come as a whole yet."""


class Messages:
    """The messages of one direction of a connection."""

    def __init__(self):
        self._bytes = bytearray()

    def feed(self, data):
        """Takes what was received."""
        self._bytes += data

    def take(self):
        """Returns the next message, (its bytes, its parts), or None while it is incomplete.

        The parts of an array are a list, everything else is its text; of a command that came as a plain line
        they are its words.
        """
        try:
            parts, end = _parse(self._bytes, 0)
        except Incomplete:
            return None
        raw = bytes(self._bytes[:end])
        del self._bytes[:end]
        return raw, parts


def _line(data, at):
    end = data.find(b"\r\n", at)
    if end < 0:
        raise Incomplete
    return bytes(data[at:end]), end + 2


def _parse(data, at):
    """The message that begins at `at`: (its parts, where it ends)."""
    line, end = _line(data, at)
    kind, rest = line[:1], line[1:]
    if kind == b"$":
        return _bulk(data, end, int(rest))
    if kind in (b"*", b">", b"~"):
        return _array(data, end, int(rest))
    if kind in (b"+", b"-", b":"):
        return rest, end
    return line.split(), end


def _bulk(data, at, length):
    if length < 0:
        return None, at
    end = at + length + 2
    if len(data) < end:
        raise Incomplete
    return bytes(data[at:at + length]), end


def _array(data, at, count):
    parts = []
    for _ in range(max(count, 0)):
        part, at = _parse(data, at)
        parts.append(part)
    return (parts if count >= 0 else None), at


def is_pushed(parts):
    """Whether a message of the server is a published one, and so no answer to any command."""
    return isinstance(parts, list) and len(parts) > 0 and parts[0] in (b"message", b"pmessage")


class Refused(Exception):
    """The server's answer is an error; the text is the server's."""


class Connection:
    """A connection to one database of one server, for a command at a time; a context manager."""

    def __init__(self, address, database=0, seconds=5):
        """`address` is the path of a unix socket, or a loopback port. Raises OSError when nobody answers there."""
        if isinstance(address, int):
            self._socket = socket.create_connection(("127.0.0.1", address), seconds)
        else:
            self._socket = socket.socket(socket.AF_UNIX)
            self._socket.settimeout(seconds)
            self._socket.connect(str(address))
        self._messages = Messages()
        if database:
            self.execute_command("SELECT", database)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends it."""
        self._socket.close()

    def execute_command(self, *command):
        """Sends a command and returns the answer, texts as they came. Raises Refused, or OSError when it broke."""
        words = [word if isinstance(word, bytes) else str(word).encode() for word in command]
        bulks = (b"$%d\r\n%s\r\n" % (len(word), word) for word in words)
        self._socket.sendall(b"*%d\r\n" % len(words) + b"".join(bulks))
        while (message := self._messages.take()) is None:
            data = self._socket.recv(65536)
            if not data:
                raise ConnectionError("the server closed the connection")
            self._messages.feed(data)
        raw, parts = message
        if raw.startswith(b"-"):
            raise Refused(parts.decode("utf-8", "replace"))
        return parts

    def pairs(self, *command):
        """The same, of an answer that alternates names and values: {name: value}, as texts."""
        texts = [part.decode("utf-8", "replace") for part in self.execute_command(*command)]
        return dict(zip(texts[::2], texts[1::2], strict=True))
