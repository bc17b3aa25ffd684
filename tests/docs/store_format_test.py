#!/usr/bin/python3
"""docs/store-format.md says what is so.

Its examples are run in their order, against a real store server with the daemon beside it: `redis N` blocks through
redis-cli in database N, `shell` blocks through cgctl, and a `payload CHANNEL` block is what came next on that channel,
byte for byte. Its tables are held against the schemas, against cgctl, and against the module in kit/examples, which
was written from the page.
"""
import ast
import collections
import re
import shlex
import subprocess
import sys
import unittest

import redis

from pages import ROOT, blocks  # noqa: I001  (brings the paths to the others)
from rig import REQUEST, Rig

sys.path.insert(0, str(ROOT / "kit" / "examples" / "python"))

import records  # noqa: E402  (needs the path above)

PAGE = ROOT / "docs" / "store-format.md"

# What differs from run to run, as the page calls it.
PLACEHOLDERS = {"mark": r"[0-9a-f]{8}\.\d+ (?:-|timer|connection|\d+ \S+)", "instance": "[0-9a-f]{8}", "n": r"\d+",
                "len": r"\d+", "identity": "[0-9a-f]{32}", "run": "[0-9a-f]{40}:[0-9a-f]{40}",
                "sha1": "[0-9a-f]{40}", "line": r"\d+"}
PAYLOAD_S = 20


def commands(lines, prompt):
    """The commands of a block, each with the reply that the page shows."""
    found = []
    for line in lines:
        if line.startswith(prompt):
            found.append((line[len(prompt):], []))
        else:
            found[-1][1].append(line)
    return found


def matches(expected, seen):
    """Whether a reply is the one that the page shows."""
    pattern = "".join(f"(?:{PLACEHOLDERS[part]})" if i % 2 else re.escape(part)
                      for i, part in enumerate(re.split(r"<(\w+)>", "\n".join(expected))))
    return re.fullmatch(pattern, "\n".join(seen)) is not None


class Device:
    """The store and the daemon that the examples are run on."""

    def __init__(self):
        self.rig = Rig()
        self._arrived = collections.defaultdict(collections.deque)
        self.rig.modules("thermal")
        self.rig.role("master")
        self._subscription = self.rig.database(1).connection_pool.make_connection()
        self._subscription.send_command("PSUBSCRIBE", "@chg:*")
        self._subscription.read_response()
        self.rig.start()

    def close(self):
        """Stops all of it."""
        self._subscription.disconnect()
        self.rig.close()

    def redis(self, database, command):
        """What redis-cli shows."""
        done = subprocess.run(["redis-cli", "-s", self.rig.store.socket_path, "-n", database, "--no-raw"],
                              input=command + "\n", capture_output=True, text=True, timeout=60, check=True)
        # A blank line that redis-cli puts after an error is for the eye.
        return [line for line in done.stdout.splitlines() if line]

    def shell(self, command):
        """Runs a command of the page; it has to be cgctl."""
        program, *words = shlex.split(command)
        assert program == "cgctl", command
        return self.rig.cgctl(*words).splitlines()

    def payload(self, channel):
        """What came next on a channel."""
        def arrived():
            while self._subscription.can_read(0.1):
                _, _, name, content = self._subscription.read_response(disable_decoding=True)
                self._arrived[name].append(content)
            return self._arrived[channel.encode()]
        self.rig.expect(arrived, f"a message on {channel}", PAYLOAD_S)
        return self._arrived[channel.encode()].popleft()


def run_page(device, page):
    """Runs all examples; yields for each one: what, as the page has it, as it is, and whether that is the same."""
    for block in blocks(page):
        kind, argument, lines = block.kind, block.argument, block.lines
        if kind not in ("redis", "shell", "payload"):
            continue
        if kind == "payload":
            seen = device.payload(argument)
            yield argument, lines, [quoted(seen)], matches(lines, [quoted(seen)])
            continue
        for command, expected in commands(lines, "$ " if kind == "shell" else "> "):
            if kind == "shell":
                seen = device.shell(command)
                # The device has settled before the next command looks.
                if command.startswith("cgctl card plug"):
                    device.rig.expect(lambda: device.rig.keys(1, REQUEST), "the check request")
            else:
                seen = device.redis(argument, command)
            yield command, expected, seen, matches(expected, seen)


def quoted(content):
    """Bytes as redis-cli shows them."""
    special = {7: "\\a", 8: "\\b", 9: "\\t", 10: "\\n", 13: "\\r", 34: '\\"', 92: "\\\\"}
    return '"' + "".join(special.get(byte) or (chr(byte) if 32 <= byte < 127 else f"\\x{byte:02x}")
                         for byte in content) + '"'


def unquoted(line):
    """The bytes that redis-cli shows so, with something in the place of what differs from run to run."""
    line = line.replace("<instance>.<n>", "0123abcd.7")
    if "<len>" in line:
        line = line.replace("<len>", str(len(line.split("<len>:")[1]) - 1))
    return ast.literal_eval("b" + line)


