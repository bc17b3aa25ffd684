"""Malformed data, written straight into the server wherever somebody decodes it.

Each is told of in the log with its key, and otherwise as if it were not there: the next good card is checked, and
the spoilt record too as soon as it is written as it should be. What the functions in the server cannot work with
they refuse until it is mended.
"""
import dataclasses

import pytest
import redis

from demo.device_manager import DeviceManager
from demo.records import colons
from rig import ACK, BACKUP, CARD_INFO, HOST, PASS, REQUEST, ROLE

_SPOILT, _GOOD = "1/3/0", "1/7/0"
_CARD = f"{CARD_INFO}:0:{colons(_SPOILT)}"
_LINE_CARD = b"\x2a\x00\x30\x03"


@dataclasses.dataclass
class Spoilt:
    """A record that does not decode."""

    name: str
    key: str
    fields: dict

    def write(self, rig):
        """Writes it as any client could."""
        DeviceManager(rig.database(HOST)).records.set(self.key, self.fields)


def card(name, **fields):
    """A card, complete but for some fields."""
    good = {"6": 200, "7": 1, "14": _LINE_CARD, "17": 103, "22": 1003}
    return Spoilt(name, _CARD, {**good, **{number.lstrip("f"): value for number, value in fields.items()}})


def keyed(name, key):
    """A good card under a key that is none of a card."""
    return Spoilt(name, key, {"6": 200, "7": 1, "14": _LINE_CARD, "17": 103, "22": 1003})


_RECORDS = [
    card("card-type-is-text", f6="many"),
    card("card-type-too-large", f6="99999999999"),
    card("card-type-with-blank", f6=" 200"),
    card("card-type-is-empty", f6=""),
    card("card-type-in-hex", f6="0x10"),
    card("online-is-no-truth-value", f7="maybe"),
    card("static-part-cut-short", f14=b"\x2a"),
    card("static-part-longer-than-it-says", f14=b"\x2a\x05\x30"),
    card("static-part-is-noise", f14=b"\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"),
    card("static-part-of-another-wire-type", f14=b"\x28\x01\x30\x03"),
    card("tipc-node-has-a-tail", f22="1003;"),
    keyed("key-part-is-text", f"{CARD_INFO}:0:1:x:0"),
    keyed("key-with-too-few-parts", f"{CARD_INFO}:0:1:3"),
    keyed("key-with-too-many-parts", f"{CARD_INFO}:0:1:3:0:9"),
    keyed("key-in-another-spelling", f"{CARD_INFO}:0:01:3:0"),
    keyed("key-part-is-empty", f"{CARD_INFO}:0:1::0"),
    keyed("key-part-too-large", f"{CARD_INFO}:0:1:99999999999:0"),
    Spoilt("answer-verdict-is-text", f"{ACK}:1:7:0:m1", {"6": "no"}),
    Spoilt("answer-key-with-bad-escape", f"{ACK}:1:7:0:m%zz", {"6": 1}),
    Spoilt("answer-key-unescaped", f"{ACK}:1:7:0:m 1", {"6": 1}),
    Spoilt("role-is-text", ROLE, {"6": "master"}),
    Spoilt("role-part-cut-short", ROLE, {"6": 2, "7": b"\x08"}),
    Spoilt("role-list-is-noise", ROLE, {"6": 2, "12": b"\xff\xff\xff"}),
    Spoilt("role-list-of-another-field", ROLE, {"6": 2, "12": b"\x08\x01"}),
]


def prepared(rig):
    """A device whose role is known, and the functions of the store loaded; the daemon is not started."""
    rig.modules("m1")
    rig.role("master")
    return DeviceManager(rig.database(HOST))


def expect_service(rig, chassis, position=_GOOD):
    """A card is checked, and passed once its module says so."""
    chassis.plug(position)
    rig.expect_request(position)
    rig.answer(position, "m1")
    rig.expect_no_request(position)
    assert rig.by_position(position)["6"] == PASS, "the role is believed as it was"
    assert rig.daemon.is_running


def expect_as_if_it_were_not_there(rig, chassis, spoilt):
    """The good card first, then the spoilt record as it should be."""
    rig.expect_logged(spoilt.key)
    expect_service(rig, chassis)
    assert rig.keys(HOST, REQUEST) == [], "nothing was asked about the spoilt one"
    if spoilt.key == _CARD:
        expect_service(rig, chassis, _SPOILT)


@pytest.mark.parametrize("spoilt", [record for record in _RECORDS if record.key != ROLE],
                         ids=lambda spoilt: spoilt.name)
def test_a_record_found_at_the_start(rig, spoilt):
    chassis = prepared(rig)
    spoilt.write(rig)
    rig.start()
    expect_as_if_it_were_not_there(rig, chassis, spoilt)


@pytest.mark.parametrize("spoilt", _RECORDS, ids=lambda spoilt: spoilt.name)
def test_a_record_written_while_all_look(rig, spoilt):
    chassis = prepared(rig)
    rig.start()
    rig.settle()
    spoilt.write(rig)
    expect_as_if_it_were_not_there(rig, chassis, spoilt)


