"""A stack under test: the demonstration's, with what it holds read by a client library and in one place.

Its modules deny the cards of one type. A device is named by its letter, in small.
"""
import pathlib
import sys

import redis

from demo import programs, stack
from demo.device_manager import MASTER
from demo.records import (BY_POSITION, BY_TIPC, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, REQUEST, tipc_node)
from rig import BUILD

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "faults"))
from sentinel_group import Group  # noqa: E402  (needs the path above)

DENIED_TYPE = 210
MAIN_BOARD = 2
MARKERS = 9  # the device of the boards that settle() plugs


def writer(fields):
    """Which life of which daemon wrote a record."""
    return fields["by"].split(" ")[0].rsplit(".", 1)[0]


class Stack(stack.Stack):
    """See above; a context manager, which fails when a daemon ended as none may."""

    group_type = Group

    def __init__(self, folder, **env):
        super().__init__(BUILD / "bin", folder, **env)
        self._markers = 0
        self._hosts = {}
        self._shared = {}

    def __enter__(self):
        super().__enter__()
        self._shared = {number: self.group.follow(number) for number in (CAP, DEV_GLOBAL)}
        self.everywhere(lambda member: member.cgctl("debug", "log-level", "level=2"))
        return self

    def __exit__(self, *_):
        super().__exit__()
        found = [member.daemon.complained() for member in self.members]
        assert not any("Sanitizer" in text or "runtime error:" in text for text in found), "\n".join(found)

    def member(self, letter):
        """A device."""
        return self.members[stack.LETTERS.index(letter)]

    def host(self, letter):
        """A connection to database 1 of a device."""
        if letter not in self._hosts:
            self._hosts[letter] = redis.Redis(unix_socket_path=str(self.member(letter).store.socket_path), db=HOST,
                                              decode_responses=True)
        return self._hosts[letter]

    def shared(self, number):
        """A connection to a database of the group, wherever its master is."""
        return self._shared[number]

    @staticmethod
    def of_kind(connection, kind):
        """The records of a type: {key without the type: fields}."""
        keys = sorted(connection.smembers(f"@idx:{kind}"))
        with connection.pipeline(transaction=False) as batch:
            for key in keys:
                batch.hgetall(key)
            return {key.split(":", 1)[1]: fields for key, fields in zip(keys, batch.execute(), strict=True)}

    def own(self, letter):
        """{position: fields} of the results in a device's own store, but for those of markers."""
        found = {f"{int(node) // 1000}/{int(node) % 1000}/0": fields
                 for node, fields in self.of_kind(self.host(letter), BY_TIPC).items()}
        return without_markers(found)

    def published(self):
        """{position: fields} of the results in database 28, but for those of markers."""
        found = {"/".join(key.split(":")[1:]): fields for key, fields in self.of_kind(self.shared(CAP), BY_POSITION).items()}
        return without_markers(found)

    def marked(self):
        """{position: fields} of the custom status in database 33."""
        return {"/".join(key.split(":")[:3]): fields
                for key, fields in self.of_kind(self.shared(DEV_GLOBAL), CUSTOM_STATUS).items()}

    # What is to be there

    def wanted(self):
        """The verdict on each card that is plugged."""
        return {position: DENY if card_type == DENIED_TYPE else PASS for position, card_type in self.cards.items()}

    def judges(self, letter):
        """Whether a device has the right verdict on each card, no other result, and no open check."""
        return not self.host(letter).scard(f"@idx:{REQUEST}") and verdicts(self.own(letter)) == self.wanted()

    def is_complete(self):
        """Whether the group has each result, and marks those denied and no others; False while it has no master."""
        try:
            denied = {position for position, verdict in self.wanted().items() if verdict == DENY}
            return verdicts(self.published()) == self.wanted() and set(self.marked()) == denied
        except (redis.RedisError, OSError):
            return False

    def expect(self, condition, what, seconds=60):
        """Waits until condition() is true; the test fails, naming `what`, when it does not become so."""
        return programs.wait_until(condition, seconds, what)

    def expect_judged(self, *letters, seconds=60):
        """Waits until these devices, by default those that are on, have judged every card."""
        for letter in letters or [member.letter for member in self.members if member.is_on]:
            self.expect(lambda one=letter: self.judges(one), f"{letter} has judged every card", seconds)

    def expect_complete(self, seconds=60):
        """Waits until the group has every result."""
        self.expect(self.is_complete, "the group has every result", seconds)

    def settle(self):
        """Returns when each daemon that is on has handled every change up to now: they are handled in their order."""
        self._markers += 1
        board = f"{MARKERS}/{self._markers}/0"
        self.everywhere(lambda member: member.manager.plug(board, MAIN_BOARD))
        key = f"{BY_TIPC}:{tipc_node(board)}"
        for member in self.members:
            if member.is_on:
                self.expect(lambda one=member: self.host(one.letter).exists(key), f"{member.letter} handles the board")

    def master(self):
        """The letter of the device that has the role."""
        return next(member.letter for member in self.members if member.role == MASTER)

    def denials(self, letter):
        """The slots of the denials in a device's system log, in their order."""
        return [text.split(" will be disabled")[0].rsplit(" ", 1)[1]
                for _, text in self.member(letter).system_log.lines() if " will be disabled" in text]


def without_markers(results):
    """Results but for those of markers."""
    return {position: fields for position, fields in results.items() if not position.startswith(f"{MARKERS}/")}


def verdicts(results):
    """{position: verdict} of results; a zero may be left out."""
    return {position: fields.get("6", DENY) for position, fields in results.items()}
