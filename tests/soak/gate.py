"""The gate once more, as plain functions: what becomes of one card's node, and what is written, when something happens.

It follows the rules that README and store format promise, odd ones included, and shares no line with the daemon.
Nothing here knows of connections or lives: which happenings the daemon has met is the judge's affair.
"""
import dataclasses
import typing

from rig import ACK, BY_POSITION, BY_TIPC, CAP, CUSTOM_STATUS, DEV_GLOBAL, HOST, POWER, REQUEST

BOARD = 2  # node type of a main board
MASTER = 1
UNDECIDED, PASSED, DENIED = range(3)


class Node(typing.NamedTuple):
    """What the daemon remembers of a position."""

    bits: int  # the modules waited for
    node_type: int = 0
    card_type: int = 0
    node_id: int = 0
    tipc: int = 0
    is_online: bool = False
    stat: int = UNDECIDED
    is_reported: bool = False
    timers: tuple = ()  # when each was armed
    armed: float = None  # the one armed last, unless it was cancelled or has fired

    def but(self, **changes):
        """This node with something else in it."""
        return self._replace(**changes)


@dataclasses.dataclass(frozen=True)
class Circumstances:
    """What else decides."""

    position: str  # with colons
    role: int
    modules: tuple  # the registry, in its order
    at: float

    def key(self, kind, tail=""):
        """The key of a record about the position."""
        return f"{kind}:0:{self.position}{tail}"


def content(**fields):
    """A record's fields without those at their defaults: content(_6=1)."""
    return {name[1:]: str(value) for name, value in fields.items() if value != 0}


def is_complete(record):
    """Whether card information has all parts and decodes; no other says anything to the daemon."""
    return len(record.get("14", "")) == 4 and record.get("7", "1") == "1"


def _number(record, name):
    return int(record.get(name, "0"))


def _result(node, around, stat):
    """The three results: a PASS takes a custom status back."""
    stored = 1 if stat == PASSED else 0
    writes = [(HOST, f"{BY_TIPC}:{node.tipc}", content(_6=stored, _7=node.node_type))]
    if around.role == MASTER:
        mark = (DEV_GLOBAL, custom_status(around.position))
        writes += [(CAP, around.key(BY_POSITION), content(_6=stored, _7=node.card_type, _8=node.node_id)),
                   (*mark, None) if stat == PASSED else (*mark, content(_6=2, _7=2))]
    return writes


def custom_status(position):
    """The key of the mark of a card that may not start."""
    return f"{CUSTOM_STATUS}:{position}:APP_CG:not%20compatible"


def _withdraw(node, around):
    timers = tuple(timer for timer in node.timers if timer != node.armed)
    return node.but(timers=timers, armed=None), [(HOST, around.key(REQUEST), None)]


def gone(node, record, around):
    """The card's information was deleted."""
    if not is_complete(record):
        return node, []
    writes = [(HOST, f"{BY_TIPC}:{_number(record, '22')}", None)]
    if around.role == MASTER:
        writes += [(CAP, around.key(BY_POSITION), None), (DEV_GLOBAL, custom_status(around.position), None)]
    return None, writes + ([(HOST, around.key(REQUEST), None)] if node else [])


def card(node, record, around):
    """The card's information was written."""
    if not is_complete(record):
        return node, []
    node = node or Node(bits=(1 << len(around.modules)) - 1)
    is_online = record.get("7") == "1"
    notify = is_online and not node.is_online
    writes = []
    old = [(HOST, f"{BY_TIPC}:{_number(record, '22')}", None), (CAP, around.key(BY_POSITION), None)]
    if notify and node.stat == DENIED:
        writes += old
    node = node.but(node_type=ord(record["14"][3]), card_type=_number(record, "6"), node_id=_number(record, "17"),
                    tipc=_number(record, "22"), is_online=is_online)
    if node.node_type == BOARD or not around.modules:
        if not (node.is_reported and node.stat == PASSED):
            writes += _result(node, around, PASSED)
        return node.but(stat=PASSED, is_reported=True), writes
    if not is_online:
        writes += old if node.stat == PASSED else []
        writes += [(DEV_GLOBAL, custom_status(around.position), None)] if around.role == MASTER else []
        node, taken = _withdraw(node.but(stat=UNDECIDED, is_reported=False), around)
        writes += taken
    if notify:
        request = content(_6=node.card_type, _7=node.node_type, _8=node.node_id)
        writes.append((HOST, around.key(REQUEST), request))
        node = node.but(timers=(*node.timers, around.at), armed=around.at)
    return node, writes


def answer(node, module, record, around):
    """A module's answer was written. (That it is deleted is not among the writes: somebody else may have done it.)"""
    if node is None or module not in around.modules or not record.get("6", "0").lstrip("-").isdigit():
        return node, []
    if record.get("6", "0") != "0":
        if node.stat == DENIED and node.is_reported:
            return node, []
        node = node.but(stat=DENIED)
    else:
        node = node.but(bits=node.bits & ~(1 << around.modules.index(module)))
        if node.bits or (node.stat == PASSED and node.is_reported):
            return node, []
        node = node.but(stat=PASSED)
    writes = _result(node, around, node.stat)
    if node.stat == DENIED:
        writes.append((DEV_GLOBAL, f"{POWER}:{around.position}:cap:not%20compatible", {}))
    node, taken = _withdraw(node.but(is_reported=True), around)
    return node, writes + taken


def time_out(node, timer, around):
    """A timer fired."""
    writes = _result(node, around, PASSED) + [(HOST, around.key(REQUEST), None)]
    timers = list(node.timers)
    timers.remove(timer)
    return node.but(stat=PASSED, is_reported=True, bits=0, timers=tuple(timers), armed=None), writes


def system_log_lines(position, module, reason):
    """What the system log says of a denial."""
    place = position.rsplit(":", 1)[0].replace(":", "/")
    return [f"Card in slot {place} will be disabled due to reason: {reason or module + ' not compatible'}.",
            f"Card in slot {place} will be controlled to shutdown for not compatible."]


def module_of(key):
    """Position (with colons) and module of an answer's key."""
    position, _, module = key[len(ACK) + 1:].rpartition(":")
    return position, module
