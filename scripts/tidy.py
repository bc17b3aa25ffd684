#!/usr/bin/env python3
"""Runs clang-tidy over every source that a build compiles, as many units at a time as there are processors.

A unit is a source, or the sources of a folder that the compiler reads together, and so looks at their headers, most of the
work, once. A unit that was found clean is not checked again until a source of it, a header, the rules or clang-tidy itself
have changed: what is kept of it is a digest of the preprocessed text, comments included, since they may switch a check
off.

Each unit has a process of its own: the analyzer of version 14 sees va_lists wrongly from the second one on.
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
COMPILERS = {".c": "clang-14", ".cpp": "clang++-14", ".cxx": "clang++-14"}


def sources(unit: pathlib.Path) -> list[pathlib.Path]:
    """The project's own sources in a unit; none when all of it is generated."""
    if unit.parent.name == "Unity":
        return [pathlib.Path(name) for name in re.findall(r'^#include "(.*)"', unit.read_text(encoding="utf-8"), re.MULTILINE)]
    return [] if unit.is_relative_to(ROOT / "build") else [unit]


def commands(build: pathlib.Path) -> dict[pathlib.Path, dict]:
    """The compile command of each unit, the longest unit first; what two programs are made of is checked once."""
    found: dict[pathlib.Path, dict] = {}
    known: set[pathlib.Path] = set()
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        unit = pathlib.Path(entry["file"]).resolve()
        if not known.issuperset(sources(unit)):
            known.update(sources(unit))
            found[unit] = entry
    return dict(sorted(found.items(), key=lambda item: -sum(path.stat().st_size for path in sources(item[0]))))


def flags(entry: dict) -> list[str]:
    """The compile command without compiler, source and object."""
    words = shlex.split(entry["command"])
    # A launcher may stand before the compiler.
    words = words[next(number for number, word in enumerate(words) if word.startswith("-")):]
    at = words.index("-o")
    del words[at:at + 2]
    return words[:words.index("-c")]


def unified(unit: pathlib.Path) -> pathlib.Path:
    """What to show the analyzer for a unit: by this name alone it knows a file whose included sources it has to look at."""
    if unit.parent.name != "Unity":
        return unit
    path = unit.with_name(f"UnifiedSource_{unit.name}")
    path.write_text("".join(f'#include "{name}" // NOLINT(bugprone-suspicious-include)\n' for name in sources(unit)),
                    encoding="utf-8")
    return path


def preprocessed(unit: pathlib.Path, entry: dict) -> bytes:
    """What the compiler makes of a unit before it parses it; empty when it cannot."""
    done = subprocess.run([COMPILERS[unit.suffix], "-E", "-C", "-w", "-Wno-error", *flags(entry), str(unit)],
                          cwd=entry["directory"], capture_output=True, check=False)
    return done.stdout if done.returncode == 0 else b""


class Checker:
    """Checks units, and remembers which are clean."""

    def __init__(self, build: pathlib.Path) -> None:
        self.clean = build / "clean"
        self.clean.mkdir(parents=True, exist_ok=True)
        version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout
        self.rules = version + (ROOT / ".clang-tidy").read_bytes()

    def check(self, unit: pathlib.Path, entry: dict) -> str:
        """What is found in a unit; empty when nothing is."""
        text = preprocessed(unit, entry)
        known = self.clean / hashlib.sha256(self.rules + b"\0" + text).hexdigest()
        if text and known.exists():
            return ""
        done = subprocess.run([TIDY, "--quiet", f"--config-file={ROOT / '.clang-tidy'}", str(unified(unit)), "--",
                               *flags(entry)], cwd=entry["directory"], capture_output=True, text=True, check=False)
        if done.returncode == 0:
            known.touch()
            return ""
        return done.stdout + done.stderr


def write_junit(path: pathlib.Path, found: dict[pathlib.Path, str]) -> None:
    """The results, a test for each unit, as test runners write them."""
    suite = tree.Element("testsuite", name="clang-tidy", tests=str(len(found)))
    for unit, text in found.items():
        name = " ".join(str(path.relative_to(ROOT)) for path in sources(unit))
        case = tree.SubElement(suite, "testcase", classname="clang-tidy", name=name)
        if text:
            tree.SubElement(case, "failure", message="findings").text = re.sub(r"[^\t\n\x20-\x7e]", "?", text)
    tree.ElementTree(suite).write(path)


def main() -> int:
    """Checks all units, or those of the sources named."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build" / "lint", help="a configured build")
    parser.add_argument("--log", type=pathlib.Path, help="where to write all that is found")
    parser.add_argument("--junit", type=pathlib.Path, help="where to write the results as JUnit")
    parser.add_argument("source", nargs="*", type=lambda name: pathlib.Path(name).resolve())
    options = parser.parse_args()

    todo = commands(options.build.resolve())
    unknown = set(options.source).difference(*map(sources, todo))
    if unknown:
        parser.error(f"{min(unknown)} is not compiled in {options.build}")
    if options.source:
        todo = {unit: entry for unit, entry in todo.items() if not set(sources(unit)).isdisjoint(options.source)}
    checker = Checker(options.build.resolve())
    found = {}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        running = {pool.submit(checker.check, unit, entry): unit for unit, entry in todo.items()}
        shown: set[str] = set()
        for done in concurrent.futures.as_completed(running):
            text = found[running[done]] = done.result()
            # What is wrong in a header is found in each unit that includes it.
            for line in re.findall(r"^.*(?:warning|error):.*$", text, re.MULTILINE):
                if line not in shown:
                    print(line, file=sys.stderr, flush=True)
                    shown.add(line)
            if len(found) % 10 == 0 or len(found) == len(running):
                print(f"[{len(found)}/{len(running)}] checked", flush=True)
    texts = [text for _, text in sorted(found.items()) if text]
    if options.log:
        options.log.write_text("\n".join(texts), encoding="utf-8")
    if options.junit:
        write_junit(options.junit, dict(sorted(found.items())))
    return 1 if texts else 0


if __name__ == "__main__":
    sys.exit(main())
