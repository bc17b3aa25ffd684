"""Holds what the daemon wrote against the gate's rules: which of its possible lives it may have led at each position.

What is known of a position is a set of states: a node that the daemon may have, with how many of the round's happenings
it has met. While no connection was made, the daemon meets each happening once and in order, and one state remains. When
one was made in the round, or another daemon began, then what was overtaken before it looked again may have escaped it,
and what stands may have come to it again; the daemon's marks, which name what it was handling, decide among these. A
write that no state explains, and a happening that no state has met at the end, is a contradiction.
"""
import collections
import dataclasses
import typing

import gate
from rig import ACK, BACKUP, BY_TIPC, CARD_INFO, CUSTOM_STATUS, POWER, ROLE
from stream import DELETED, Change, Contradiction

OURS = "py-"  # the beginning of our own instance
_EARLY, _LATE = 0.6, 4.0  # seconds that a time-out may miss its time by


def position_of(key):
    """The position, with colons, of a record about a card."""
    kind, _, rest = key.partition(":")
    parts = rest.split(":")
    if kind == BY_TIPC:
        number = int(parts[0])
        return f"{number // 10000}:{number // 100 % 100}:{number // 10 % 10}"
    return ":".join(parts[:3] if kind in (ACK, CUSTOM_STATUS, POWER) else parts[1:4])


class Input(typing.NamedTuple):
    """A happening at a position: its card's information, or an answer."""

    change: Change
    order: int  # in the round
    roles: frozenset  # that the daemon may have when it meets this

    @property
    def cause(self):
        """As a mark names it."""
        return f"{self.change.revision} {self.change.key}"

    @property
    def is_gone(self):
        """Whether the record was deleted."""
        return self.change.command == DELETED


@dataclasses.dataclass
class Group:
    """What the daemon wrote about a position while it handled one thing; answers deleted are counted and not listed."""

    instance: str
    cause: str
    position: str
    at: float
    roles: frozenset
    order: int = 0  # of its power-off among the changes
    writes: list = dataclasses.field(default_factory=list)

    def __str__(self):
        what = ", ".join(f"{key} := {'nothing' if fields is None else fields}" for _, key, fields in self.writes)
        return f"{self.instance} wrote, handling {self.cause!r}: {what or 'no result'}"


class State(typing.NamedTuple):
    """One that the daemon may be in, about one position."""

    node: gate.Node
    cards: int  # met so far
    answers: int


@dataclasses.dataclass
class Round:
    """What is known of the time between two quiet points besides the changes."""

    is_lossy: bool  # the daemon may have missed something
    deaths: int  # of the daemon
    modules: tuple  # the registry
    gives_up: bool = False  # a write may have been given up before the daemon ended


@dataclasses.dataclass
class Known:
    """What was true at a quiet point."""

    instance: str = ""
    role: int = 0
    nodes: dict = dataclasses.field(default_factory=dict)  # position: the nodes that there may be
    cards: dict = dataclasses.field(default_factory=dict)  # position: the change that stands
    standing: frozenset = frozenset()  # the daemon's records: (database, key)
    lines: tuple = ()  # due in the system log since the quiet point before, in their order


class _Reading:
    """The changes of a round by position: happenings and the daemon's groups."""

    def __init__(self, known, changes, round_):
        self.lives = [known.instance] if known.instance else []
        self.role = known.role
        self.cards = collections.defaultdict(list)
        self.answers = collections.defaultdict(list)
        self.groups = collections.defaultdict(list)
        self.last_words = {}  # a life's last group
        self._last = None
        roles = [known.role] + [int(change.fields.get("6", "0")) for change in changes if change.kind == ROLE]
        self._all_roles = frozenset(roles + [0] * (round_.deaths > 0))
        self._is_lossy = round_.is_lossy
        for order, change in enumerate(_as_written(changes) if round_.gives_up else changes):
            if change.kind == ROLE:
                self.role = int(change.fields.get("6", "0"))
            elif not change.mark.startswith(OURS):
                self._take_write(change, order)
            elif change.kind == CARD_INFO or change.kind == ACK and change.command != DELETED:
                self._take_input(change, order)
            elif change.kind not in (ACK, BACKUP, POWER):
                raise Contradiction(f"another writer changes a record of the daemon's: {change}")

    def _roles(self):
        return self._all_roles if self._is_lossy else frozenset([self.role])

    def _take_input(self, change, order):
        inputs = self.cards if change.kind == CARD_INFO else self.answers
        inputs[position_of(change.key)].append(Input(change, order, self._roles()))

    def _take_write(self, change, order):
        if change.instance not in self.lives:
            self.lives.append(change.instance)
        if change.kind == BACKUP:
            return
        position, last = position_of(change.key), self._last
        is_timer = change.cause == "timer"
        if (last is None or (last.instance, last.cause, last.position) != (change.instance, change.cause, position) or
                is_timer and change.kind == BY_TIPC):
            roles = self._all_roles if is_timer else self._roles()
            self._last = Group(change.instance, change.cause, position, change.at, roles)
            self.groups[position].append(self._last)
            self.last_words[change.instance] = self._last
        if change.kind == POWER:
            self._last.order = order
        if change.kind != ACK:
            self._last.writes.append((change.database, change.key,
                                      None if change.command == DELETED else change.fields))


