"""Everything that can fail, by name. A fault is struck at some moment of a round and taken back before its end.

Each is a function (soak, rng) that returns what takes it back, or None. What the daemon may end with because of it
stands beside its name, for an end that nothing explains is a contradiction.
"""
import contextlib
import os
import resource
import signal
import socket
import threading
import typing
import urllib.parse
import urllib.request

from device_life import MODULES
from proxy import CutAfter, CutBefore, KillAfter, KillBefore
from stream import Contradiction
from supervisor import KILLED, START_AFRESH

_SCRAPERS = 20


class Fault(typing.NamedTuple):
    """A row of the table."""

    strike: typing.Callable
    weight: int
    ends: frozenset  # statuses that the daemon may end with
    at_rest: bool  # only while nothing moves
    gives_up: bool  # the daemon may give a write up before it ends


TABLE = {}


def _fault(weight, *ends, at_rest=False, gives_up=False):
    def note(strike):
        TABLE[strike.__name__] = Fault(strike, weight, frozenset(ends), at_rest, gives_up)
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


@_fault(4)
def buffer_overrun(soak, rng):
    """The daemon stands still until the store gives up on it."""
    store = soak.life.connection()
    buffer = "client-output-buffer-limit"
    before = store.config_get(buffer)[buffer]
    store.config_set(buffer, "pubsub 1048576 1048576 0")
    soak.daemon.signal(signal.SIGSTOP)
    soak.life.flood(rng.randrange(300, 900))

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


@_fault(4)
def store_stalled(soak, rng):
    """For less than a call may take."""
    return _stall(soak, rng.uniform(0.2, 2))


@_fault(1, START_AFRESH, gives_up=True)
def store_stalled_for_long(soak, rng):
    """For longer than a call may take."""
    return _stall(soak, rng.uniform(6, 8))


@_fault(3)
def store_restarted(soak, _rng):
    """Killed, and started with the data that it had."""
    store = soak.life.connection()
    store.execute_command("CLIENT", "PAUSE", 20000, "WRITE")  # or changes would be made that the soak does not hear of
    soak.wait_for(soak.has_heard_all, "the soak has heard all that was published")
    store.save()
    soak.exchange_store()


@_fault(2, START_AFRESH, at_rest=True)
def store_emptied(soak, _rng):
    """Killed, and started without data; the device manager writes its cards again."""
    (soak.rig.store.folder / "dump.rdb").unlink(missing_ok=True)
    before = soak.supervisor.restarts
    soak.exchange_store(is_emptied=True)
    soak.wait_for(lambda: soak.supervisor.restarts > before, "the daemon does not believe the empty store")
    soak.life.begin()


@_fault(2)
def functions_flushed(soak, _rng):
    """An administrator's mistake: until somebody who may loads them again, nobody can write."""
    soak.life.connection().execute_command("FUNCTION", "FLUSH")


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
    pid = soak.daemon.pid
    os.kill(pid, signal.SIGSTOP)

    def undo():
        with contextlib.suppress(ProcessLookupError):
            os.kill(pid, signal.SIGCONT)
    return undo


@_fault(3, at_rest=True)
def module_folder_changed(soak, rng):
    """Other modules, which the daemon hears of when its store returns."""
    count = rng.choice((0, 1, 2, 2, 3, 3, 4))
    reads = soak.folder_reads()
    soak.set_modules(rng.sample(MODULES, count))
    for client in soak.clients_of("app_cg"):
        soak.life.connection().client_kill_filter(_id=client["id"])
    soak.wait_for(lambda: soak.folder_reads() > reads, "the daemon reads its modules' folder again")


@_fault(3)
def descriptors_limited(soak, rng):
    """The daemon has no descriptor left but those that are open, and its store goes and returns."""
    pid = soak.daemon.pid
    before = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (soak.descriptors(pid), before[1]))
    connections_closed(soak, rng)

    def undo():
        with contextlib.suppress(ProcessLookupError):
            resource.prlimit(pid, resource.RLIMIT_NOFILE, before)
    return undo


# What is beside

@_fault(3)
def system_log_unread(soak, _rng):
    """Nobody reads the system log, until the daemon has shown that it goes on all the same."""
    soak.log_reader.clear()
    soak.when_marked.append(soak.log_reader.set)


@_fault(3)
def recorder_killed(soak, _rng):
    """Killed; started again at the end of the round."""
    soak.recorder.end(signal.SIGKILL)
    return soak.start_recorder


@_fault(3)
def recorder_cut(soak, rng):
    """The recorder's connections are closed."""
    for client in soak.clients_of("cg_recorderd"):
        if rng.random() < 0.7:
            soak.life.connection().client_kill_filter(_id=client["id"])


@_fault(1)
def history_moved(soak, rng):
    """The recorder's file goes from under it; another one has to be there within a minute."""
    soak.move_history(f".moved-{rng.randrange(10 ** 6)}")


@_fault(2)
def scrapers_held(soak, _rng):
    """Clients of the metrics that say half of what they want; another one is served all the same."""
    url = soak.metrics_url()
    address = urllib.parse.urlsplit(url)
    held = [socket.create_connection((address.hostname, address.port), 5) for _ in range(_SCRAPERS)]
    for connection in held:
        connection.sendall(b"GET /metrics HTTP/1.1\r\nHost: ")
    try:
        with urllib.request.urlopen(url, timeout=5) as answer:
            answer.read()
    except OSError as problem:
        raise Contradiction(f"{_SCRAPERS} slow scrapers keep the metrics from everybody: {problem}") from problem
    finally:
        for connection in held:
            connection.close()
