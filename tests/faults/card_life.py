"""Everything that can happen to cards, as a drive: what the chassis does, and what must have come of it.

The chassis and the modules write straight into the store; only the daemon has the faulty connection. Every step
waits for what it leads to, so that the daemon's calls come in one order only, and the same call is the same
call in every run.

A daemon that was killed cannot know what it was about to remove; the next change of the card, or the next card
in its slot, makes that good. So after a kill a removal counts as done when the next daemon has checked what it found,
and the drive ends with another card in the slot that was emptied.

The next daemon checks every card on line again, and may not even run yet when the store looks finished. Its own calls
tell when it is through: it has asked for each of these cards, and taken the request back.
"""
import contextlib
import dataclasses

import redis

from demo.daemon import scaled_time
from demo.device_manager import DeviceManager
from demo.records import colons
from demo.supervisor import Supervisor
from device import Modules
from proxy import KillBefore, Proxy, is_call
from rig import ACK, BACKUP, BY_TIPC, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, POWER, REQUEST

DENIED, PASSED = "1/3/0", "1/4/0"
BOARD = "1/2/0"
SILENT = "1/5/0"
REASON = "wrong colour"
_OPINIONS = {("m2", DENIED): REASON, ("m2", SILENT): None}
_ANSWERS = 2  # of the modules m1 and m2, for each request

# Written for what is wrong with the store or with what is believed of it.
_LOSSES = (" type 1", " failed", ", rv ", "rv -", "given up", "left out", "refuse", "missing", "did not arrive",
           "cannot", "does not decode", "is none", "error_code")


@dataclasses.dataclass
class Outcome:
    """What is left at the end of a life."""

    records: dict  # {database: {key: fields}}
    commands: list  # the counted commands of the daemon
    struck: str  # the command at which the fault happened
    ends: list  # the statuses that the daemon ended with on the way
    system_log: list
    log: str

    def calls(self):
        """The commands as far as they are the same in every life: what is done, and to what."""
        return [" ".join(command.split()[:4]) for command in self.commands]

    def losses(self):
        """The lines of the daemon's log that tell of something lost."""
        return [line for line in self.log.splitlines() if any(text in line for text in _LOSSES)]


def live(make_rig, fault=None, at=None, counted=is_call, kind=None):
    """Lives a life (a CardLife by default) in a rig of its own, with a fault at one command. Returns the outcome."""
    with contextlib.ExitStack() as stack:
        rig = stack.enter_context(contextlib.closing(make_rig()))
        proxy = stack.enter_context(Proxy(rig.store.socket_path, rig.view.run / "store.sock", counted))
        if fault is not None:
            proxy.arm(at, fault)
        life = (kind or CardLife)(rig, proxy, stack, is_killing=isinstance(fault, KillBefore))
        life.begin()
        life.drive()
        commands = proxy.commands()
        life.settle()
        return Outcome(records(rig), commands, proxy.struck, life.supervisor.ends,
                       [text for _, text in rig.system_log.lines()], rig.logged())


def without_marks(fields):
    """A record's fields without those that belong to its writing."""
    return {name: value for name, value in fields.items() if name not in ("rev", "by")}


def records(rig):
    """All records of the daemon's databases."""
    found = {}
    for number in (HOST, CAP, DEV_GLOBAL):
        database = rig.database(number)
        keys = sorted(key for key in database.scan_iter() if not key.startswith("@"))
        found[number] = {key: without_marks(database.hgetall(key)) for key in keys}
        listed = {key for index in database.scan_iter("@idx:*") for key in database.smembers(index)}
        assert listed == set(keys), f"index and records of database {number} differ"
    return found


