"""Records as the store holds them: keys, published changes, and packed sub-messages.

Everything is bytes, as it is in the store; a hash field is named by the number of the record's field. See
docs/store-format.md for the forms.
"""
import dataclasses
import string

DELETED = 3  # the command of a change that deletes; 4 and 6 write

_PLAIN = frozenset(string.ascii_letters.encode() + string.digits.encode() + b"._-~" + bytes(range(0x80, 0x100)))


class Malformed(ValueError):
    """What was read is not in the form that it should have."""


def key_part(value):
    """One field of an index as it stands in a key."""
    if isinstance(value, int):
        return b"%d" % value
    text = value.encode() if isinstance(value, str) else value
    return b"".join(bytes([byte]) if byte in _PLAIN else b"%%%02X" % byte for byte in text)


def key(type_name, *index):
    """The key of a record: its type's name, then each field of its index."""
    return b":".join([type_name.encode(), *map(key_part, index)])


def numbers_in_key(text):
    """The index of a key whose index has numbers only."""
    try:
        return [int(part) for part in text.split(b":")[1:]]
    except ValueError as problem:
        raise Malformed(f"the key {text!r} has a part that is no number") from problem


def number(fields, name, fallback=0):
    """The value of a number, a boolean or an enumeration; absent ones are at their default."""
    try:
        return int(fields.get(name, b"%d" % fallback))
    except ValueError as problem:
        raise Malformed(f"field {name!r} holds {fields[name]!r}, which is no number") from problem


def text(fields, name):
    """The value of a text."""
    return fields.get(name, b"").decode("utf-8", "replace")


@dataclasses.dataclass
class Change:
    """What became of a record: its content as it now is, or, when it was deleted, as it last was."""

    revision: int
    is_deleted: bool
    key: bytes
    fields: dict


def _item(payload, at):
    colon = payload.find(b":", at)
    if colon < 0 or not payload[at:colon].isdigit():
        raise Malformed("a published change is cut short")
    end = colon + 1 + int(payload[at:colon])
    if end > len(payload):
        raise Malformed("a published change is cut short")
    return payload[colon + 1:end], end


def parse_change(record_key, payload):
    """Reads what was published on the channel of a record."""
    items, at = [], 0
    while at < len(payload):
        item, at = _item(payload, at)
        items.append(item)
    if len(items) < 3 or not all(item.isdigit() for item in items[:3]) or len(items) != 3 + 2 * int(items[2]):
        raise Malformed("a published change has another number of items than it says")
    fields = dict(zip(items[3::2], items[4::2]))
    fields.pop(b"by", None)  # who made the change, and why: of no use to a check
    return Change(int(items[0]), int(items[1]) == DELETED, record_key, fields)


def _varint(data, at):
    value, shift = 0, 0
    while shift < 70 and at < len(data):
        value |= (data[at] & 0x7F) << shift
        at, shift = at + 1, shift + 7
        if data[at - 1] < 0x80:
            return value & 0xFFFFFFFFFFFFFFFF, at
    raise Malformed("a packed number is cut short")


def unpack(data):
    """The fields of a packed message, {number: value}: numbers as int, everything else as bytes.

    Of a field that comes more than once the last one counts, which is right for all but repeated fields.
    """
    fields, at = {}, 0
    while at < len(data):
        tag, at = _varint(data, at)
        wire_type = tag & 7
        if wire_type == 0:
            fields[tag >> 3], at = _varint(data, at)
            continue
        if wire_type == 2:
            length, at = _varint(data, at)
        elif wire_type in (1, 5):
            length = 8 if wire_type == 1 else 4
        else:
            raise Malformed(f"a packed field is of wire type {wire_type}")
        if at + length > len(data):
            raise Malformed("a packed field is cut short")
        fields[tag >> 3] = data[at:at + length]
        at += length
    return fields


def signed(value):
    """A packed int32, int64 or enumeration as the number that it stands for."""
    return value - (1 << 64) if value >> 63 else value
