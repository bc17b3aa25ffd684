"""What a daemon sends to the store on a card's road, seen by the server's MONITOR, as a script for the bare loop.

The device's own commands are known by their keys; all else that clients send is the daemon's. In between stands what
happened to the card, so each command is put behind the notification that it followed.
"""
import ast
import re
import socket
import string

from .place import Failed, run

CARD, ACK = b"p_dev.card_info:0:1:", b"p_libpub.app_cg_card_check_ack:1:"
_LINE = re.compile(rb'^\+[0-9.]+ \[(\d+) (\S+)\] (".*)$')
_WORD = re.compile(rb'"(?:[^"\\]|\\.)*"')
_PLAIN = (string.ascii_letters + string.digits + "@:._-").encode()


class Monitor:
    """A connection that is shown every command."""

    def __init__(self, path):
        self._connection = socket.socket(socket.AF_UNIX)
        self._connection.connect(str(path))
        self._connection.sendall(b"MONITOR\r\n")
        self._connection.settimeout(0.5)
        self._seen = b""

    def lines(self):
        """All lines up to now: waits until none has come for half a second."""
        try:
            while chunk := self._connection.recv(1 << 20):
                self._seen += chunk
        except TimeoutError:
            pass
        self._connection.close()
        return self._seen.split(b"\r\n")


def commands(lines):
    """(database, [word, ...]) of what clients have sent; not of what functions called."""
    for line in lines:
        match = _LINE.match(line)
        if match and match[2] != b"lua":
            yield int(match[1]), [ast.literal_eval("b" + word.decode("latin-1")) for word in _WORD.findall(match[3])]


def _event(words):
    """What the device did with this command: (slot, what), or None when it is not the device's."""
    if words[:2] == [b"FCALL", b"vx_mom2_set"] and words[3].startswith(CARD):
        return int(words[3].split(b":")[3]), "plugged"
    if words[:2] == [b"FCALL", b"vx_mom2_del"] and words[3].startswith(CARD):
        return int(words[3].split(b":")[3]), "unplugged"
    if words[:2] == [b"FCALL", b"vx_mom2_set"] and words[3].startswith(ACK):
        return int(words[3].split(b":")[2]), "passed"
    return None


def escaped(word):
    """A word as it stands in the script."""
    return "".join(chr(byte) if byte in _PLAIN else f"%{byte:02x}" for byte in word) or "%"


def script_lines(lines):
    """The script of a recording."""
    slot, when = None, None
    for database, words in commands(lines):
        event = _event(words)
        if event:
            slot, when = event
        elif slot is not None and words[0] != b"PING":
            yield f"{slot} {when} {database} {' '.join(map(escaped, words))}"


def record(chassis, cards, modules, path):
    """Records one round of roads into a script; returns how many commands a card's way in takes."""
    # A first round, so that what happens once only is no part of it; road() makes one by itself.
    run("bench_device", "road", 0, cards, modules, 1, chassis.store.socket_path)
    monitor = Monitor(chassis.store.socket_path)
    run("bench_device", "road", 0, cards, modules, 1, chassis.store.socket_path)
    lines = list(script_lines(monitor.lines()))
    ways_in = [line for line in lines if line.split()[1] in ("plugged", "passed")]
    if len({line.split()[0] for line in lines}) != cards:
        raise Failed("the daemon's commands could not be told by card")
    path.write_text("\n".join(lines) + "\n", encoding="ascii")
    return len(ways_in) / cards
