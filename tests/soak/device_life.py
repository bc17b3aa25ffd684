"""What happens to the device: cards come, go and are switched; modules pass, deny, answer late, twice, never, badly.

Everything comes from the seed, a module's behaviour from the position and the number of the request: the same seed
decides the same, whatever the faults do to the order.
"""
import heapq
import itertools
import random
import time

import redis

from demo.device_manager import CARD_TYPE, LINE_CARD
from demo.records import Records, colons, static_info
from gate import BOARD, MASTER
from rig import ACK, BACKUP, CARD_INFO, DEV_GLOBAL, HOST, POWER, REQUEST, ROLE
from stream import DELETED, Contradiction

MODULES = ("alpha", "beta", "gamma", "delta")
STRANGER = "stranger"  # a module that nobody registers
MARKER = "9/1/0"
_BUSY = [f"1/{slot}/0" for slot in range(3, 11)] + ["1/11/1", "2/3/0"]
_CALM = [f"4/{slot}/0" for slot in range(1, 25)]  # where a silent module's time may run out
_SPOILT = [f"3/{slot}/0" for slot in range(1, 4)]  # only bad records are written there
_REASONS = ("too hot", "zu heiß", "firmware 1.2 is older than 1.3", "", "x" * 300)
_PATIENCE = 30  # seconds that a write may be refused while the store or its functions are away

# What a module does with a request: (weight, [(answer after so many seconds, is it a PASS)...]).
_BEHAVIOUR = ((46, ((0, True),)), (14, ((2, True),)), (14, ((0, False),)), (5, ((1.5, False),)),
              (5, ((0, True), (0.3, True))), (4, ((0, False), (0.3, True))), (4, ((0, True), (0.5, False))), (8, ()))


def tipc_node(position, variant):
    """A card's TIPC node; no two positions share one."""
    device, slot, part = map(int, position.split("/"))
    return 10000 * device + 100 * slot + 10 * part + variant


