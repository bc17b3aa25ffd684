"""The chassis of the demonstration: its programs, in a private place."""
import contextlib
import pathlib
import re
import subprocess
import sys

from demo import programs
from demo.command import Command
from demo.daemon import Daemon, scaled_time
from demo.private_view import PrivateView
from demo.store import StoreServer
from demo.system_log import SystemLog

MODULES = ("thermal", "firmware", "power")  # those that the scenario plays
SPEED = 20  # how many times faster the daemon's clock runs

_SCENARIO = pathlib.Path(__file__).resolve().with_name("chassis.scenario")


class Chassis:
    """A store server and the daemon; a context manager that stops what it started."""

    def __init__(self, binaries, folder, screen):
        binaries = pathlib.Path(binaries)
        self._screen = screen
        self.view = PrivateView(folder)
        self.cgctl = Command(binaries / "cgctl", self.view)
        self._sim = Command(binaries / "cg_sim", self.view)
        self._daemon = Daemon(binaries / "app_cg", self.view, scaled_time(SPEED))
        self._started = contextlib.ExitStack()

    def __enter__(self):
        with contextlib.ExitStack() as started:
            self._start_all(started)
            self._started = started.pop_all()
        return self

    def __exit__(self, *_):
        self._started.close()

    def _start_all(self, started):
        store = StoreServer(self.view.store)
        started.callback(store.stop)
        store.start()
        log = SystemLog(self.view.system_log_socket, self._system_log_line)
        started.callback(log.close)
        for name in MODULES:
            (self.view.modules / name).touch()
        started.callback(self._daemon.stop)
        self._daemon.start()
        programs.wait_until(self._knows_modules, 20, "the daemon has read its modules' folder")

    def _knows_modules(self):
        if not self._daemon.is_running:
            raise RuntimeError(f"the daemon ended with status {self._daemon.wait()}: {self._daemon.complained()}")
        # From its log, so that the demonstration needs no command. The subscriptions follow.
        return b"module: num[%d]" % len(MODULES) in self._daemon.logged()

    def _system_log_line(self, _severity, text):
        slot = re.search(r"slot (-?\d+/-?\d+)", text)
        self._screen.event(f"{slot.group(1)}/-" if slot else "", f"system log: {text}", "notice")

    def play(self, stay):
        """Starts to play the scenario; returns the Popen, whose output is what came of it.

        The events go where our own output goes. With `stay` it goes on playing the modules at the end.
        """
        sys.stdout.flush()
        player = self._sim.start("--speed", SPEED, *(["--stay"] if stay else []), _SCENARIO,
                                 stdout=subprocess.PIPE, stderr=sys.stdout, text=True)
        self._started.callback(programs.stop, player)
        return player