class ExamplesTest(unittest.TestCase):
    maxDiff = None

    def test_the_examples_do_what_the_page_says(self):
        device = Device()
        try:
            ran = list(run_page(device, PAGE.read_text(encoding="utf-8")))
        finally:
            device.close()
        for what, expected, seen, same in ran:
            with self.subTest(what):
                self.assertTrue(same, "the page has:\n" + "\n".join(expected) + "\nand it is:\n" + "\n".join(seen))
        self.assertGreater(len(ran), 25)

    def test_a_published_change_reads_as_the_page_says(self):
        payloads = [block.lines[0] for block in blocks(PAGE.read_text(encoding="utf-8")) if block.kind == "payload"]
        changes = [records.parse_change(b"", unquoted(line)) for line in payloads]
        self.assertEqual((changes[0].revision, changes[0].fields), (1, {b"6": b"200", b"7": b"3", b"8": b"103"}))
        self.assertEqual([change.is_deleted for change in changes], [False, False, False, True, False, True, True])

    def test_the_check_sees_another_reply(self):
        self.assertTrue(matches(['1) "by"', '2) "<mark>"'], ['1) "by"', '2) "0123abcd.12 -"']))
        self.assertFalse(matches(['1) "by"', '2) "<mark>"'], ['1) "by"', '2) "somebody"']))
        self.assertFalse(matches(['"1"'], ['"2"']))
        self.assertFalse(matches([], ['"2"']))


class RightsTest(unittest.TestCase):
    """The table of rights by function: with these rights each works, without any one of them it changes nothing."""

    KIND = "p_dev.dm_set_card_custom_st"
    KEY = f"{KIND}:1:6:0:me:x"

    def setUp(self):
        self.rig = Rig()
        self.addCleanup(self.rig.close)
        self.rig.cgctl("set", self.KIND, "t_devid=9")  # brings the functions
        self.store = self.rig.database(33)
        self.names = [self.KEY, f"@rev:{self.KIND}", f"@idx:{self.KIND}"]

    def call(self, function, rights):
        """Calls a function as a user with just these rights; returns the error, or None."""
        self.store.execute_command("ACL", "SETUSER", "user", "reset", "on", ">x", "~*", "&*", "+select", "+fcall",
                                   *(f"+{right.lower()}" for right in rights))
        keys = self.names[1:] if function == "vx_mom2_pdel" else self.names
        more = {"vx_mom2_set": ["m.1", "6", "1"], "vx_mom2_hmset": ["m.1", "2", "6", "1", "7"], "vx_mom2_del": [],
                "vx_mom2_pdel": [f"{self.KIND}:1:"]}[function]
        with redis.Redis(unix_socket_path=str(self.rig.store.socket_path), db=33, username="user",
                         password="x") as client:
            try:
                client.execute_command("FCALL", function, len(keys), *keys, "@chg:33:", *more)
            except redis.ResponseError as error:
                return error
        return None

    def state(self):
        """What the records of the type are at the moment."""
        return [self.store.hgetall(self.KEY), self.store.get(self.names[1]), self.store.smembers(self.names[2])]

    def test_the_rights_by_function_are_those_it_takes(self):
        table = PAGE.read_text(encoding="utf-8").split("By function, ")[1].split("\n## ")[0]
        rows = re.findall(r"^\| `(vx_mom2_\w+)` \| (.*) \|$", table, re.MULTILINE)
        self.assertEqual(len(rows), 4)
        for function, cells in rows:
            rights = set(re.findall(r"`([A-Z]+)`", cells))
            for missing in sorted(rights):
                with self.subTest(function, missing=missing):
                    self.assertTrue(self.refused_without(function, rights - {missing}), "nobody missed it")
            self.write_record()
            before = self.state()
            self.assertIsNone(self.call(function, rights))
            self.assertNotEqual(self.state(), before)

    def write_record(self):
        """Has the record there."""
        self.rig.cgctl("set", self.KIND, "t_devid=1", "t_slotid=6", "t_mod_name=me", "t_reason=x", "status=1")

    def refused_without(self, function, rights):
        """Whether the function is refused, with the record there or without it; then nothing may have changed."""
        self.write_record()
        refused = self.is_refused(function, rights)
        self.store.delete(self.KEY)
        self.store.srem(self.names[2], self.KEY)
        return self.is_refused(function, rights) or refused

    def is_refused(self, function, rights):
        """Whether a call is refused; then nothing may have changed."""
        before = self.state()
        error = self.call(function, rights)
        if error is None:
            return False
        self.assertRegex(repr(error), "NoPermission|The user executing the script|ACL failure in script")
        self.assertEqual(self.state(), before)
        return True


def sections(page, marks):
    """The texts below the headings that begin so, by heading."""
    parts = re.split(rf"^{marks} (.+)$", page.split("\n## Record types")[1].split("\n## ")[0], flags=re.MULTILINE)
    return {name: text.split("\n#")[0] for name, text in zip(parts[1::2], parts[2::2])}