class DeviceLife:
    """See above. All writes go past the store client under test, straight to the server."""

    def __init__(self, store_path, seed):
        self._path = str(store_path)
        self._seed = seed
        self._random = random.Random(f"{seed}/device")
        self._connections = {}
        self._asked = {}  # position: requests so far
        self._due = []  # (when, number, call)
        self._numbers = itertools.count()
        self._cards = {}  # position: is it online
        self.spoilt_answers = set()  # keys of answers that cannot be read: they stay
        self.modules = ()  # those that answer

    def records(self, database):
        """The writer of a database."""
        if database not in self._connections:
            self._connections[database] = redis.Redis(unix_socket_path=self._path, db=database, decode_responses=True,
                                                      encoding_errors="replace")
        return Records(self._connections[database], database)

    def connection(self, database=HOST):
        """A connection of ours to a database."""
        self.records(database)
        return self._connections[database]

    def write(self, database, verb, *arguments):
        """One change, as patient as a real device manager is with a store that is away."""
        deadline = time.monotonic() + _PATIENCE
        while True:
            try:
                return getattr(self.records(database), verb)(*arguments)
            except redis.RedisError as problem:
                if time.monotonic() > deadline:
                    raise Contradiction(f"for {_PATIENCE} s nobody could {verb} {arguments[0]}: {problem}") from problem
                time.sleep(0.02)

    def begin(self):
        """The role, and a card in each slot."""
        self.write(HOST, "set", ROLE, {5: 1, 6: MASTER})
        for position in _BUSY + _CALM:
            self._plug(position)

    def forget(self):
        """The store was emptied, and with it every question."""
        self._due.clear()
        self._cards.clear()
        self.spoilt_answers.clear()

    # Cards

    def step(self):
        """One random thing that happens to the device."""
        actions = ((22, self._plug), (12, self._pull), (14, self._offline), (22, self._online), (4, self._role),
                   (3, self._back_up), (4, self._consume_power), (4, self._spoil_card), (3, self._answer_unasked))
        choice, = self._random.choices([action for _, action in actions], [weight for weight, _ in actions])
        choice(self._random.choice(_BUSY if self._random.random() < 0.8 else _CALM))

    def pause(self):
        """Seconds until the next step."""
        return self._random.expovariate(25)

    def _key(self, position):
        return f"{CARD_INFO}:0:{colons(position)}"

    def _plug(self, position):
        """Another card, or the same again, in a slot that may not be empty."""
        rng = self._random
        is_online, variant = rng.random() < 0.8, rng.randrange(3)
        node_type = BOARD if rng.random() < 0.1 else LINE_CARD
        fields = {6: CARD_TYPE + variant, 12: f"card-{rng.randrange(1000)}", 14: static_info(node_type),
                  17: 100 + int(position.split("/")[1]), 22: tipc_node(position, variant)}
        self.write(HOST, "set", self._key(position), {**fields, **({7: 1} if is_online else {})})
        self._cards[position] = is_online

    def _pull(self, position):
        self.write(HOST, "delete", self._key(position))
        self._cards.pop(position, None)

    def _offline(self, position):
        if self._cards.get(position):
            self.write(HOST, "hmset", self._key(position), {}, [7])
            self._cards[position] = False

    def _online(self, position):
        if self._cards.get(position) is False:
            self.write(HOST, "hmset", self._key(position), {7: 1})
            self._cards[position] = True

    def _role(self, _position):
        self.write(HOST, "set", ROLE, {5: 1, 6: self._random.choice((MASTER, MASTER, MASTER, 2, 3))})

    def _back_up(self, position):
        self.write(HOST, "set", f"{BACKUP}:0:{colons(position)}", {6: CARD_TYPE})

    def _consume_power(self, position):
        self.write(DEV_GLOBAL, "delete", f"{POWER}:{colons(position)}:cap:not%20compatible")

    def _spoil_card(self, _position):
        key = self._key(self._random.choice(_SPOILT))
        self.write(HOST, "set", key, self._random.choice(({6: "many"}, {7: 1}, {7: 1, 14: "\x30"}, {22: 2 ** 40})))

    def _answer_unasked(self, position):
        """An answer that nobody waits for: a stranger's, or about a slot that is empty."""
        self._answer(position, self._random.choice((STRANGER, *MODULES)), self._random.random() < 0.5)

    def flood(self, count):
        """So many long records that say nothing to anybody."""
        for number in range(count):
            self.write(HOST, "set", self._key(_SPOILT[number % len(_SPOILT)]), {7: 1, 12: f"{number}" + "x" * 4000})

    def mark(self, is_there):
        """Plugs or pulls the board by whose results it is seen that the daemon has come so far."""
        if is_there:
            self.write(HOST, "set", self._key(MARKER), {6: CARD_TYPE, 7: 1, 14: static_info(BOARD), 17: 9,
                                                        22: tipc_node(MARKER, 0)})
        else:
            self.write(HOST, "delete", self._key(MARKER))

    # Modules

    def hear(self, changes):
        """Lets the modules hear of what was published; they answer later, in act()."""
        for change in changes:
            if change.kind == REQUEST and change.command != DELETED:
                position = "/".join(change.key.split(":")[2:])
                number = self._asked[position] = self._asked.get(position, 0) + 1
                for module in self.modules:
                    self._consider(position, module, number, change.at)

    def _consider(self, position, module, number, heard_at):
        rng = random.Random(f"{self._seed}/{module}/{position}/{number}")
        answers, = rng.choices([answers for _, answers in _BEHAVIOUR], [weight for weight, _ in _BEHAVIOUR])
        for after, is_pass in answers:
            when = heard_at + after * rng.uniform(0.1, 2) + rng.expovariate(30)
            self._put(when, self._answer, position, module, is_pass, rng.choice(_REASONS))
        if rng.random() < 0.03:
            self._put(heard_at, self._answer_badly, position, module)

    def _put(self, when, call, *arguments):
        heapq.heappush(self._due, (when, next(self._numbers), call, arguments))

    def _answer(self, position, module, is_pass, reason="nobody asked"):
        key = f"{ACK}:{colons(position)}:{module}"
        if not self.modules:
            return  # without modules the daemon reads no answers
        self.write(HOST, "set", key, {} if is_pass else {6: 1, **({7: reason} if reason else {})})
        self.spoilt_answers.discard(key)

    def _answer_badly(self, position, module):
        """Neither PASS nor DENY: the daemon has to leave it alone."""
        key = f"{ACK}:{colons(position)}:{module}"
        self.write(HOST, "set", key, {6: "perhaps"})
        self.spoilt_answers.add(key)

    def act(self):
        """Gives the answers that are due. Returns how many."""
        given = 0
        while self._due and self._due[0][0] <= time.time():
            _, _, call, arguments = heapq.heappop(self._due)
            call(*arguments)
            given += 1
        return given
