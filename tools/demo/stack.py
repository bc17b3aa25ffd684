"""A stack on one machine: three devices, each with a daemon, modules and a store of its own, and a group of servers
that they share, of which each device has one and a sentinel.

Database 1 is the device's own; 28 and 33 are the stack's. The device manager writes every card into every host store.
"""
import concurrent.futures
import contextlib
import pathlib
import subprocess

from demo import programs
from demo.command import Command
from demo.daemon import Daemon
from demo.device_manager import MASTER, SLAVE, DeviceManager
from demo.gateway import Gateway
from demo.group import Group
from demo.private_view import PrivateView
from demo.records import CAP, DEV_GLOBAL, HOST
from demo.resp import Connection
from demo.store import StoreServer
from demo.supervisor import Supervisor
from demo.system_log import SystemLog

LETTERS = "abc"
MODULES = ("thermal", "firmware")

_SCENARIO = pathlib.Path(__file__).resolve().with_name("stack.scenario")


class Member:
    """One device: what belongs to it alone, and its share of the group."""

    def __init__(self, binaries, folder, group, letter, on_line, env):
        """`on_line(letter, text)` is called for each line of its system log, on a thread of its own; `env` is added to
        the environment of its programs."""
        binaries = pathlib.Path(binaries)
        number = LETTERS.index(letter)
        self.letter = letter
        self.view = PrivateView(folder)
        self.store = StoreServer(self.view.store)
        self.gateway = Gateway(group)
        self.shared = [group.servers[number], group.sentinels[number]]  # what runs on it of the group
        self.role = SLAVE
        self.manager = None  # while it is on
        self.is_on = False
        env = {**{f"VX_MOM_ENDPOINT_{number}": self.gateway.endpoint for number in (CAP, DEV_GLOBAL)}, **env}
        self.cgctl = Command(binaries / "cgctl", self.view, env)
        self._sim = Command(binaries / "cg_sim", self.view, env)
        self._player = None
        self.daemon = Daemon(binaries / "app_cg", self.view, env)
        self.supervisor = None
        self.system_log = SystemLog(self.view.system_log_socket, lambda _, text: on_line(letter, text))
        for name in MODULES:
            (self.view.modules / name).touch()

    def turn_on(self):
        """Starts its store, daemon and modules, and returns when they serve; the group's are started by others."""
        self.store.start()
        self.manager = DeviceManager(self.connect(HOST))
        before = self._starts()
        self.supervisor = Supervisor(self.daemon).__enter__()
        programs.wait_until(lambda: self._starts() > before, 20, f"the daemon of {self.letter} has subscribed")
        self._player = self._sim.start("--stay", _SCENARIO, stdout=subprocess.PIPE, text=True)
        # From then on it answers for each card that comes; those there before would be left to other modules.
        if not any("expectations held" in line for line in self._player.stdout):
            raise RuntimeError(f"cg_sim ended on {self.letter}")
        self.is_on = True

    def _starts(self):
        """How often the daemon has read its modules' folder, just before it subscribes."""
        return self.daemon.logged().count(b"module: num[%d]" % len(MODULES))

    def turn_off(self):
        """Takes its power away, that of its share of the group too."""
        self.is_on = False
        self.manager = None
        for server in self.shared:
            server.kill()
        self.supervisor.kill()
        self.store.kill()
        programs.stop_group(self._player, 9)
        self._player.wait()

    def close(self):
        """Stops everything of its own."""
        programs.stop(self._player)
        if self.supervisor is not None:
            self.supervisor.__exit__()
        self.store.kill()
        self.gateway.close()
        self.system_log.close()

    def connect(self, number):
        """A connection to a database of its own store."""
        return Connection(self.store.socket_path, number)


class Stack:
    """See above; a context manager. The first device holds the role of the master."""

    group_type = Group

    def __init__(self, binaries, folder, **env):
        """`env` is added to the environment of the daemons and commands."""
        self._binaries = binaries
        self._env = env
        self._folder = pathlib.Path(folder)
        self.on_line = lambda letter, text: None  # called for each line of a system log, on a thread of its own
        self.group = None
        self.members = []
        self.cards = {}  # {position: its configured type}; those that are plugged
        self._pool = concurrent.futures.ThreadPoolExecutor(len(LETTERS))
        self._started = contextlib.ExitStack()

    def __enter__(self):
        with contextlib.ExitStack() as started:
            started.callback(self._pool.shutdown)
            self.group = started.enter_context(self.group_type(self._folder / "group"))
            for letter in LETTERS:
                self.members.append(Member(self._binaries, self._folder / letter, self.group, letter,
                                           lambda *line: self.on_line(*line), self._env))
                started.callback(self.members[-1].close)
            self.members[0].role = MASTER
            for member in self.members:
                member.turn_on()
            self.everywhere(lambda member: member.manager.role(member.role))
            self._started = started.pop_all()
        return self

    def __exit__(self, *_):
        self._started.close()

    def everywhere(self, action):
        """Does it for each device that is on, all at the same time; returns {letter: what it returned}."""
        present = [member for member in self.members if member.is_on]
        return dict(zip((member.letter for member in present), self._pool.map(action, present), strict=True))

    # The device manager

    def plug(self, *positions, card_type=200):
        """Plugs cards."""
        self.cards |= dict.fromkeys(positions, card_type)

        def plug_all(member):
            for position in positions:
                member.manager.plug(position, card_type=card_type)
        self.everywhere(plug_all)

    def pull(self, position):
        """Pulls a card."""
        del self.cards[position]
        self.everywhere(lambda member: member.manager.pull(position))

    def give_role(self, member, role):
        """Changes one device's role."""
        member.role = role
        member.manager.role(role)

    @staticmethod
    def turn_off(member):
        """A device loses its power."""
        member.turn_off()

    def turn_on(self, member):
        """A device comes back, with an empty store, and the device manager writes what there is."""
        for server in member.shared:
            server.start()
        member.turn_on()
        member.manager.role(member.role)
        for position, card_type in self.cards.items():
            member.manager.plug(position, card_type=card_type)
