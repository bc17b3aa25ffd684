"""The store comes back empty, with the same cards still in the device: nothing is believed that is not so."""
import contextlib

import redis

from demo.device_manager import DeviceManager
from demo.supervisor import START_AFRESH, Supervisor
from device import Modules, has_functions
from rig import BY_POSITION, CAP, CUSTOM_STATUS, DENY, DEV_GLOBAL, HOST, PASS, POWER, REQUEST

_POSITIONS = [f"1/{slot}/0" for slot in range(3, 23)]
_DENIED = {position for position in _POSITIONS if int(position.split("/")[1]) % 5 == 0}


def connect(rig):
    return redis.Redis(unix_socket_path=str(rig.store.socket_path), db=HOST, decode_responses=True)


def verdicts(rig):
    """The stored verdict of every card that has one."""
    found = {}
    for key in rig.keys(CAP, BY_POSITION):
        found["/".join(key.split(":")[2:])] = rig.database(CAP).hget(key, "6") or DENY
    return found


def is_complete(rig):
    """Every card has the verdict that it deserves, by position and by node, and no check is open."""
    wanted = {position: DENY if position in _DENIED else PASS for position in _POSITIONS}
    by_tipc = {position: rig.by_tipc(int(position.split("/")[1])) for position in _POSITIONS}
    return (verdicts(rig) == wanted and not rig.keys(HOST, REQUEST) and
            all(by_tipc[position] and by_tipc[position].get("6", DENY) == wanted[position] for position in _POSITIONS))


def test_the_picture_is_rebuilt_as_cards_are_written_again(rig):
    rig.modules("m1", "m2")
    rig.role("master")
    chassis = DeviceManager(rig.database(HOST))
    with contextlib.ExitStack() as stack:
        supervisor = stack.enter_context(Supervisor(rig.new_daemon()))
        stack.enter_context(contextlib.closing(Modules(
            lambda: connect(rig), ("m1", "m2"),
            lambda name, position: "no" if name == "m2" and position in _DENIED else "")))
        for position in _POSITIONS:
            chassis.plug(position)
        rig.expect(lambda: is_complete(rig), "all cards have their verdicts")
        assert supervisor.ends == []

        rig.store.kill()
        rig.store.start()
        rig.expect(lambda: supervisor.restarts > 0, "the daemon does not believe the empty store")
        assert supervisor.ends == [START_AFRESH]
        rig.expect(lambda: has_functions(rig.database(HOST)), "the daemon that is started afresh brings the functions")
        assert verdicts(rig) == {}, "nothing is written that no card asks for"

        chassis.role()
        for position in _POSITIONS[:7]:
            chassis.plug(position)
        rig.expect(lambda: set(verdicts(rig)) == set(_POSITIONS[:7]), "the cards written again have verdicts")
        for position in _POSITIONS[7:]:
            chassis.plug(position)
        rig.expect(lambda: is_complete(rig), "all cards have their verdicts again")
        assert len(rig.keys(DEV_GLOBAL, CUSTOM_STATUS)) == len(rig.keys(DEV_GLOBAL, POWER)) == len(_DENIED)
        assert supervisor.ends == [START_AFRESH]
    assert sum("will be disabled" in text for _, text in rig.system_log.lines()) == 2 * len(_DENIED)