def _as_written(changes):
    """A store that woke carries out what the daemon gave up, maybe after what it wrote next on another connection."""
    writes = collections.defaultdict(list)
    for index, change in enumerate(changes):
        if not change.mark.startswith(OURS):
            writes[change.instance].append(index)
    ordered = list(changes)
    for places in writes.values():
        for place, source in zip(places, sorted(places, key=lambda index: changes[index].number)):
            ordered[place] = changes[source]
    return ordered


class _Position:
    """One position in one round."""

    def __init__(self, known, reading, round_, position, time_out):
        self._position = position
        self._round = round_
        self._time_out = time_out
        self._standing = set(known.standing)
        self._denials = []  # (order of the power-off, lines of the system log)
        self._steps_known = {}
        self._named = collections.Counter()  # what the groups ahead, of this life, were about
        base = known.cards.get(position)
        before = [Input(base, -1, reading._roles())] if base else []
        self._cards = before + reading.cards[position]
        self._answers = reading.answers[position]
        self._groups = reading.groups[position]
        self._lives = reading.lives
        self._last_words = reading.last_words
        self.states = {State(node, len(before), 0) for node in known.nodes.get(position, {None})}

    def judge(self, now):
        """Goes through all lives; returns the nodes that there may be at the end, and the denials."""
        for number, life in enumerate(self._lives):
            if number > 0:
                self.states = {State(None, 0, 0)}  # a daemon that starts meets what stands, then what follows
            groups = [group for group in self._groups if group.instance == life]
            self._named = collections.Counter(group.cause for group in groups)
            for group in groups:
                self._named[group.cause] -= 1
                is_dying = number < len(self._lives) - 1 and (
                    group is self._last_words[life] or self._round.gives_up)
                self._match(group, is_dying)
        before = self._closure(self.states)
        ends = {state for state in before if state[1:] == (len(self._cards), len(self._answers))}
        nodes = {state.node for state in ends}
        if not nodes:
            self._refute("has not handled", before)
        in_time = {node for node in nodes if node is None or
                   all(now - timer < self._time_out + _LATE for timer in node.timers)}
        if not in_time:
            raise Contradiction(f"{self._position}: the time is up and nothing was written: {nodes}")
        return in_time, self._denials

    def _around(self, role, at):
        return gate.Circumstances(self._position, role, self._round.modules, at)

    def _card_step(self, node, index, role, at):
        """(node, writes) after the card's happening number `index`."""
        known = (node, index, role, at)
        if known not in self._steps_known:
            happening = self._cards[index]
            step = gate.gone if happening.is_gone else gate.card
            self._steps_known[known] = step(node, happening.change.fields, self._around(role, at))
        return self._steps_known[known]

    def _steps(self, state, at, cause=None):
        """Every (state, writes) to which the next happening may lead; with `cause` only those that it names."""
        is_lossy = self._round.is_lossy
        card = self._cards[state.cards] if state.cards < len(self._cards) else None
        answer = self._answers[state.answers] if state.answers < len(self._answers) else None
        is_card_next = card and (is_lossy or not answer or card.order < answer.order)
        is_answer_next = answer and (is_lossy or not card or answer.order < card.order)
        if is_card_next and cause in (None, card.cause):
            for role in card.roles:
                node, writes = self._card_step(state.node, state.cards, role, at)
                yield State(node, state.cards + 1, state.answers), writes
        if is_answer_next and (cause == answer.cause or cause is None and not self._named[answer.cause]):
            module = gate.module_of(answer.change.key)[1]
            for role in answer.roles:
                node, writes = gate.answer(state.node, module, answer.change.fields, self._around(role, at))
                yield State(node, state.cards, state.answers + 1), writes
        if is_lossy:
            yield from self._lossy_steps(state, at, cause)

    def _lossy_steps(self, state, at, cause):
        answer = self._answers[state.answers] if state.answers < len(self._answers) else None
        if answer and cause == "connection":  # one that was unknown when it was deleted is reported as it was
            for role in answer.roles:
                node, writes = gate.answer(state.node, gate.module_of(answer.change.key)[1], answer.change.fields,
                                           self._around(role, at))
                yield State(node, state.cards, state.answers + 1), writes
        last = self._cards[state.cards - 1] if state.cards else None
        if last and not last.is_gone and cause in (None, last.cause):  # what stands comes again
            for role in last.roles:
                node, writes = self._card_step(state.node, state.cards - 1, role, at)
                yield State(node, *state[1:]), writes
        for index in range(state.cards, len(self._cards)) if cause in (None, "connection") else ():
            for role in self._cards[index].roles if self._cards[index].is_gone else ():
                # One that was unknown when it was deleted is reported as it was, and then as gone.
                node, writes = gate.card(state.node, self._cards[index].change.fields, self._around(role, at))
                yield State(node, index, state.answers), writes
                if last and not last.is_gone:  # one that was known has vanished
                    node, writes = gate.gone(state.node, last.change.fields, self._around(role, at))
                    yield State(node, index + 1, state.answers), writes
        if cause is None:  # overtaken
            is_final = state.cards == len(self._cards) - 1
            if state.cards < len(self._cards) and (
                    not is_final or self._cards[state.cards].is_gone and state.node is None):
                yield State(state.node, state.cards + 1, state.answers), []
            if state.answers < len(self._answers) and not self._named[self._answers[state.answers].cause]:
                yield State(state.node, state.cards, state.answers + 1), []

    def _visible(self, writes):
        """Deletions of what is not there are not published."""
        standing, seen = set(self._standing), []
        for database, key, fields in writes:
            if fields is not None:
                standing.add((database, key))
            elif (database, key) in standing:
                standing.discard((database, key))
            else:
                continue
            seen.append((database, key, fields))
        return seen

    def _closure(self, states):
        """All states that are reached without a visible write."""
        reached, new = set(states), list(states)
        while new:
            for state, writes in self._steps(new.pop(), 0):
                if state not in reached and not self._visible(writes):
                    reached.add(state)
                    new.append(state)
        return reached

    def _match(self, group, is_dying):
        before = self._closure(self.states)
        self.states = set()
        for state in before:
            for after, writes in self._handle(state, group):
                expected = self._visible(writes)
                if expected == group.writes or is_dying and _is_part(group.writes, expected):
                    self.states.add(after)
        if not self.states:
            self._refute(str(group), before, group)
        self._standing.difference_update((database, key) for database, key, fields in group.writes if fields is None)
        self._standing.update((database, key) for database, key, fields in group.writes if fields is not None)
        if any(key.startswith(POWER) for _, key, _ in group.writes):
            self._note_denial(group)

    def _handle(self, state, group):
        if group.cause != "timer":
            yield from self._steps(state, group.at, group.cause)
            return
        for timer in set(state.node.timers if state.node else ()):
            for role in group.roles if group.at - timer > self._time_out - _EARLY else ():
                node, writes = gate.time_out(state.node, timer, self._around(role, group.at))
                yield State(node, *state[1:]), writes

    def _note_denial(self, group):
        handled = [state.answers - 1 for state in self.states if state.answers] if group.cause == "connection" else []
        for index, answer in enumerate(self._answers):
            if answer.cause == group.cause or index in handled[:1]:
                module = gate.module_of(answer.change.key)[1]
                lines = gate.system_log_lines(self._position, module, answer.change.fields.get("7", ""))
                self._denials.append((group.order, lines))

    def _refute(self, what, states, group=None):
        """Raises, with what was possible instead."""
        rest = [str(one.change) for one in self._cards + self._answers][-8:]
        could = []
        for state in list(states)[:4]:
            handled = [self._visible(writes) for _, writes in self._handle(state, group)] if group else "-"
            could.append(f"  with {state}: {handled}")
        text = "\n  ".join(rest)
        raise Contradiction(f"the daemon, at {self._position}: {what}\nexpected, by the gate's rules:\n" +
                            "\n".join(could) + f"\nof these happenings:\n  {text}")


