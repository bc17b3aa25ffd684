#!/usr/bin/python3
"""docs/json.md describes what is printed.

A block ```json COMMAND is an example of what the command prints: the same members of the same types, at every level. An
empty object or list stands for any, and null for a value of any type. Beyond the examples, every member that a command
prints is named on the page.
"""
import json
import re
import unittest

from pages import ROOT, Bench, blocks

PAGE = (ROOT / "docs" / "json.md").read_text(encoding="utf-8")
# Members below these are fields of records, which the schemas name.
RECORDS = {"key", "record"}
MORE = ["cgctl list --json", "cgctl show 1/3/0 --json", "cgctl list 1/3/0 --json", "cgctl list --history h --json",
        "cgctl history --history h --json", "cgctl history --history h --chart --json", "cgctl modules --history h --json",
        "cgctl module test --timeout 2 --json -- sleep 1000 || true"]
# A card that was denied and one that passed, in the recorder's file h. It speaks when it has subscribed.
RECORD = r"""
coproc RECORDER { exec cg_recorderd --history h --listen off --life '' 2>&1; }
until [[ $line == *following* ]]; do read -r line <&"${RECORDER[0]}"; done
printf '%s\n' 'module thermal answers pass' 'module power answers deny "too hot"' 'plug 5/1/0 lc name=one serial=00e0' \
    'expect 5/1/0 denied within 20s' 'module power answers pass' 'plug 5/2/0 lc' 'expect 5/2/0 passed within 20s' |
    cg_sim -
kill "$RECORDER_PID"
wait "$RECORDER_PID"
"""


def examples():
    """(command, the value shown, line) of each example."""
    return [(block.argument, json.loads(block.text), block.line) for block in blocks(PAGE)
            if block.kind == "json" and block.argument]


def fits(shown, seen):
    """Whether a value has the form of the one shown."""
    if shown is None or seen is None or shown in ({}, []):
        return type(shown) is type(seen) or shown is None or seen is None
    if isinstance(shown, dict):
        return isinstance(seen, dict) and shown.keys() == seen.keys() and all(fits(shown[k], seen[k]) for k in shown)
    if isinstance(shown, list):
        return isinstance(seen, list) and seen != [] and all(fits(shown[0], value) for value in seen)
    return type(shown) is type(seen)


def members(value):
    """The names of all members."""
    if isinstance(value, list):
        return set().union(*map(members, value))
    if not isinstance(value, dict):
        return set()
    return set(value).union(*(members(below) for name, below in value.items() if name not in RECORDS))


class JsonFormsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bench = Bench()
        cls.addClassCleanup(cls.bench.close)
        status, said = cls.bench.run(RECORD)
        assert status == 0, said

    def printed(self, command):
        """The JSON values that a command prints, on either output."""
        status, text = self.bench.run(command)
        self.assertIsNotNone(status, text)
        return [json.loads(line) for line in text.splitlines()]

    def test_the_examples_have_the_form_of_what_is_printed(self):
        self.assertGreater(len(examples()), 5)
        for command, shown, line in examples():
            with self.subTest(f"{line}: {command}"):
                seen = self.printed(command)
                self.assertTrue(any(fits(shown, value) for value in seen), seen)

    def test_every_member_is_named(self):
        named = set(re.findall(r'[`"]([a-z0-9_.]+)[`"]', PAGE))
        named |= {part for name in named for part in name.split(".")}
        seen = set()
        for command in {*MORE, *(command for command, _, _ in examples())}:
            with self.subTest(command):
                printed = members(self.printed(command))
                self.assertEqual(printed - named, set())
                seen |= printed
        self.assertLessEqual({"sources", "outcome", "took_s", "percentile_95_s", "fix"}, seen)

    def test_a_form_that_differs_is_seen(self):
        self.assertTrue(fits({"a": [{"b": 1}], "c": {}, "d": None}, {"a": [{"b": 2}, {"b": 3}], "c": {"x": 1}, "d": 4}))
        for seen in ({"a": [{"b": "2"}]}, {"a": []}, {"a": [{"c": 1}]}, {"a": [{"b": 1}], "e": 1}, []):
            self.assertFalse(fits({"a": [{"b": 1}]}, seen))


if __name__ == "__main__":
    unittest.main(verbosity=2)
