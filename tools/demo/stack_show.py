"""The demonstration of a stack: what is promised of it, point by point, each checked in the stores."""
import contextlib
import re
import time

from demo import programs
from demo.device_manager import MASTER, SLAVE
from demo.pace import Pace
from demo.records import (BY_POSITION, BY_TIPC, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, POWER, REQUEST,
                          tipc_node)
from demo.resp import Refused

TOO_OLD = 210  # the type of card that a module denies
MAIN_BOARD = 2  # the node type of a card that is admitted without a check
_FIRST_OF_LOAD = 11  # the slot; their lines of the system log are counted and not shown
_MARKERS = 9  # the device of boards that show how far a daemon has come
_SECONDS = 30  # that a point may take


def _of_kind(connection, kind):
    """The records of a type: {its index, as a position where it is one: fields}."""
    keys = (key.decode() for key in connection.execute_command("SMEMBERS", f"@idx:{kind}"))
    return {key.split(":", 1)[1]: connection.pairs("HGETALL", key) for key in sorted(keys)}


def _tried(read):
    """What it returns; None while a server does not serve."""
    with contextlib.suppress(OSError, Refused):
        return read()
    return None


def _without_markers(results):
    """Results but for those of the boards by which we see that a daemon has come so far."""
    return {position: fields for position, fields in results.items() if not position.startswith(f"{_MARKERS}/")}


def _writer(fields):
    """Which life of which daemon wrote a record."""
    return fields["by"].split(" ")[0].rsplit(".", 1)[0]


