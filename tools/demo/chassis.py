"""The chassis of the demonstration: its programs, and what can be done to its cards."""
import contextlib
import pathlib
import re
import subprocess
import time

from demo import programs
from demo.cgctl import Cgctl
from demo.daemon import Daemon, scaled_time
from demo.events import Narrator
from demo.private_view import PrivateView
from demo.store import StoreServer
from demo.system_log import SystemLog

MODULES = ("thermal", "firmware", "power")
SPEED = 20  # how many times faster the daemon's clock runs

_MODULE_PROGRAMS = pathlib.Path(__file__).resolve().parent / "modules"
_GONE = "gone"
_PACE_S = 1


class Chassis:
    """A store server, the daemon, the check modules; a context manager that stops what it started."""

    def __init__(self, binaries, folder, screen):
        binaries = pathlib.Path(binaries)
        self._screen = screen
        self.view = PrivateView(folder)
        self.cgctl = Cgctl(binaries / "cgctl", self.view)
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
        narrator = Narrator(self._screen, self.view.log / "app_cg.log")
        log = SystemLog(self.view.system_log_socket, narrator.system_log_line)
        started.callback(log.close)
        watch = self.cgctl.start("watch", "--json", *narrator.types, stdout=subprocess.PIPE, text=True)
        started.callback(programs.stop, watch)
        narrator.follow(watch)
        programs.wait_until(narrator.is_following, 10, "the watch has subscribed")

        for name in MODULES:
            (self.view.modules / name).touch()
        started.callback(self._daemon.stop)
        self._daemon.start()
        programs.wait_until(self._knows_modules, 20, "the daemon has subscribed")
        for name in MODULES:
            module = self.cgctl.start("module", "run", name, "--timeout", 3600, "--", _MODULE_PROGRAMS / f"{name}.sh")
            started.callback(programs.stop, module)

    def _knows_modules(self):
        if not self._daemon.is_running:
            raise RuntimeError(f"the daemon ended with status {self._daemon.wait()}: {self._daemon.complained()}")
        found = re.search(r"app_cg_wait_obj_num (\d+)", self.cgctl.attempt("debug", "dump_check_module").stdout)
        return found and int(found.group(1)) == len(MODULES)

    def caption(self, text):
        """Says what comes next, and leaves the eyes a moment for what came before."""
        time.sleep(_PACE_S)
        self._screen.caption(text)

    def verdicts(self):
        """The verdict of every card that the store knows, by position."""
        return {card["card"]: card["verdict"] for card in self.cgctl.json("list")["cards"]}

    def wait_for(self, position, verdict, seconds=20):
        """Waits until the card has this verdict; "gone" is the verdict of no card."""
        programs.wait_until(lambda: self.verdicts().get(position, _GONE) == verdict, seconds,
                            f"card {position} is {verdict}")
