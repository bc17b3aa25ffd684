#!/usr/bin/env python3
"""Runs clang-tidy over every source that a build compiles, as many at a time as there are processors.

A source that was found clean is not checked again until it, a header that it includes, the rules or clang-tidy itself
have changed: what is kept of it is a digest of the preprocessed text, comments included, since they may switch a check
off. So a run from nothing takes longer than all tests, and one after an edit what the edited sources take.

Each source has a process of its own: the analyzer of version 14 sees va_lists wrongly from the second file on.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import xml.etree.ElementTree as tree

ROOT = pathlib.Path(__file__).resolve().parents[1]
TIDY = "clang-tidy-14"
COMPILERS = {".c": "clang-14", ".cpp": "clang++-14"}


def commands(build: pathlib.Path) -> dict[pathlib.Path, dict]:
    """The compile command of each source of the project's own; a source of two programs is checked once."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        path = pathlib.Path(entry["file"]).resolve()
        if path.is_relative_to(ROOT) and not path.is_relative_to(ROOT / "build"):
            found.setdefault(path, entry)
    return found


def preprocessed(path: pathlib.Path, entry: dict) -> bytes:
    """What the compiler makes of a source before it parses it; empty when it cannot."""
    words = shlex.split(entry["command"])
    # A launcher may stand before the compiler.
    first = next(number for number, word in enumerate(words) if word.startswith("-"))
    words = words[first:]
    at = words.index("-o")
    del words[at:at + 2]
    words = [word for word in words if word not in ("-c", "-Werror")]
    done = subprocess.run([COMPILERS[path.suffix], "-E", "-C", "-w", *words], cwd=entry["directory"], capture_output=True,
                          check=False)
    return done.stdout if done.returncode == 0 else b""


class Checker:
    """Checks sources, and remembers which are clean."""

    def __init__(self, build: pathlib.Path) -> None:
        self.build = build
        self.clean = build / "clean"
        self.clean.mkdir(parents=True, exist_ok=True)
        version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout
        self.rules = version + (ROOT / ".clang-tidy").read_bytes()

    def check(self, path: pathlib.Path, entry: dict) -> str:
        """What is found in a source; empty when nothing is."""
        text = preprocessed(path, entry)
        known = self.clean / hashlib.sha256(self.rules + b"\0" + text).hexdigest()
        if text and known.exists():
            return ""
        done = subprocess.run([TIDY, "--quiet", "-p", str(self.build), str(path)], cwd=ROOT, capture_output=True,
                              text=True, check=False)
        if done.returncode == 0:
            known.touch()
            return ""
        return done.stdout + done.stderr


def write_junit(path: pathlib.Path, found: dict[pathlib.Path, str]) -> None:
    """The results, a test for each source, as test runners write them."""
    suite = tree.Element("testsuite", name="clang-tidy", tests=str(len(found)))
    for source, text in found.items():
        case = tree.SubElement(suite, "testcase", classname="clang-tidy", name=str(source.relative_to(ROOT)))
        if text:
            tree.SubElement(case, "failure", message="findings").text = re.sub(r"[^\t\n\x20-\x7e]", "?", text)
    tree.ElementTree(suite).write(path)


def main() -> int:
    """Checks all sources, or those named."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build" / "lint", help="a configured build")
    parser.add_argument("--log", type=pathlib.Path, help="where to write all that is found")
    parser.add_argument("--junit", type=pathlib.Path, help="where to write the results as JUnit")
    parser.add_argument("source", nargs="*", type=lambda name: pathlib.Path(name).resolve())
    options = parser.parse_args()

    todo = commands(options.build.resolve())
    unknown = [str(path) for path in options.source if path not in todo]
    if unknown:
        parser.error(f"{unknown[0]} is not compiled in {options.build}")
    checker = Checker(options.build.resolve())
    found = {}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        running = {pool.submit(checker.check, path, todo[path]): path for path in options.source or sorted(todo)}
        for done in concurrent.futures.as_completed(running):
            found[running[done]] = done.result()
            if len(found) % 20 == 0 or len(found) == len(running):
                print(f"[{len(found)}/{len(running)}] checked", flush=True)
    texts = [text for _, text in sorted(found.items()) if text]
    if options.log:
        options.log.write_text("\n".join(texts), encoding="utf-8")
    if options.junit:
        write_junit(options.junit, dict(sorted(found.items())))
    lines = sorted({line for text in texts for line in text.splitlines() if re.search(r"(warning|error):", line)})
    print("\n".join(lines[:60]), file=sys.stderr)
    return 1 if texts else 0


if __name__ == "__main__":
    sys.exit(main())