class Show:
    """Plays the points on a stack."""

    def __init__(self, stack, screen, load):
        """`load` is how many cards a device come while the group's master is killed."""
        self._stack = stack
        self._load = load
        self._screen = screen
        self._markers = 0
        self._lines = {}  # of the system logs: {(letter, slot): how many}
        self._held = []  # each point
        stack.on_line = self._system_log_line

    def _system_log_line(self, letter, text):
        slot = re.search(r"slot (\d+/\d+)", text).group(1)
        self._lines[letter, slot] = self._lines.get((letter, slot), 0) + 1
        if int(slot.split("/")[1]) < _FIRST_OF_LOAD:
            self._screen.event(f"{letter.upper()} {slot}", f"system log: {text}", "notice")

    def _point(self, text, holds):
        """Shows whether something becomes true."""
        began = time.monotonic()
        held = True
        try:
            programs.wait_until(lambda: _tried(holds), _SECONDS, text)
        except programs.NotInTime:
            held = False
        self._held.append(held)
        self._screen.say(f"  {'held' if held else 'MISSED':<7}{time.monotonic() - began:5.1f} s  {text}",
                         "" if held else "bad")

    # What is in the stores

    def _shared(self, number):
        """A connection to a database of the group."""
        master = self._stack.group.present_master()
        if master is None:
            raise OSError("the group has no master")
        return master.connect(number)

    def _wanted(self):
        return {position: DENY if card_type == TOO_OLD else PASS for position, card_type in self._stack.cards.items()}

    def _denied(self):
        return {position for position, verdict in self._wanted().items() if verdict == DENY}

    def _own_results(self, member):
        """{position: fields} of what a device has in its own store; nothing before all checks are over."""
        with member.connect(HOST) as store:
            if store.execute_command("SCARD", f"@idx:{REQUEST}") != b"0":
                return {}
            found = _of_kind(store, BY_TIPC)
        positions = {f"{int(node) // 1000}/{int(node) % 1000}/0": fields for node, fields in found.items()}
        return _without_markers(positions)

    def _judges(self, member):
        """Whether a device has the right verdict on every card."""
        return {position: fields.get("6", DENY) for position, fields in self._own_results(member).items()} == \
            self._wanted()

    def _all_judge(self):
        return all(self._judges(member) for member in self._stack.members if member.is_on)

    def _results(self):
        """{position: fields} of what the stack has."""
        with self._shared(CAP) as store:
            found = _of_kind(store, BY_POSITION)
        positions = {index.split(":", 1)[1].replace(":", "/"): fields for index, fields in found.items()}
        return _without_markers(positions)

    def _marked(self):
        """{position: fields} of the custom status."""
        with self._shared(DEV_GLOBAL) as store:
            return {"/".join(index.split(":")[:3]): fields for index, fields in _of_kind(store, CUSTOM_STATUS).items()}

    def _published(self):
        return self._results(), self._marked()

    def _is_complete(self):
        """Whether the stack has every result, and marks those denied, they alone."""
        return {position: fields.get("6", DENY) for position, fields in self._results().items()} == self._wanted() and \
            set(self._marked()) == self._denied()

    def _lives(self, member):
        """Who wrote a device's own results: its daemon, in one life or several."""
        return {_writer(fields) for fields in self._own_results(member).values()}

    def _settle(self):
        """Returns when each daemon has handled every change up to now: they are handled in their order."""
        self._markers += 1
        board = f"{_MARKERS}/{self._markers}/0"
        self._stack.everywhere(lambda member: member.manager.plug(board, MAIN_BOARD))

        def is_there(member):
            with member.connect(HOST) as store:
                return store.execute_command("EXISTS", f"{BY_TIPC}:{tipc_node(board)}") == b"1"
        programs.wait_until(lambda: all(self._stack.everywhere(is_there).values()), _SECONDS, "each daemon handles changes")

    # The points

    def play(self):
        """All of them; returns whether every one held."""
        for step in (self._nine_cards, self._removals, self._another_master, self._kill_under_load, self._off_and_on, self._cut):
            step()
        held, points = sum(self._held), len(self._held)
        self._screen.say(f"{held} of {points} points held.", "" if held == points else "bad")
        return held == points

    def _nine_cards(self):
        a, b, c = self._stack.members
        self._screen.heading("Nine cards of three devices; the card in 2/3 is too old")
        self._stack.plug(*(f"{device}/{slot}/0" for device in (1, 2, 3) for slot in (2, 3, 4) if (device, slot) != (2, 3)))
        self._stack.plug("2/3/0", card_type=TOO_OLD)
        self._point("each device judges each card; each host store has all results, by its own daemon",
                    lambda: self._all_judge() and len(self._lives(a) | self._lives(b) | self._lives(c)) == 3)
        self._point("the stack has each result and the custom status once, by the master",
                    lambda: self._is_complete() and
                    {_writer(fields) for fields in [*self._results().values(), *self._marked().values()]} == self._lives(a))
        self._point("each device requests the power-off, and has the two lines in its system log",
                    lambda: self._power_offs() == (1, 3) and
                    self._lines == {(member.letter, "2/3"): 2 for member in (a, b, c)})

    def _power_offs(self):
        """How many requests there are, and how often one was written."""
        with self._shared(DEV_GLOBAL) as store:
            return (len(_of_kind(store, POWER)), int(store.execute_command("GET", f"@rev:{POWER}") or 0))

    def _removals(self):
        _, b, c = self._stack.members
        self._screen.heading("Removals are everybody's")
        b.manager.offline("1/4/0")
        self._point("a card that is offline on B alone, which is not the master, loses the stack's result",
                    lambda: "1/4/0" not in self._results() and "1/4/0" not in self._own_results(b) and
                    "1/4/0" in self._own_results(c))
        self._stack.pull("1/4/0")
        self._point("pulled, it has no result on any device", lambda: self._all_judge() and self._is_complete())

    def _another_master(self):
        a, b, _ = self._stack.members
        self._screen.heading("The role of the master goes from A to B")
        before = self._published()
        self._stack.give_role(a, SLAVE)
        self._stack.give_role(b, MASTER)
        self._settle()
        self._point("that publishes nothing by itself", lambda: self._published() == before)
        self._stack.everywhere(lambda member: member.manager.offline("1/2/0"))
        self._settle()
        self._stack.everywhere(lambda member: member.manager.online("1/2/0"))
        self._point("what happens to a card next is published by B",
                    lambda: self._all_judge() and self._is_complete() and
                    {_writer(self._results()["1/2/0"])} <= self._lives(b))

    def _kill_under_load(self):
        self._screen.heading(f"{self._load} cards a device; the master of the group is killed meanwhile")
        slots = range(_FIRST_OF_LOAD, _FIRST_OF_LOAD + self._load)
        positions = [f"{device}/{slot}/0" for slot in slots for device in (1, 2, 3)]
        third = len(positions) // 3
        with Pace(self._count_results) as pace:
            self._stack.plug(*positions[:third])
            killed = programs.wait_until(self._stack.group.present_master, _SECONDS, "the group has a master")
            struck = time.monotonic()
            killed.kill()
            self._stack.plug(*positions[third:2 * third])
            self._stack.plug(*positions[2 * third:], card_type=TOO_OLD)
            self._point("each device has the right verdict on each card", self._all_judge)
            self._point("the stack has each result, and marks the denied ones", self._is_complete)
            self._screen.say(f"         no result came into database 28 for {pace.longest_after(struck):.1f} s")
        killed.start()

    def _count_results(self):
        def count():
            with self._shared(CAP) as store:
                return int(store.execute_command("SCARD", f"@idx:{BY_POSITION}"))
        return _tried(count)

    def _off_and_on(self):
        c = self._stack.members[2]
        self._screen.heading("C is switched off, with its server and sentinel of the group; a card comes; C is back, empty")
        self._stack.turn_off(c)
        self._stack.plug("2/5/0")
        self._point("the others judge it, and the stack has its result", lambda: self._all_judge() and self._is_complete())
        before = programs.wait_until(lambda: _tried(self._published), _SECONDS, "the group has a master")
        self._stack.turn_on(c)
        self._point("C judges every card again, and changes nothing of what the stack has",
                    lambda: self._judges(c) and self._published() == before)

    def _cut(self):
        c = self._stack.members[2]
        self._screen.heading("C is cut off from the group; a card comes that is denied; C is joined again")
        c.gateway.cut()
        self._stack.plug("3/5/0", card_type=TOO_OLD)
        self._point("C judges it all the same, and so do the others; the stack has its result",
                    lambda: self._all_judge() and self._is_complete())
        lives = self._lives(c)
        c.gateway.join()
        self._point("C, which could not request the power-off, checks every card again",
                    lambda: self._all_judge() and self._is_complete() and not self._lives(c) & lives)
