"""Everything that can fail, by name. A fault is struck at some moment of a round and taken back before its end.

Each is a function (soak, rng) that returns what takes it back, or None. What the daemon may end with because of it
stands beside its name, for an end that nothing explains is a contradiction.
"""
import contextlib
import os
import pathlib
import resource
import signal
import socket
import threading
import time
import typing

from alarms import descriptors_of, descriptors_shown, health_of, is_short_of_descriptors, modules_known
from device_life import MODULES
from neighbours import CANNOT_LOG
from proxy import CutAfter, CutBefore, KillAfter, KillBefore
from stream import Contradiction
from demo.supervisor import KILLED, START_AFRESH

_SCRAPERS = 100
_SCRAPED_WITHIN = 3.0  # seconds: one is promised, and a machine on which other things run gets more
_SHELL_CLIENTS = 17  # one more than the shell has at a time


class Fault(typing.NamedTuple):
    """A row of the table."""

    strike: typing.Callable
    weight: int
    ends: frozenset  # statuses that the daemon may end with
    at_rest: bool  # only while nothing moves
    gives_up: bool  # the daemon may give a write up before it ends
    is_missed: bool  # the recorder may miss something


TABLE = {}


def _fault(weight, *ends, at_rest=False, gives_up=False, is_missed=False):
    def note(strike):
        TABLE[strike.__name__] = Fault(strike, weight, frozenset(ends), at_rest, gives_up, is_missed)
        return strike
    return note


# The connection

@_fault(6)
def connection_cut(soak, rng):
    """At some call of the daemon's, before or after the store carries it out."""
    soak.proxy.arm(soak.proxy.count + rng.randrange(1, 25), rng.choice((CutBefore, CutAfter))())
    return soak.proxy.disarm


@_fault(4)
def connections_closed(soak, rng):
    """Some of the daemon's connections, as an administrator closes them."""
    share = rng.choice((0.3, 1))
    for client in soak.clients_of("app_cg"):
        if rng.random() < share:
            soak.life.connection().client_kill_filter(_id=client["id"])


@_fault(4, is_missed=True)
def buffer_overrun(soak, rng):
    """The daemon stands still until the store gives up on it."""
    store = soak.life.connection()
    buffer = "client-output-buffer-limit"
    before = store.config_get(buffer)[buffer]
    store.config_set(buffer, "pubsub 1048576 1048576 0")
    soak.daemon.signal(signal.SIGSTOP)
    for _ in range(rng.randrange(6, 18)):
        soak.life.flood(50)
        soak.wait_for(soak.has_heard_all, "the soak hears all")  # the limit is its own subscription's, too

    def undo():
        soak.daemon.signal(signal.SIGCONT)
        store.config_set(buffer, before)
    return undo


# The store

def _stall(soak, seconds):
    soak.rig.store.send(signal.SIGSTOP)
    waking = threading.Timer(seconds, soak.rig.store.send, [signal.SIGCONT])
    waking.start()
    return waking.join


@_fault(4, is_missed=True)
def store_stalled(soak, rng):
    """For less than a call may take."""
    return _stall(soak, rng.uniform(0.2, 2))


@_fault(1, START_AFRESH, gives_up=True, is_missed=True)
def store_stalled_for_long(soak, rng):
    """For longer than a call may take."""
    return _stall(soak, rng.uniform(6, 8))


@_fault(3, is_missed=True)
def store_restarted(soak, _rng):
    """Killed, and started with the data that it had."""
    store = soak.life.connection()
    store.execute_command("CLIENT", "PAUSE", 20000, "WRITE")  # or changes would be made that the soak does not hear of
    soak.wait_for(soak.has_heard_all, "the soak has heard all that was published")
    store.save()
    soak.exchange_store()


@_fault(2, START_AFRESH, at_rest=True, is_missed=True)
def store_emptied(soak, _rng):
    """Killed, and started without data; the device manager writes its cards again."""
    (soak.rig.store.folder / "dump.rdb").unlink(missing_ok=True)
    before = soak.supervisor.restarts
    soak.exchange_store(is_emptied=True)
    soak.wait_for(lambda: soak.supervisor.restarts > before, "the daemon does not believe the empty store")
    soak.life.begin()


@_fault(2, is_missed=True)
def functions_flushed(soak, _rng):
    """An administrator's mistake: until somebody who may loads them again, nobody can write. A daemon that stands still
    cannot, and would not be woken while the device waits for its write."""
    if soak.daemon_runs():
        soak.life.connection().execute_command("FUNCTION", "FLUSH")
        soak.wait_for(lambda: soak.life.connection().execute_command("FUNCTION", "LIST"), "the functions are back")


# The daemon

@_fault(5, KILLED)
def daemon_killed(soak, rng):
    """At some call, or between calls."""
    if rng.random() < 0.4:
        soak.daemon.signal(signal.SIGKILL)
        return None
    soak.proxy.arm(soak.proxy.count + rng.randrange(1, 25), rng.choice((KillBefore, KillAfter))())
    return soak.proxy.disarm


@_fault(4)
def daemon_stopped(soak, _rng):
    """It stands still for a while."""
    soak.daemon.signal(signal.SIGSTOP)
    return lambda: soak.daemon.signal(signal.SIGCONT)