def fields_in_table(text):
    """{number: (name, type)} of a table of fields."""
    return {int(number): (name, kind.replace("`", ""))
            for number, name, kind in re.findall(r"^\| (\d+) \| `(\w+)` \| ([^|]+?) \|", text, re.MULTILINE)}


def schemas():
    """Messages, {name: {number: (field, type)}}, and enumerations, {name: {value: name}}; all names in full."""
    messages, enumerations = {}, {}
    for path in (ROOT / "proto").glob("[ps]_*.proto"):
        package = path.stem
        text = re.sub(r"//.*", "", path.read_text(encoding="utf-8"))
        for kind, name, body in re.findall(r"^(message|enum) (\w+) \{\n(.*?)^\}", text, re.MULTILINE | re.DOTALL):
            if kind == "enum":
                enumerations[f"{package}.{name}"] = {int(value): word for word, value in
                                                     re.findall(r"(\w+) = (\d+);", body)}
                continue
            found = re.findall(r"^ +(repeated )?([\w.]+) (\w+) = (\d+)", body, re.MULTILINE)
            messages[f"{package}.{name}"] = {
                int(number): (field, repeated + (kind if kind in ("int32", "bool", "string", "bytes") or "." in kind
                                                 else f"{package}.{kind}"))
                for repeated, kind, field, number in found}
    return messages, enumerations


def homes():
    """The database of each record type, as cgctl knows it."""
    room = ROOT / "lib" / "records"
    names = (room / "include" / "records" / "databases.h").read_text(encoding="utf-8")
    numbers = {name: int(number) for name, number in re.findall(r"int32_t (\w+) = (\d+);", names)}
    text = (room / "record_types.cpp").read_text(encoding="utf-8")
    return {name: numbers[database] for name, database in re.findall(r'Home\{"([\w.]+)", (\w+)\}', text)}


class TablesTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.page = PAGE.read_text(encoding="utf-8")
        self.messages, self.enumerations = schemas()

    def test_every_record_type_is_there_with_its_database_key_and_fields(self):
        listed = sections(self.page, "###")
        for name, database in homes().items():
            with self.subTest(name):
                fields = dict(self.messages[name])
                index = {number: field for number, field in fields.items() if field[0] == "index"}
                parts = []
                for number, (_, kind) in index.items():
                    del fields[number]
                    parts = [field for field, _ in self.messages[kind].values()]
                self.assertEqual(fields_in_table(listed[name]), fields)
                where = re.search(r"Database (\d+), key `(.*?)`", listed[name])
                self.assertEqual(int(where.group(1)), database)
                self.assertEqual(where.group(2), ":".join([name, *(f"<{part}>" for part in parts)]))
                texts = {field for _, kind in index.values() for field, of in self.messages[kind].values()
                         if of == "string"}
                said = re.search(r"Texts: (.*?); the others are `int32`", listed[name])
                self.assertEqual(set(re.findall(r"`(\w+)`", said.group(1))) if said else set(), texts)
        self.assertEqual({name for name in listed if "." in name}, set(homes()))

    def test_every_sub_message_and_enumeration_is_there(self):
        listed = sections(self.page, "####")
        for name, text in listed.items():
            self.assertEqual(fields_in_table(text), self.messages[name])
        used, queue = set(), [*homes(), *listed]
        for name in queue:
            used |= {kind.removeprefix("repeated ") for field, kind in self.messages[name].values()
                     if field != "index" or name in listed}
        self.assertEqual({kind for kind in used if kind in self.messages}, set(listed))
        table = sections(self.page, "###")["Enumerations"]
        rows = dict(re.findall(r"^\| `([\w.]+)` \| (\d.*) \|$", table, re.MULTILINE))
        self.assertEqual({name: {int(value): word for value, word in re.findall(r"(\d+) `(\w+)`", row)}
                          for name, row in rows.items()}, self.enumerations)

    def test_texts_stand_in_keys_as_the_page_says(self):
        table = self.page.split("| Text | In a key |")[1].split("\n\n")[0]
        rows = re.findall(r"^\| `(.+?)` \| `(.+?)` \|$", table, re.MULTILINE)
        self.assertEqual(len(rows), 4)
        for text, part in rows:
            self.assertEqual(records.key_part(text), part.encode())

    def test_the_databases_are_those_of_the_types(self):
        rows = re.findall(r"^\| (\d+) \| (?:host|cap|dev global) \|", self.page, re.MULTILINE)
        self.assertEqual({int(number) for number in rows}, set(homes().values()))

    def test_links_within_the_page_lead_somewhere(self):
        anchors = {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
                   for heading in re.findall(r"^#+ (.*)$", self.page, re.MULTILINE)}
        for anchor in re.findall(r"\]\(#([^)]+)\)", self.page):
            self.assertIn(anchor, anchors)


if __name__ == "__main__":
    unittest.main(verbosity=2)
