"""Records of the store, in Python: written through the functions in the server, as every client does, and past our own
store client: what is tested is not helped by what it is tested with.
"""
import itertools
import os

HOST, CAP, DEV_GLOBAL = 1, 28, 33
PASS, DENY = "1", "0"  # the stored verdict

CARD_INFO = "p_dev.card_info"
REQUEST = "p_libpub.app_cg_card_check_info"
ACK = "p_libpub.app_cg_card_check_ack"
BY_TIPC = "p_libpub.app_cg_mom_deny_check_result"
BY_POSITION = "p_libpub.app_cg_card_deny_check_result"
BACKUP = "p_libpub.app_cg_card_bak_info"
CUSTOM_STATUS = "p_dev.dm_set_card_custom_st"
POWER = "s_dev.im_card_power_onoff"
ROLE = "p_dev.dp_lib_grole"

FUNCTIONS = "vx_mom2"

_numbers = itertools.count(1)


def _token():
    """What a write says of itself; another one for each, whichever thread makes it."""
    return f"py-{os.getpid()}.{next(_numbers)} -"


def _varint(number):
    out = bytearray()
    while number > 0x7f:
        out.append(number & 0x7f | 0x80)
        number >>= 7
    return bytes(out + bytes([number]))


def static_info(node_type):
    """The packed sub-message of a card's static part."""
    return b"\x2a\x00" + b"\x30" + _varint(node_type)


def type_of(key):
    """The record type of a key."""
    return key.split(":", 1)[0]


class Records:
    """Writes the records of one database through the server's functions; each call returns the revision."""

    def __init__(self, connection, database):
        self._connection = connection
        self._channels = f"@chg:{database}:"

    def _call(self, function, key, *arguments):
        kind = type_of(key)
        return int(self._connection.execute_command(
            "FCALL", f"{FUNCTIONS}_{function}", 3, key, f"@rev:{kind}", f"@idx:{kind}", self._channels, *arguments))

    @staticmethod
    def _pairs(fields):
        return [text for pair in fields.items() for text in pair]

    def set(self, key, fields):
        """Writes a whole record: {field number: value}, without fields at their defaults."""
        return self._call("set", key, _token(), *self._pairs(fields))

    def hmset(self, key, fields, absent=()):
        """Writes some fields; those in `absent` become defaults."""
        pairs = self._pairs(fields)
        return self._call("hmset", key, _token(), len(pairs), *pairs, *absent)

    def delete(self, key):
        """Deletes a record; the revision is 0 when there was none."""
        return self._call("del", key, _token())

    def pdel(self, kind, prefix):
        """Deletes the records of a type whose keys begin with `prefix`."""
        return int(self.queue_pdel(kind, prefix))

    def queue_pdel(self, kind, prefix):
        """The same, with the answer as the connection gives it: that of a transaction has none yet."""
        return self._connection.execute_command(
            "FCALL", f"{FUNCTIONS}_pdel", 2, f"@rev:{kind}", f"@idx:{kind}", self._channels, prefix,
            _token())


def colons(position):
    """A position as it stands in keys."""
    return position.replace("/", ":")


def tipc_node(position):
    """The TIPC node of a card: 1003 for 1/3/0."""
    device, slot, _ = position.split("/")
    return 1000 * int(device) + int(slot)
