"""The store's protocol, as far as somebody in the middle must understand it: where a message ends, and what it says.

Bytes go in as they come; whole messages come out, each with its own bytes, so that they can be passed on
unchanged. A client library was no choice: it hides exactly these borders.
"""


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