@_fault(3, at_rest=True, is_missed=True)
def module_folder_changed(soak, rng):
    """Other modules, which daemon and recorder hear of when their store returns."""
    registered = soak.recorder.metrics()["cg_modules_registered"]
    alarm = "no module is registered any more, and every card is admitted unchecked"
    alarms = soak.recorder.said().count(alarm)
    soak.set_modules(rng.sample(MODULES, rng.choice((0, 1, 2, 2, 3, 3, 4))))
    for client in soak.clients_of("app_cg") + soak.clients_of("cg_recorderd"):
        soak.life.connection().client_kill_filter(_id=client["id"])
    soak.wait_for(lambda: modules_known(soak.rig) == soak.modules, "the daemon reads its modules' folder again")
    if registered and not soak.modules:
        soak.wait_for(lambda: soak.recorder.said().count(alarm) > alarms, "the recorder says that there are no modules")


@_fault(3)
def descriptors_limited(soak, rng):
    """The daemon has no descriptor left but those that are open, and its store goes and returns."""
    pid = soak.daemon.pid

    def limit():
        before = resource.prlimit(pid, resource.RLIMIT_NOFILE)
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (descriptors_of(pid), before[1]))
        return before
    try:
        before = limit()
    except OSError:  # it has just ended
        return
    connections_closed(soak, rng)

    def judge_alarms():
        if soak.daemon.pid != pid:
            return
        limit()  # clients of the debug shell may have gone since then, and left it enough
        soak.wait_for(lambda: is_short_of_descriptors(
            [health_of(soak.rig).get(name, 0) for name in ("descriptors", "descriptors_limit")]),
                      "the daemon publishes that it is short of descriptors")
        soak.wait_for(lambda: is_short_of_descriptors(descriptors_shown(soak.recorder.metrics())),
                      "the metrics say that the daemon is short of descriptors")
        if not soak.has_struck("manager_deaf"):
            soak.wait_for(lambda: "file descriptors" in soak.daemon.manager.status,
                          "the process manager hears that the daemon is short of descriptors")
        resource.prlimit(pid, resource.RLIMIT_NOFILE, before)
    soak.when_marked.append(judge_alarms)


# Whom the daemon writes to

@_fault(3)
def system_log_unread(soak, _rng):
    """Nobody reads the system log, until the daemon has shown that it goes on all the same."""
    soak.rig.system_log.hold()
    soak.when_marked.append(soak.rig.system_log.release)


@_fault(3, CANNOT_LOG)
def log_unread(soak, _rng):
    """Nobody reads standard error and the journal; where the daemon logs to files their folder is gone."""
    soak.daemon.hold_log()
    return soak.daemon.release_log


@_fault(2)
def manager_deaf(soak, _rng):
    """The process manager does not read its socket; later the daemon's heartbeats come again."""
    soak.daemon.manager.hold()
    soak.when_marked.append(soak.daemon.manager.release)


# The debug shell

@_fault(2)
def shell_clients_silent(soak, _rng):
    """Clients that say nothing; beside so many again, when nothing moves, another one is answered."""
    held = contextlib.ExitStack()

    def connect():
        for _ in range(_SHELL_CLIENTS):
            client = held.enter_context(socket.socket(socket.AF_UNIX))
            client.setblocking(False)
            with contextlib.suppress(OSError):  # nobody listens, or the daemon stands still
                client.connect(str(soak.rig.view.run / "app_cg.ssat"))

    def judge_answer():
        with held:
            connect()
            modules_known(soak.rig)
    connect()
    soak.when_marked.append(judge_answer)


@_fault(1, at_rest=True)
def output_collected(soak, rng):
    """What the daemon prints goes to a file from now on; each command costs a descriptor for good."""
    for _ in range(rng.randrange(1, 5)):
        soak.rig.cgctl("debug", "collect")
        soak.collects[soak.daemon.pid] += 1


# The recorder

@_fault(3, is_missed=True)
def recorder_killed(soak, _rng):
    """Killed; started again at the end of the round."""
    soak.recorder.end(signal.SIGKILL)
    return soak.start_recorder


@_fault(3, is_missed=True)
def recorder_cut(soak, rng):
    """The recorder's connections are closed."""
    for client in soak.clients_of("cg_recorderd"):
        if rng.random() < 0.7:
            soak.life.connection().client_kill_filter(_id=client["id"])


@_fault(1, is_missed=True)
def history_moved(soak, _rng):
    """The recorder's file goes from under it; another one has to be there within a minute."""
    soak.lose_history(lambda path: path.rename(f"{path}.moved"))


@_fault(1, is_missed=True)
def history_deleted(soak, _rng):
    """The same, by another mistake."""
    soak.lose_history(pathlib.Path.unlink)


@_fault(1, is_missed=True)
def history_cut(soak, _rng):
    """The file loses its end, as by an administrator who wants room on the disk."""
    def cut(path):
        if path == soak.recorder.history:  # beside it are a log, and a file in memory that its readers share
            os.truncate(path, path.stat().st_size // 2)
    soak.lose_history(cut)


@_fault(2)
def scrapers_held(soak, _rng):
    """Clients of the metrics that say half of what they want; another one is served all the same."""
    if not soak.recorder.is_running:
        return
    with contextlib.ExitStack() as held:
        for _ in range(_SCRAPERS):
            client = held.enter_context(socket.create_connection(("127.0.0.1", soak.recorder.metrics_port()), 5))
            client.sendall(b"GET /metrics HTTP/1.1\r\nHost: ")
        begun = time.monotonic()
        soak.recorder.metrics()
        passed = time.monotonic() - begun
    if passed > _SCRAPED_WITHIN:
        raise Contradiction(f"beside {_SCRAPERS} slow scrapers another one waits for {passed:.1f} s")
