"""The proxy does what it says: a fault that does not happen would make every test of faults pass."""
import os
import signal
import subprocess
import sys

import pytest
import redis

from demo.programs import wait_until
from demo.resp import Messages
from proxy import CutAfter, CutBefore, KillAfter, KillBefore, Proxy


@pytest.fixture
def proxy(rig):
    with Proxy(rig.store.socket_path, rig.folder / "proxy.sock") as proxy:
        yield proxy


def through(rig):
    """A connection through the proxy that repeats nothing by itself."""
    return redis.Redis(unix_socket_path=str(rig.folder / "proxy.sock"), decode_responses=True)


def test_messages_are_found_however_the_bytes_come():
    stream = b"*2\r\n$3\r\nGET\r\n$2\r\n\r\n\r\nPING now\r\n*1\r\n$-1\r\n"
    for size in (1, 2, 7, len(stream)):
        messages, found = Messages(), []
        for at in range(0, len(stream), size):
            messages.feed(stream[at:at + size])
            while (message := messages.take()) is not None:
                found.append(message)
        assert [parts for _, parts in found] == [[b"GET", b"\r\n"], [b"PING", b"now"], [None]]
        assert b"".join(raw for raw, _ in found) == stream


def test_without_a_fault_everything_passes(rig, proxy):
    client = through(rig)
    with client.pubsub() as changes:
        changes.subscribe("news")
        assert changes.get_message(timeout=5)["type"] == "subscribe"
        client.publish("news", "x" * 100000)
        assert changes.get_message(timeout=5)["data"] == "x" * 100000
    assert [command.split()[0] for command in proxy.commands()] == ["SUBSCRIBE", "PUBLISH"]


@pytest.mark.parametrize("fault, stored", [(CutBefore, None), (CutAfter, "2")])
def test_a_cut(rig, proxy, fault, stored):
    client = through(rig)
    proxy.arm(2, fault())
    client.set("a", 1)
    with pytest.raises(redis.ConnectionError):
        client.set("b", 2)
    assert proxy.struck == "SET b 2"
    assert rig.database(0).get("b") == stored
    client.set("c", 3)
    assert rig.database(0).get("c") == "3" and proxy.count == 3


def test_a_cut_in_a_batch_lets_earlier_answers_through(rig, proxy):
    proxy.arm(2, CutAfter())
    connection = redis.UnixDomainSocketConnection(path=str(rig.folder / "proxy.sock"))
    connection.send_packed_command([connection.pack_command("SET", name, 1)[0] for name in "abc"])
    assert connection.read_response() == b"OK"
    with pytest.raises(redis.ConnectionError):
        connection.read_response()
    assert rig.database(0).mget("a", "b", "c") == ["1", "1", None]


@pytest.mark.parametrize("fault, stored", [(KillBefore, None), (KillAfter, "1")])
def test_a_kill(rig, proxy, fault, stored):
    proxy.arm(1, fault())
    path = rig.folder / "proxy.sock"
    program = f"import redis; redis.Redis(unix_socket_path='{path}').set('a', 1)"
    victim = subprocess.Popen([sys.executable, "-c", program])
    assert victim.wait(20) == -signal.SIGKILL and victim.pid != os.getpid()
    wait_until(lambda: rig.database(0).get("a") == stored, 5, "the store is as the fault left it")
