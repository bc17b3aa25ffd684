"""The daemon: a card's road, memory, start."""
import contextlib
import shutil
import signal
import time

import redis

from demo import programs
from demo.daemon import Daemon

from .chassis import LEVEL_FILE, bare_daemon, chassis
from .figures import figure
from .place import DAEMON, PROGRAMS, rounds_of, run, server
from .recording import record

ROAD_CARDS, ROAD_MODULES = 20, 3
MEMORY_CARDS = 2000
BURST = 20000  # answers of 2.5 kB
_SUBSCRIBED = "app_cg_check_ack_pmsg_f: subscribe ok"  # of the last of its subscriptions


def _road_rounds(rounds, **env):
    """The rounds, and how many commands of the daemon's a card's road has."""
    with chassis(ROAD_MODULES, **env) as one, server() as other, server() as idle:
        script = one.view.root / "script"
        commands = record(one, ROAD_CARDS, ROAD_MODULES, script)
        with bare_daemon(ROAD_MODULES, other.socket_path, script):
            # Its two patterns come last of what it subscribes to.
            programs.wait_until(lambda: other.ask(b"PUBSUB NUMPAT\r\n") == b":2\r\n", 10, "the bare loop listens")
            return run("bench_device", "road", rounds, ROAD_CARDS, ROAD_MODULES, 1, one.store.socket_path,
                       other.socket_path, idle.socket_path), commands


def _road(rounds):
    logged, commands = _road_rounds(rounds)
    unlogged, _ = _road_rounds(rounds, VX_ZLOG="none")
    note = f"microseconds a card; {commands:.1f} commands of the daemon's"
    return [figure("road", logged, note), figure("road-unlogged", unlogged, note)]


def _memory(rounds):
    empty, per_card, own = [], [], []
    for _ in range(rounds):
        with chassis(ROAD_MODULES) as one:
            before = one.memory()
            run("bench_device", "fill", MEMORY_CARDS, ROAD_MODULES, one.store.socket_path)
            after = one.memory()
            empty.append(before["Rss"] / 1e6)
            own.append((before["Rss"] - before["Shared_Clean"] - before["Shared_Dirty"]) / 1e6)
            per_card.append((after["Rss"] - before["Rss"]) / MEMORY_CARDS / 1000)
    return [figure("memory", {"ours": empty}), figure("memory-own", {"ours": own}),
            figure("memory-card", {"ours": per_card})]


def _flood(one):
    """Makes a burst of answers while the daemon stands still; returns when it has read all of them."""
    kind = "p_libpub.app_cg_card_check_ack"
    with contextlib.closing(redis.Redis(unix_socket_path=str(one.store.socket_path), db=1)) as store:
        one.daemon.signal(signal.SIGSTOP)
        for _ in range(BURST // 1000):
            with store.pipeline(transaction=False) as pipeline:
                for slot in range(1000):
                    pipeline.execute_command("FCALL", "vx_mom2_set", 3, f"{kind}:1:{slot}:0:nobody", f"@rev:{kind}",
                                             f"@idx:{kind}", "@chg:1:", "bench.1 -", "7", "x" * 2500)
                pipeline.execute()
        one.daemon.signal(signal.SIGCONT)
        programs.wait_until(lambda: store.scard(f"@idx:{kind}") == 0, 60, "the daemon reads the burst")


def _memory_burst(rounds):
    left = []
    for _ in range(rounds):
        with chassis(ROAD_MODULES) as one:
            before = one.memory()["Rss"]
            for _ in range(2):  # the second one takes what the first gave back
                _flood(one)
                time.sleep(2)
            left.append((one.memory()["Rss"] - before) / 1e6)
    return [figure("memory-burst", {"ours": left})]


def _started(one):
    """Starts a daemon in the view, as the process that measures sees it; milliseconds until all is subscribed."""
    shutil.copy(DAEMON, one.view.data / "app_cg")
    path = one.view.data / LEVEL_FILE
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("2")  # at which the daemon tells that it has subscribed
    starter = Daemon(PROGRAMS / "bench_device", one.view, {"VX_ZLOG": "stderr"},
                     arguments=["start", "30", "/data/app_cg", _SUBSCRIBED])
    before = len(starter.printed()) if (one.view.root / "daemon.out").exists() else 0
    starter.start()
    try:
        if starter.wait(40) != 0:
            raise RuntimeError(starter.complained())
    finally:
        starter.stop()
    return rounds_of(starter.printed()[before:])["ours"][0]


def _start(rounds):
    with chassis(ROAD_MODULES, running=False) as one:
        empty = [_started(one) for _ in range(rounds + 1)][1:]
    with chassis(ROAD_MODULES) as one:
        run("bench_device", "fill", 1000, ROAD_MODULES, one.store.socket_path)
        one.daemon.stop()
        full = [_started(one) for _ in range(rounds + 1)][1:]
    return [figure("start", {"ours": empty}), figure("start-1000", {"ours": full})]


MEASUREMENTS = {"road": _road, "memory": _memory, "memory-burst": _memory_burst, "start": _start}