@pytest.mark.parametrize("fields", [{"6": "master"}, {"6": 1, "7": b"\x08"}], ids=["text", "cut-short"])
def test_a_role_found_at_the_start(rig, fields):
    chassis = prepared(rig)
    chassis.records.set(ROLE, fields)
    rig.start()
    rig.expect_logged(ROLE)
    chassis.role()
    expect_service(rig, chassis)


def test_a_backup_found_at_the_start(rig):
    chassis = prepared(rig)
    chassis.records.set(f"{BACKUP}:0:{colons(_SPOILT)}", {"6": "many"})
    chassis.records.set(f"{BACKUP}:0:{colons(_GOOD)}", {"6": 200})
    chassis.plug(_GOOD)
    rig.start()
    rig.expect_logged(f"{BACKUP}:0:{colons(_SPOILT)}")
    rig.expect(lambda: rig.keys(HOST, BACKUP) == [f"{BACKUP}:0:{colons(_SPOILT)}"], "the good backup is dealt with")
    rig.answer(_GOOD, "m1")
    rig.expect_no_request(_GOOD)


@pytest.mark.parametrize("write", [
    lambda store: store.set(_CARD, "a text"),
    lambda store: store.rpush(_CARD, "a", "list"),
    lambda store: store.hset(_CARD, mapping={"6": 200, "7": 1, "14": _LINE_CARD, "rev": "one"}),
    lambda store: store.hset(_CARD, mapping={"6": 200, "7": 1, "14": _LINE_CARD, "rev": "-1"}),
    lambda store: store.hset(_CARD, mapping={"6": 200, "7": 1, "14": _LINE_CARD, "rev": "1" * 40}),
], ids=["text", "list", "revision-is-text", "revision-is-negative", "revision-too-large"])
def test_what_is_no_record_at_all(rig, write):
    chassis = prepared(rig)
    store = rig.database(HOST)
    write(store)
    store.sadd(f"@idx:{CARD_INFO}", _CARD)
    rig.start()
    rig.expect_logged(_CARD)
    expect_service(rig, chassis)
    assert rig.keys(HOST, REQUEST) == []
    store.delete(_CARD)
    expect_service(rig, chassis, _SPOILT)


def test_an_index_that_names_what_there_is_not(rig):
    chassis = prepared(rig)
    rig.database(HOST).sadd(f"@idx:{CARD_INFO}", _CARD, "nonsense", "", f"{CARD_INFO}:")
    rig.start()
    expect_service(rig, chassis)
    expect_service(rig, chassis, _SPOILT)


def item(text):
    """A part of a payload."""
    return f"{len(text)}:{text}"


def payload(revision, command="4", fields=None):
    """A payload as it should be."""
    fields = fields if fields is not None else {"6": "200", "7": "1"}
    texts = [str(revision), command, str(len(fields)), *(text for pair in fields.items() for text in pair)]
    return "".join(map(item, texts))


_PAYLOADS = {
    "empty": lambda _: "",
    "words": lambda _: "good morning",
    "cut-short": lambda revision: payload(revision)[:-3],
    "with-a-tail": lambda revision: payload(revision) + "1:x",
    "length-negative": lambda _: "-1:4",
    "length-huge": lambda _: "99999999999999999999999:4",
    "length-beyond-the-end": lambda _: "1000:4",
    "revision-is-text": lambda _: payload("next"),
    "revision-negative": lambda _: payload(-1),
    "revision-too-large": lambda _: payload("9" * 30),
    "command-is-text": lambda revision: payload(revision, "set"),
    "command-unknown": lambda revision: payload(revision, "77"),
    "count-of-fields-huge": lambda revision: item(str(revision)) + item("4") + item("4294967296") + item("6"),
    "field-is-text": lambda revision: payload(revision, "4", {"6": "many"}),
    "field-unknown": lambda revision: payload(revision, "4", {"x" * 300: "1"}),
    "deletion-of-nothing": lambda revision: payload(revision, "3", {}),
    "revision-of-the-past": lambda _: payload(1),
    "revision-of-the-future": lambda revision: payload(revision + 1000),
}
# Read without complaint, as a newer writer's would be.
_NOT_TOLD_OF = {"command-unknown", "field-unknown", "deletion-of-nothing"}


@pytest.mark.parametrize("name", _PAYLOADS)
def test_a_payload(rig, name):
    chassis = prepared(rig)
    rig.start()
    rig.settle()
    store = rig.database(HOST)
    store.publish(f"@chg:{HOST}:{_CARD}", _PAYLOADS[name](int(store.get(f"@rev:{CARD_INFO}")) + 1))
    if name not in _NOT_TOLD_OF:
        rig.expect_logged(CARD_INFO)
    expect_service(rig, chassis)
    assert rig.keys(HOST, REQUEST) == []
    expect_service(rig, chassis, _SPOILT)
    assert "slotid[3]" in rig.debug("dump_node")


