#!/usr/bin/python3
"""Every command that a page shows is run, or the page says beside it why it is not.

```sh               is run, in the order of the page, on a device of the page's own (pages.Bench)
```sh endless       is run until it has printed a line, then stopped as by Ctrl-C
```sh exits N: why  must end with that status
```sh norun: why    is not
<!-- run: COMMAND -->   is run unseen, for what a command on the page finds in place on a real device

The examples of cgctl(1) are run likewise; a comment of mdoc above one says the same as the words behind `sh`.

Blocks of other kinds, and those without one, may show no commands. Those of store-format.md, with their replies, are run by
store_format_test.py.
"""
import re
import sys
import unittest

from pages import ROOT, Bench, all_pages, blocks, manual_examples

# Kinds that are no commands, and those that another test runs.
SHOWN = {"", "text", "c", "cpp", "cmake", "python", "json", "ini", "scenario", "sql", "yaml", "promql", "proto"}
RUN_ELSEWHERE = {"redis", "shell", "payload"}
COMMAND = re.compile(r"^(\$ )?(cgctl|cg_recorderd|cg_sim|systemctl|journalctl|apt|apt-get|cmake|redis-cli|\./run|\./test)( |$)")


def is_run(block):
    """Whether this test runs it."""
    return block.kind == "run" or (block.kind == "sh" and not block.argument.startswith("norun"))


def wanted_status(block):
    """The exit status that a block must end with."""
    exits = re.match(r"exits (\d+):", block.argument)
    return int(exits.group(1)) if exits else 0


class FencesTest(unittest.TestCase):
    def test_say_what_they_hold(self):
        for path in all_pages():
            for block in blocks(path.read_text(encoding="utf-8")):
                with self.subTest(f"{path.relative_to(ROOT)}:{block.line}"):
                    self.assertIn(block.kind, SHOWN | RUN_ELSEWHERE | {"sh", "run"})
                    if block.kind == "sh":
                        self.assertRegex(block.argument, r"^(|endless|exits \d+: \S.*|norun: \S.*)$")
                    if block.kind in SHOWN:
                        for line in block.lines:
                            self.assertIsNone(COMMAND.match(line), f"{line!r} is a command: mark the block sh")
                    if block.kind in RUN_ELSEWHERE:
                        self.assertEqual(path.name, "store-format.md")

    def test_are_all_found(self):
        for path in all_pages():
            page = path.read_text(encoding="utf-8")
            fences = len(re.findall(r"^ *```", page, re.MULTILINE))
            found = sum(block.kind != "run" for block in blocks(page))
            self.assertEqual(fences, 2 * found, f"{path}: a fence is not closed, or set in")


class CommandsTest(unittest.TestCase):
    maxDiff = None

    def test_of_every_page_work(self):
        wanted = ran = 0
        for path in all_pages():
            page = [block for block in blocks(path.read_text(encoding="utf-8")) if is_run(block)]
            wanted += len(page)
            if page:
                ran += self.run_page(path.relative_to(ROOT), page)
        self.assertEqual(ran, wanted)
        self.assertGreater(ran, 10)

    def test_of_the_manual_work(self):
        examples = list(manual_examples())
        self.assertGreaterEqual(len(examples), 5)
        for block in examples:
            self.assertRegex(block.argument, r"^(|endless|exits \d+: \S.*|norun: \S.*)$")
        page = [block for block in examples if is_run(block)]
        self.assertEqual(self.run_page("cgctl(1)", page), len(page))

    def run_page(self, name, page):
        """Runs a page's blocks; returns how many that were."""
        bench = Bench()
        try:
            for count, block in enumerate(page, 1):
                run = bench.run_until_it_speaks if block.argument == "endless" else bench.run
                status, printed = run(block.text)
                with self.subTest(f"{name}:{block.line}"):
                    self.assertEqual(status, wanted_status(block), f"\n{block.text}\n{printed}")
        finally:
            bench.close()
        return count


if __name__ == "__main__":
    sys.exit(unittest.main(verbosity=2))