def _is_part(some, everything):
    rest = iter(everything)
    return all(write in rest for write in some)


def judge(known, changes, round_, now, time_out):
    """What is true after a round, from what was true before it; raises Contradiction."""
    reading = _Reading(known, changes, round_)
    if len(reading.lives) > 1 + round_.deaths:
        raise Contradiction(f"the daemon ended {round_.deaths} times, and {reading.lives} have written")
    after = Known(reading.lives[-1] if reading.lives else "", reading.role)
    denials = []
    places = set(reading.cards) | set(reading.answers) | set(reading.groups) | set(known.nodes)
    standing = set(known.standing)
    for place in sorted(places):
        position = _Position(known, reading, round_, place, time_out)
        after.nodes[place], denied = position.judge(now)
        denials += denied
        last = reading.cards[place][-1].change if reading.cards[place] else known.cards.get(place)
        if last and last.command != DELETED:
            after.cards[place] = last
        elif after.nodes[place] == {None}:
            del after.nodes[place]
    for change in changes:
        if change.kind not in (CARD_INFO, ACK, ROLE, BACKUP):
            (standing.discard if change.command == DELETED else standing.add)((change.database, change.key))
    after.standing = frozenset(standing)
    after.lines = tuple(line for _, lines in sorted(denials) for line in lines)
    return after