@pytest.mark.parametrize("name", ["words", "field-is-text", "revision-of-the-future"])
def test_a_payload_of_the_role(rig, name):
    chassis = prepared(rig)
    rig.start()
    rig.settle()
    store = rig.database(HOST)
    store.publish(f"@chg:{HOST}:{ROLE}", _PAYLOADS[name](int(store.get(f"@rev:{ROLE}")) + 1))
    rig.expect_logged(ROLE)
    expect_service(rig, chassis)


@pytest.mark.parametrize("key", ["p_dev.card_info:0:1:x:0", "p_dev.card_info:", "p_dev.card_info:0:1:3:0:%"])
def test_a_channel_that_names_no_card(rig, key):
    chassis = prepared(rig)
    rig.start()
    rig.settle()
    store = rig.database(HOST)
    store.publish(f"@chg:{HOST}:{key}", payload(int(store.get(f"@rev:{CARD_INFO}")) + 1))
    rig.expect_logged(key)
    expect_service(rig, chassis)


_FURNITURE = {
    "counter-is-text": (f"@rev:{CARD_INFO}", lambda store, key: store.set(key, "many")),
    "counter-is-a-list": (f"@rev:{CARD_INFO}", lambda store, key: (store.delete(key), store.rpush(key, 1))),
    "counter-is-negative": (f"@rev:{CARD_INFO}", lambda store, key: store.set(key, "-5")),
    "index-is-text": (f"@idx:{CARD_INFO}", lambda store, key: (store.delete(key), store.set(key, "all"))),
    "index-is-a-sorted-set": (f"@idx:{CARD_INFO}", lambda store, key: (store.delete(key), store.zadd(key, {"a": 1}))),
}


@pytest.mark.parametrize("name", _FURNITURE)
def test_a_counter_or_index_while_all_look(rig, name):
    key, spoil = _FURNITURE[name]
    chassis = prepared(rig)
    rig.start()
    rig.settle()
    store = rig.database(HOST)
    with undecoded(rig) as raw:
        good = raw.dump(key)
        spoil(store, key)
        with pytest.raises(redis.ResponseError):
            chassis.plug(_GOOD)
        assert rig.daemon.is_running
        raw.restore(key, 0, good, replace=True)
    expect_service(rig, chassis)


@pytest.mark.parametrize("name", _FURNITURE)
def test_a_counter_or_index_found_at_the_start(rig, name):
    key, spoil = _FURNITURE[name]
    chassis = prepared(rig)
    chassis.plug(_GOOD)
    with undecoded(rig) as raw:
        good = raw.dump(key)
        spoil(rig.database(HOST), key)
        rig.start()
        rig.expect_logged(key)
        assert rig.daemon.is_running
        raw.restore(key, 0, good, replace=True)
    rig.daemon.stop()
    rig.start()
    rig.answer(_GOOD, "m1")
    rig.expect_no_request(_GOOD)
    expect_service(rig, chassis, _SPOILT)


def undecoded(rig):
    """A connection that hands out bytes."""
    return redis.Redis(unix_socket_path=str(rig.store.socket_path), db=HOST)


_IDENTITY = {
    "runs-number-is-text": lambda store: store.hset("@runs", "now", "first"),
    "runs-number-too-large": lambda store: store.hset("@runs", "now", "9" * 30),
    "runs-entry-is-noise": lambda store: store.hset("@runs", mapping={"1": "\x00=\xff = =", "x": "y"}),
    "runs-revision-is-text": lambda store: store.hset("@runs", "1", "someone:else p_dev.card_info=many"),
    "runs-is-empty": lambda store: store.delete("@runs"),
    "identity-is-empty": lambda store: store.set("@set", ""),
    "identity-is-noise": lambda store: store.set("@set", "\x00\r\n" * 1000),
}


@pytest.mark.parametrize("name", _IDENTITY)
def test_the_identity_of_the_data_found_at_the_start(rig, name):
    chassis = prepared(rig)
    _IDENTITY[name](rig.database(HOST))
    rig.start()
    expect_service(rig, chassis)
    rig.store.ask(b"CLIENT KILL TYPE normal SKIPME yes\r\n")
    rig.store.ask(b"CLIENT KILL TYPE pubsub SKIPME yes\r\n")
    expect_service(rig, chassis, _SPOILT)


@pytest.mark.parametrize("name", [name for name in _IDENTITY if name != "runs-is-empty"])
def test_the_identity_of_the_data_is_told_of(rig, name):
    prepared(rig)
    _IDENTITY[name](rig.database(HOST))
    rig.start()
    rig.settle()
    assert "@runs" in rig.logged() or "@set" in rig.logged()


@pytest.mark.parametrize("key", ["@set", "@runs"])
def test_the_identity_of_the_data_is_something_else(rig, key):
    """The daemon says what is wrong, and serves at the latest when it is mended."""
    chassis = prepared(rig)
    store = rig.database(HOST)
    store.delete(key)
    store.rpush(key, "a", "list")
    rig.daemon = rig.new_daemon()
    rig.daemon.start()
    rig.expect(lambda: key in rig.logged() + rig.daemon.complained(), "the daemon says what is wrong", seconds=5)
    store.delete(key)
    if not rig.daemon.is_running or not rig.logged().count("module: num["):
        rig.daemon.stop()
        rig.start()
    expect_service(rig, chassis)
