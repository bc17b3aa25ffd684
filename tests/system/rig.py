"""A device under test: the daemon as it was built, on a store server of its own, in a view of its own.

The words here are the domain's: plug a card, let a module answer, expect. What the daemon has written is read
past our own store client, straight from the server.
"""
import contextlib
import os
import pathlib
import shutil
import socket

import redis

from demo.command import Command
from demo.daemon import Daemon, scaled_time
from demo.private_view import PrivateView, new_folder
from demo.programs import wait_until
from demo.records import (ACK, BACKUP, BY_POSITION, BY_TIPC, CAP, CARD_INFO, CUSTOM_STATUS, DENY,  # noqa: F401
                          DEV_GLOBAL, HOST, PASS, POWER, REQUEST, ROLE)
from demo.store import StoreServer
from demo.system_log import SystemLog

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("APP_CG_BUILD", PROJECT / "build" / "dev"))
# The daemon may come from another build than the tools: from one under sanitizers.
DAEMON = BUILD / "bin" / "app_cg"

LEVEL_FILE = ".vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt"  # below /data


def fill_queue(path):
    """Leaves no room in the queue of a datagram socket that nobody reads."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender, contextlib.suppress(BlockingIOError):
        sender.setblocking(False)
        while True:
            sender.sendto(b"x", path)


class Rig:
    """See above. Every test has one of its own; close() stops and removes all of it."""

    def __init__(self):
        self.folder = new_folder("cg-")
        self.view = PrivateView(self.folder)
        self.store = StoreServer(self.view.store)
        self.store.start()
        self.global_store = None  # of databases 28 and 33, where they are apart
        self._settings = {}
        self.system_log = SystemLog(self.view.system_log_socket)
        self.cgctl = Command(BUILD / "bin" / "cgctl", self.view)
        self.sim = Command(BUILD / "bin" / "cg_sim", self.view)
        self.daemon = None
        self._daemons = []
        self._databases = {}
        self._markers = 0

    def close(self):
        """Stops what was started and removes the folder; the test fails when a daemon ends badly."""
        problems = []
        for daemon in self._daemons:
            problems += self._end(daemon)
        for database in self._databases.values():
            database.close()
        self.system_log.close()
        self.store.kill()
        if self.global_store is not None:
            self.global_store.kill()
        shutil.rmtree(self.folder)
        assert not problems, "\n".join(problems)

    @staticmethod
    def _end(daemon):
        """Stops a daemon; returns what was wrong with it, a sanitizer's findings included."""
        problems = []
        if daemon.is_running:
            daemon.stop()
            if daemon.wait() != 0:
                problems.append(f"SIGTERM ended the daemon with status {daemon.wait()}")
        if "Sanitizer" in daemon.complained() or "runtime error:" in daemon.complained():
            problems.append(daemon.complained())
        return problems

    # The daemon

    def modules(self, *names):
        """Makes these the registered check modules."""
        for entry in self.view.modules.iterdir():
            entry.unlink()
        for name in names:
            (self.view.modules / name).touch()

    def level(self, text):
        """Writes the level file."""
        path = self.view.data / LEVEL_FILE
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def new_daemon(self, **env):
        """A daemon that is not started yet."""
        daemon = Daemon(DAEMON, self.view, {**self._settings, **env})
        self._daemons.append(daemon)
        return daemon

    def start(self, **env):
        """Starts the daemon and waits until it has subscribed."""
        scans_before = self._scans()
        self.daemon = self.new_daemon(**env)
        self.daemon.start()
        self.expect(lambda: self._subscribed(scans_before), "the daemon subscribes")
        return self.daemon

    def start_master(self, *modules, **env):
        """Starts the daemon on a device that holds the global master role and has these modules."""
        self.modules(*modules)
        self.role("master")
        return self.start(**env)

    def start_scaled(self, factor):
        """Starts the daemon with clocks that run `factor` times as fast."""
        return self.start(**scaled_time(factor))

    def _subscribed(self, before):
        if not self.daemon.is_running:
            raise AssertionError(f"the daemon ended with {self.daemon.wait()}: {self.daemon.complained()}"
                                 f"\n{self.logged()}")
        return self._scans() > before

    def _scans(self):
        """How often the folder of modules was scanned, which is just before the subscriptions are made."""
        return self.logged().count("module: num[") + self.logged().count("Folder path(")

    def logged(self):
        """The daemon's log as text."""
        path = self.view.log / "app_cg.log"
        return path.read_bytes().decode("utf-8", "replace") if path.exists() else ""

    def expect_logged(self, text, times=1):
        """Waits until the log holds `text` so many times."""
        self.expect(lambda: self.logged().count(text) >= times, f"the log says {text!r}")

    def debug(self, *command):
        """Runs a debug command over the shell; returns what it printed."""
        return self.cgctl("debug", *command)

    # The device around it

    def role(self, name):
        """Publishes this device's global role."""
        self.cgctl("role", name)

    def plug(self, position, *, node_type="lc", offline=False):
        """Plugs a card; its TIPC node is 1000 and its node id 100 more than its slot."""
        slot = int(position.split("/")[1])
        self.cgctl("card", "plug", position, "--type", 200, "--node-type", node_type, "--nodeid", 100 + slot,
                   "--tipc", 1000 + slot, "--name", f"card-{slot}", *(["--offline"] if offline else []))

    def answer(self, position, module, ret=0, reason=""):
        """Lets a check module answer for a card."""
        dev, slot, sub = position.split("/")
        self.cgctl("set", ACK, f"devid={dev}", f"slotid={slot}", f"t_sslotid={sub}", f"mod_name={module}",
                   f"ret={ret}", f"reason={reason}")

    def play(self, scenario, *options, seconds=60):
        """Plays a scenario with cg_sim; raises CommandFailed with what it printed unless every expectation held."""
        file = self.folder / "played.scenario"
        file.write_text(scenario)
        return self.sim(*options, file, seconds=seconds)

    # The store

    def apart(self):
        """Gives databases 28 and 33 a server of their own, for what is started from now on."""
        self.global_store = StoreServer(self.view.store / "global")
        self.global_store.start()
        for number in (CAP, DEV_GLOBAL):
            setting = f"VX_MOM_ENDPOINT_{number}"
            self._settings[setting] = "unix:/store/global/store.sock"
            for command in (self.cgctl, self.sim):
                command.env[setting] = self.global_store.endpoint

    def server(self, number):
        """The server that has a database."""
        return self.store if number == HOST or self.global_store is None else self.global_store

    def database(self, number):
        """A connection of the test's own to one database."""
        if number not in self._databases:
            self._databases[number] = redis.Redis(unix_socket_path=str(self.server(number).socket_path), db=number,
                                                  decode_responses=True)
        return self._databases[number]

    def record(self, db, kind, *index):
        """The stored fields of a record, {field number: text}; empty when there is no such record."""
        return self.database(db).hgetall(":".join([kind, *map(str, index)]))

    def keys(self, db, kind):
        """The keys of all records of a type."""
        return sorted(self.database(db).scan_iter(f"{kind}:*", _type="hash"))

    def by_tipc(self, slot):
        """The result in database 1 of the card in a slot."""
        return self.record(HOST, BY_TIPC, 1000 + slot)

    def by_position(self, position):
        """The result in database 28."""
        return self.record(CAP, BY_POSITION, 0, *position.split("/"))

    def request(self, position):
        """The check request in database 1."""
        return self.record(HOST, REQUEST, 0, *position.split("/"))

    # Waiting

    @staticmethod
    def expect(condition, what, seconds=20):
        """Waits until condition() is true; the test fails, naming `what`, when it does not become so."""
        return wait_until(condition, seconds, what)

    def expect_request(self, position):
        """Waits until the card's check request is in the store."""
        self.expect(lambda: self.request(position), f"check request for {position}")

    def expect_no_request(self, position):
        """Waits until the card's check request is gone."""
        self.expect(lambda: not self.request(position), f"check request for {position} withdrawn")

    def settle(self):
        """Returns when the daemon has handled every change in database 1 up to now.

        Changes are handled in their order, and what a main board brings about can be seen: so one is
        plugged, far from the others.
        """
        self._markers += 1
        tipc = 9000 + self._markers
        self.cgctl("card", "plug", f"9/{self._markers}/0", "--node-type", "mb", "--type", 1, "--nodeid", tipc,
                   "--tipc", tipc)
        self.expect(lambda: self.record(HOST, BY_TIPC, tipc), "the daemon handles the marker card")
