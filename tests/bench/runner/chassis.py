"""A daemon under measurement: the one that is delivered, in a private view, on a store server of its own."""
import contextlib
import pathlib

import redis

from demo.daemon import Daemon
from demo.private_view import PrivateView
from demo.programs import start, stop, wait_until
from demo.store import StoreServer

from .place import DAEMON, PROGRAMS, folder

LEVEL_FILE = ".vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt"  # below /data
CARDS_AND_ACKNOWLEDGEMENTS = "2"  # patterns that a daemon subscribes to


class Chassis:
    """A view, a store and a daemon that is not started yet."""

    def __init__(self, folder, modules, store=None, **env):
        """`store` is another chassis' store server that this one uses too; `env` is the daemon's."""
        self.view = PrivateView(folder)
        for i in range(1, modules + 1):
            (self.view.modules / f"m{i}").touch()
        self.store = store or StoreServer(self.view.store)
        self.view.store = self.store.folder
        self.daemon = Daemon(DAEMON, self.view, env)

    def start(self, daemons=1):
        """Starts the daemon and waits until it, and so many in all, have subscribed."""
        self.daemon.start()
        wait_until(lambda: self.subscribed() >= daemons, 20, "the daemon subscribes")

    def subscribed(self):
        """How many daemons have subscribed to all that they want on this store."""
        with contextlib.closing(redis.Redis(unix_socket_path=str(self.store.socket_path))) as connection:
            return sum(client["psub"] == CARDS_AND_ACKNOWLEDGEMENTS for client in connection.client_list())

    def memory(self):
        """What /proc tells of the daemon's memory, in bytes: {"Rss": ..., "Pss": ..., ...}."""
        lines = pathlib.Path("/proc", str(self.daemon.pid), "smaps_rollup").read_text().splitlines()[1:]
        return {name.strip(":"): int(size) * 1024 for name, size in (line.split()[:2] for line in lines)}

    def processor_time(self):
        """Seconds that the daemon has computed up to now."""
        return processor_time(self.daemon.pid)


def processor_time(pid):
    """Seconds that a process has computed up to now, in user and kernel mode."""
    nanoseconds = pathlib.Path("/proc", str(pid), "schedstat").read_text().split()[0]
    return int(nanoseconds) / 1e9


@contextlib.contextmanager
def chassis(modules, running=True, **env):
    """A chassis with a store and, unless told otherwise, a daemon that has subscribed."""
    with folder() as made:
        one = Chassis(made, modules, **env)
        try:
            one.store.start()
            if running:
                one.start()
            yield one
        finally:
            one.daemon.stop()
            one.store.kill()


@contextlib.contextmanager
def bare_daemon(modules, socket, script):
    """The bare loop on a server."""
    program = start([PROGRAMS / "bench_device", "bare", modules, socket, script])
    try:
        yield program
    finally:
        stop(program)