class CardLife:
    """One life."""

    @staticmethod
    def environment():
        """What is added to the daemon's environment."""
        return {}

    def __init__(self, rig, proxy, stack, is_killing):
        self.rig = rig
        self._proxy = proxy
        self._stack = stack
        self._is_killing = is_killing
        self._has_recovered = False
        self._served_before = 0  # as the present daemon was started
        self.supervisor = None
        self._modules = None
        self._markers = 0
        self._chassis = DeviceManager(rig.database(HOST))

    def begin(self):
        """A main board with a stale backup, and the role, were there before the daemon, which subscribes."""
        rig = self.rig
        rig.modules("m1", "m2")
        rig.level("2\n")
        rig.role("master")
        self._chassis.plug(BOARD, node_type=2)
        self._chassis.records.set(f"{BACKUP}:0:{BOARD.replace('/', ':')}", {6: 200})
        daemon = rig.new_daemon(VX_MOM_ENDPOINT="unix:/run/store.sock", **self.environment())
        self.supervisor = self._stack.enter_context(Supervisor(daemon, self._note_start))
        rig.expect(self._serves, "the daemon subscribes")
        self._modules = self._stack.enter_context(contextlib.closing(Modules(
            self._connect, ("m1", "m2"), lambda name, position: _OPINIONS.get((name, position), ""))))
        self._modules.wait_until_watching()

    def _times_served(self):
        return sum("app_cg_check_ack_pmsg_f" in line and "subscribe ok" in line
                   for line in self.rig.logged().splitlines())

    def _note_start(self):
        self._served_before = self._times_served()

    def _serves(self):
        """Whether the present daemon has made the last of its subscriptions, and so has seen all cards."""
        return self._times_served() > self._served_before

    def _connect(self):
        return redis.Redis(unix_socket_path=str(self.rig.store.socket_path), db=HOST, decode_responses=True)

    def drive(self):
        """From the role to the card that follows another in its slot."""
        chassis = self._chassis
        chassis.role()
        self._checked(lambda: chassis.plug(DENIED), self._is_denied, "the first card is denied")
        self._checked(lambda: chassis.plug(PASSED), self._is_passed, "the second card is passed")
        self._removal(lambda: chassis.offline(PASSED), "the results of the card off line are gone")
        self._checked(lambda: chassis.online(PASSED), self._is_passed, "the card is passed again")
        self._removal(lambda: chassis.pull(PASSED), "the results of the card pulled are gone")
        self._checked(lambda: chassis.plug(PASSED), self._is_passed, "the next card in the slot is passed")

    def _checked(self, action, condition, what):
        """A step that ends with a verdict, and with nothing left of the check."""
        answers = self._modules.answers + _ANSWERS
        action()
        self.rig.expect(lambda: self._modules.answers >= answers and self._is_idle() and condition(), what)
        self._recover()

    def _removal(self, action, what):
        """A step that ends with the results of a card gone, unless the daemon was killed over it."""
        action()
        self.rig.expect(lambda: self._is_unknown() or self._is_struck(), what)
        self._recover()

    def _is_struck(self):
        return self._is_killing and self._proxy.struck is not None

    def _recover(self):
        """After the kill: waits until the next daemon serves and has checked again what it found."""
        if self._is_struck() and not self._has_recovered:
            self.rig.expect(lambda: self.supervisor.restarts > 0 and self._serves(), "the next daemon serves")
            self.rig.expect(self._has_checked_all, "the cards that it found are checked again")
            self.rig.expect(self._is_idle, "nothing is left of these checks")
            self._has_recovered = True

    def _has_checked_all(self):
        """Whether the next daemon has begun and ended a check of every card on line."""
        calls = self._proxy.commands_of_others()
        return all(self._is_checked(calls, f"{REQUEST}:0:{colons(position)}") for position in self._chassis.checked)

    @staticmethod
    def _is_checked(calls, request):
        functions = [call.split()[1] for call in calls if request in call.split()[3:4]]
        begun = [number for number, function in enumerate(functions) if function.endswith("set")]
        return bool(begun) and any(function.endswith("del") for function in functions[begun[0]:])

    def _is_idle(self):
        """Whether nothing is left of any check, and no module has a request before it."""
        rig = self.rig
        changes = int(rig.database(HOST).get(f"@rev:{REQUEST}") or 0)
        return self._modules.handled >= changes and not rig.keys(HOST, ACK) and not rig.keys(HOST, REQUEST)

    def _is_denied(self):
        rig = self.rig
        return (rig.by_tipc(3).get("7") == "3" and rig.by_tipc(3).get("6", "0") == DENY and
                rig.by_position(DENIED).get("7") == "200" and rig.by_position(DENIED).get("6", "0") == DENY and
                rig.keys(DEV_GLOBAL, CUSTOM_STATUS) and rig.keys(DEV_GLOBAL, POWER))

    def _is_passed(self):
        return self.rig.by_tipc(4).get("6") == PASS and self.rig.by_position(PASSED).get("6") == PASS

    def _is_unknown(self):
        return not self.rig.by_tipc(4) and not self.rig.by_position(PASSED)

    def settle(self):
        """Ends the life: returns when the daemon has handled every change up to now, and nothing can strike it any more.

        How many calls there are is not the same in every life: several changes that arrive together cost one question
        for their counter. So the fault may be due at a call that comes after the drive, or after the first marker.
        """
        self._mark()
        while self._proxy.is_armed:
            self._mark()
        if self._is_struck() and not self._has_recovered:
            self._recover()  # the marker was forgotten with the daemon's last breath
            self._mark()

    def _mark(self):
        """Returns when the daemon has handled every change of cards up to now: a main board leaves its traces.

        In several databases, one after the other: who waits for one reads the others too early.
        """
        self._markers += 1
        slot = 100 + self._markers
        while not self._marked(f"9/{slot}/0", 9000 + slot, (f":{9000 + slot}", f":9:{slot}:0")):
            self._recover()  # the same card in its slot makes good what the kill left undone

    def _marked(self, position, tipc_node, ends):
        """Plugs and pulls a main board. Returns whether the daemon lived to forget it."""
        rig = self.rig
        restarts = self.supervisor.restarts

        def is_forgotten():
            return not any(key.endswith(ends) for number in (HOST, CAP, DEV_GLOBAL)
                           for key in rig.database(number).scan_iter())

        self._chassis.plug(position, node_type=2)
        rig.expect(lambda: rig.record(HOST, BY_TIPC, tipc_node) and rig.by_position(position),
                   "the daemon handles the marker card")
        self._chassis.pull(position)
        rig.expect(lambda: is_forgotten() or self.supervisor.restarts > restarts, "the daemon forgets the marker card")
        return is_forgotten()


class SilentLife(CardLife):
    """The life of a card to which one module says nothing: its time runs out, a hundred times as fast."""

    environment = staticmethod(lambda: scaled_time(100))

    def drive(self):
        """One card, until it is admitted."""
        self._chassis.plug(SILENT)
        rig = self.rig
        rig.expect(lambda: rig.by_tipc(5).get("6") == PASS and rig.by_position(SILENT) and self._is_idle(),
                   "the card of the silent module is passed")
        self._recover()
