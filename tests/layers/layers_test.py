"""Who may include whom, and what a newcomer may rely on when looking for something.

The table stands on docs/architecture.md, so that page and test cannot disagree. An include is all it takes to tie two
parts together, and no compiler would object.
"""

import argparse
import collections
import fnmatch
import pathlib
import re
import sys
import tempfile
import unittest
from typing import Callable, Iterable, Iterator, NamedTuple

from sources import circles, includes, names_in, sources

PAGE = "docs/architecture.md"
PRODUCT = ("platform", "proto", "src", "builtin", "lib", "tools", "kit")

# Folders that belong to the row of the one that they are in.
WITHIN = {"src/*": "src", "lib/*/include/*": "lib/*", "kit/examples/*": "kit/examples"}
# Where names in quotes are looked for besides the source's own folder.
INCLUDE_FOLDERS = ("platform", "proto", "src", "builtin", "kit", "tools/cgctl", "tools/sim", "tools/recorder",
                   "lib/*/include")
GENERATED = {"store_functions.h": "builtin/store", "completion_scripts.h": "tools/cgctl/verbs",
             "p_dev.pb-c.h": "proto", "p_libpub.pb-c.h": "proto", "s_dev.pb-c.h": "proto",
             "vx_mom_schema_table.h": "proto"}
# Tests whose subject is the daemon itself.
KNOW_THE_DAEMON = ("tests/unit/app_cg", "tests/fuzz", "tests/bench/inside")

STANDARD = {
    "algorithm", "array", "atomic", "bit", "bitset", "cerrno", "charconv", "chrono", "climits", "cmath", "concepts",
    "condition_variable", "csignal", "cstdarg", "cstddef", "cstdint", "cstdio", "cstdlib", "cstring", "ctime", "ctype.h",
    "deque", "errno.h", "exception", "filesystem", "fstream", "functional", "future", "initializer_list", "iomanip", "iostream",
    "istream", "iterator", "limits", "limits.h", "list", "map", "memory", "mutex", "new", "numeric", "optional", "ostream",
    "queue", "random", "ratio", "set", "span", "sstream", "stdbool.h", "stddef.h", "stdexcept", "stdint.h", "stdio.h",
    "stdlib.h", "string", "string.h", "string_view", "system_error", "thread", "tuple", "type_traits", "typeinfo",
    "unordered_map", "unordered_set", "utility", "variant", "vector", "cctype", "clocale", "cwchar", "compare", "regex",
    "cinttypes", "cassert", "source_location", "iosfwd", "memory_resource",
}  # fmt: skip
# Of the system the daemon uses this alone, so that it can be put on any platform.
DAEMON_SYSTEM = {"dirent.h", "fcntl.h", "signal.h", "sys/stat.h", "sys/time.h", "sys/types.h", "unistd.h"}
SYSTEM = DAEMON_SYSTEM | {
    "arpa/inet.h", "langinfo.h", "malloc.h", "netdb.h", "poll.h", "pwd.h", "sched.h", "spawn.h", "stdio_ext.h", "sys/epoll.h",
    "sys/eventfd.h", "sys/syscall.h",
    "sys/file.h", "sys/ioctl.h", "sys/mman.h", "sys/random.h", "sys/resource.h", "sys/socket.h", "sys/statvfs.h", "sys/un.h",
    "sys/wait.h", "sys/signalfd.h", "sys/prctl.h", "syslog.h", "termios.h", "wordexp.h",
}  # fmt: skip
LIBRARIES = {
    "app_cg_kit": ("app_cg_kit.h", "app_cg_kit.hpp"),
    "CLI11": ("CLI/",),
    "hiredis": ("hiredis/",),
    "libevent": ("event2/",),
    "libmd": ("md5.h", "sha1.h", "sha2.h"),
    "libprotoc": ("google/protobuf/",),
    "libutf8proc": ("utf8proc.h",),
    "ncurses": ("ncurses.h",),
    "nlohmann-json": ("nlohmann/",),
    "prometheus-cpp": ("prometheus/",),
    "protobuf-c": ("protobuf-c/",),
    "spdlog": ("spdlog/",),
    "SQLite": ("sqlite3.h",),
}

# Headers that are implemented by others than their stem, each with the reason.
IMPLEMENTED_ELSEWHERE = {
    "platform/*": "declarations alone: whoever brings a platform implements them",
    "kit/app_cg_kit.h": "the public header stands where its users see it; core/api.cpp implements it",
    "builtin/loop/platform_context.h": "the inner face of what platform/vx_thread.h shows; vx_thread.cpp defines both",
    "tools/cgctl/command_line/verbs.h": "the table of verbs: a line each, and a source each",
}

# Circles that stay, each with the reason.
CIRCLES = {
    "circle of modules: src/collect, src/debug_commands": "\"collect\" is a debug command that prints the others",
}

# Sources without a test of their stem: by which test instead, or why by none, and which sources.
TESTED_BY = {
    "nothing to test: one call of what is tested": ["tools/cgctl/main.cpp", "tools/recorder/main.cpp"],
    "tests/system/test_sim.py, by command lines": ["tools/sim/main.cpp"],
    "tests/system/test_module_test.py, by modules on trial": ["kit/try/contract_test.cpp", "kit/try/harness.cpp"],
    "tests/system/test_kit_examples.py, as modules": [
        "kit/examples/compatibility/compatibility.c", "kit/examples/compatibility/table.c",
        "kit/examples/power_budget/budget.cpp", "kit/examples/power_budget/power_budget.cpp",
        "kit/examples/power_budget/table.cpp"],
    "tests/unit/app_cg/schema_test.cpp, by the attributes that it reads for the build": [
        "tools/protoc-gen-vxkey/protoc_gen_vxkey.cpp"],
    "nothing to test: variables alone": ["src/app_cg/app_cg.cpp"],
    "tests/unit/app_cg/schema_test.cpp, with the schemas": ["proto/schema_registry.c"],
    "tests/unit/builtin/log/vx_zlog_test.cpp, by what reaches each destination": [
        "builtin/log/journal_destination.cpp", "builtin/log/log_destination.cpp", "builtin/log/text.cpp"],
    "tests/unit/builtin/process/service_notice_test.cpp, its other user": ["builtin/log/unix_datagram.cpp"],
    "tests/system/test_process.py: closed descriptors are a process's own": ["builtin/loop/standard_descriptors.cpp"],
    "tests/system/test_process.py: so are those that it may open": ["builtin/process/descriptor_watch.cpp"],
    "tests/unit/builtin/shell/ssat_registration_test.cpp, by registered commands": [
        "builtin/shell/arguments.cpp", "builtin/shell/commands.cpp"],
    "tests/unit/builtin/shell/ssat_access_test.cpp, by who may connect": ["builtin/shell/server.cpp"],
    "tests/unit/builtin/shell/ssat_test.cpp, by a conversation": [
        "builtin/shell/output.cpp", "builtin/shell/protocol.cpp", "builtin/shell/socket.cpp"],
    "tests/unit/tools/cgctl/shell/debug_shell_test.cpp, its user": [
        "builtin/shell/client.cpp", "tools/cgctl/verbs/debug.cpp"],
    "tests/unit/lib/records/record_text_test.cpp, by records as JSON": [
        "lib/base/json.cpp", "lib/records/record_types.cpp"],
    "tests/unit/lib/records/position_test.cpp, with what it is a key of": ["lib/records/position_key.cpp"],
    "tests/unit/tools/cgctl/verbs/history_test.cpp, by command lines": [
        "tools/cgctl/cards/module_figures.cpp", "tools/cgctl/verbs/modules.cpp"],
    "tests/unit/tools/cgctl/verbs/list_test.cpp, by command lines": [
        "tools/cgctl/cards/cards.cpp", "tools/cgctl/verbs/card.cpp",
        "tools/cgctl/verbs/role.cpp", "tools/cgctl/verbs/show.cpp"],
    "tests/unit/tools/cgctl/verbs/set_test.cpp, by command lines": [
        "tools/cgctl/access/store.cpp", "tools/cgctl/command_line/named_record.cpp", "tools/cgctl/verbs/del.cpp",
        "tools/cgctl/verbs/get.cpp"],
    "tests/unit/tools/cgctl/command_line/cli_test.cpp, by command lines": [
        "tools/cgctl/command_line/verb.cpp", "tools/cgctl/forms/forms.cpp"],
    "tests/unit/tools/cgctl/command_line/pages_test.cpp, by the page that is printed": [
        "tools/cgctl/command_line/verb_tree.cpp", "tools/cgctl/verbs/manual.cpp"],
    "tests/unit/kit/run/check_runner_test.cpp and tests/unit/kit/try/replay_test.cpp, by command lines": [
        "tools/cgctl/command_line/module_command.cpp", "tools/cgctl/verbs/module.cpp",
        "tools/cgctl/verbs/module_replay.cpp", "tools/cgctl/verbs/module_run.cpp", "tools/cgctl/verbs/module_test.cpp"],
    "tests/unit/tools/cgctl/acl/acl_check_test.cpp, by a server with the list": [
        "tools/cgctl/acl/acl_attempts.cpp", "tools/cgctl/acl/acl_users.cpp",
        "tools/cgctl/acl/secrets.cpp", "tools/cgctl/verbs/acl.cpp"],
    "tests/unit/tools/cgctl/doctor/server_checks_test.cpp, by what is found": [
        "tools/cgctl/doctor/client_checks.cpp", "tools/cgctl/doctor/examination.cpp",
        "tools/cgctl/doctor/rights_checks.cpp", "tools/cgctl/verbs/doctor.cpp"],
    "tests/unit/tools/cgctl/doctor/daemon_checks_test.cpp, by what is found": [
        "tools/cgctl/doctor/card_checks.cpp"],
    "tests/system/test_screen.py: it wants a terminal": [
        "tools/cgctl/screen/curses_screen.cpp", "tools/cgctl/watch/watch_screen.cpp"],
    "tests/unit/tools/cgctl/verbs/watch_test.cpp, by command lines": [
        "tools/cgctl/cards/live_cards.cpp", "tools/cgctl/watch/watch_records.cpp"],
}  # fmt: skip

# What is not true yet, a line each. An entry that has become needless is a failure.
NOT_YET = pathlib.Path(__file__).with_name("not_yet.txt")

options = argparse.Namespace()


class Row(NamedTuple):
    """What the table says of a folder."""

    includes: list[str]  # folders and single headers
    libraries: list[str]


def read_table(text: str) -> dict[str, Row]:
    """The rows of the table, by folder."""
    rows = re.findall(r"^\| `([\w/-]+)/` \|[^|]+\|([^|]+)\|([^|]*)\|$", text, re.MULTILINE)
    quoted = re.compile(r"`([^`]+)`")
    return {folder: Row([name.rstrip("/") for name in quoted.findall(may)], quoted.findall(libraries))
            for folder, may, libraries in rows}


def matches(name: str, allowed: list[str]) -> bool:
    """Whether a header is one of these, or in one of these folders."""
    folder = room_of(pathlib.PurePosixPath(name).parent.as_posix())
    return name in allowed or folder in allowed


def room_of(folder: str) -> str:
    """The folder in whose row a folder is."""
    for pattern, room in WITHIN.items():
        if fnmatch.fnmatchcase(folder, pattern) and folder.count("/") == pattern.count("/"):
            return "/".join(folder.split("/")[: room.count("/") + 1])
    return folder


class Source(NamedTuple):
    """A source of the tree."""

    name: str  # relative to the root
    room: str
    module: str  # room and stem
    quoted: dict[str, str]  # what it includes in quotes, and where that is; empty where nothing is
    angled: list[str]


class Tree:
    """The sources of a tree, with what they include."""

    def __init__(self, root: pathlib.Path) -> None:
        self.root = root
        page = root / PAGE
        self.table = read_table(page.read_text(encoding="utf-8"))
        self.folders = [folder for pattern in INCLUDE_FOLDERS for folder in sorted(root.glob(pattern))]
        self.ambiguous: list[str] = []
        self.sources = {}
        for path in (path for top in PRODUCT for path in sources(root / top)):
            source = self.read(path)
            self.sources[source.name] = source

    def read(self, path: pathlib.Path) -> Source:
        """Reads a source."""
        name = path.relative_to(self.root).as_posix()
        room = room_of(path.parent.relative_to(self.root).as_posix())
        found = includes(path)
        return Source(name, room, f"{room}/{path.stem}",
                      {target: self.resolve(path, target) for quote, target in found if quote == '"'},
                      [target for quote, target in found if quote == "<"])

    def resolve(self, path: pathlib.Path, target: str) -> str:
        """Where an included header is, relative to the root; empty if it is nowhere."""
        if target in GENERATED:
            return f"{GENERATED[target]}/{target}"
        found = {folder / target for folder in (path.parent, *self.folders) if (folder / target).is_file()}
        places = sorted({place.resolve().relative_to(self.root).as_posix() for place in found})
        if len(places) > 1:
            self.ambiguous.append(f"{path.relative_to(self.root)}: {target} is {' and '.join(places)}")
        return places[0] if places else ""

    def strangers(self) -> Iterator[str]:
        """Includes that the table does not allow."""
        yield from self.ambiguous
        for source in self.sources.values():
            row = self.table.get(source.room)
            if row is None:
                yield f"{source.name}: its folder is not in the table"
                continue
            for target, place in source.quoted.items():
                own = place and room_of(pathlib.PurePosixPath(place).parent.as_posix()) == source.room
                if not own and not (place and matches(place, row.includes)):
                    yield f"{source.name} may not include {place or target}"
            for target in source.angled:
                if not self.may_use(source.room, target, row):
                    yield f"{source.name} may not include <{target}>"

    def unused(self) -> Iterator[str]:
        """What the table allows a folder, and none of its sources includes."""
        for room, row in self.table.items():
            places = {place for source in self.sources.values() if source.room == room for place in source.quoted.values()}
            angled = {target for source in self.sources.values() if source.room == room for target in source.angled}
            for allowed in row.includes:
                if not any(matches(place, [allowed]) for place in places if place):
                    yield f"{room} does not include {allowed}: take it out of its row"
            for library in row.libraries:
                if not any(target.startswith(LIBRARIES[library]) for target in angled):
                    yield f"{room} does not use {library}: take it out of its row"

    @staticmethod
    def may_use(room: str, target: str, row: Row) -> bool:
        """Whether a header of the language, the system or a library may be included in a room."""
        system = DAEMON_SYSTEM if room == "src" else SYSTEM
        return target in STANDARD | system or any(target.startswith(LIBRARIES[library]) for library in row.libraries)

    def module_arrows(self) -> dict[str, set[str]]:
        """Who includes whom, by room and stem."""
        arrows = collections.defaultdict(set)
        for source in self.sources.values():
            for place in source.quoted.values():
                if place in self.sources:
                    arrows[source.module].add(self.sources[place].module)
        return arrows

    def room_arrows(self) -> dict[str, set[str]]:
        """Who includes whom, by room."""
        arrows = collections.defaultdict(set)
        for source in self.sources.values():
            arrows[source.room] |= {self.sources[place].room for place in source.quoted.values()
                                    if place in self.sources} - {source.room}
        return arrows

    def circles(self) -> Iterator[str]:
        """Circles of modules, and of rooms."""
        for kind, arrows in (("modules", self.module_arrows()), ("rooms", self.room_arrows())):
            for group in circles(arrows):
                yield f"circle of {kind}: {', '.join(group)}"

    def headers_of(self, exceptions: Iterable[str]) -> tuple[dict[str, set[str]], dict[str, set[str]]]:
        """The modules whose headers declare a function, and those that define a type, by name."""
        functions, types = collections.defaultdict(set), collections.defaultdict(set)
        for source in self.sources.values():
            if not source.name.endswith((".h", ".hpp")):
                continue
            if any(fnmatch.fnmatchcase(source.name, pattern) for pattern in exceptions):
                continue
            for found in names_in(self.root / source.name):
                (types if found.kind == "type" else functions)[found.name].add(source.module)
        return functions, types

    def foreign_definitions(self, exceptions: Iterable[str] = tuple(IMPLEMENTED_ELSEWHERE)) -> Iterator[str]:
        """Functions that a source defines although the header of another stem declares them."""
        functions, types = self.headers_of(exceptions)
        for source in self.sources.values():
            if not source.name.endswith((".c", ".cpp")):
                continue
            owners = collections.defaultdict(list)
            for found in names_in(self.root / source.name):
                if found.kind != "defined":
                    continue
                modules = functions.get(found.name) or types.get(found.name.rpartition("::")[0]) or {source.module}
                if source.module not in modules:
                    owners[min(modules)].append(found.name)
            for module, defined in owners.items():
                yield f"{source.name} implements {module}.h"

    def without_test(self) -> Iterator[str]:
        """Sources of which no test has the stem; a test x_y_test.cpp is that of x_y if there is one, else of x."""
        stems = collections.defaultdict(dict)
        for source in self.sources.values():
            path = pathlib.PurePosixPath(source.name)
            if path.suffix in (".c", ".cpp"):
                stems["app_cg" if source.room == "src" else path.parent][path.stem] = source.name
        for folder, known in stems.items():
            tests = [path.name.removesuffix("_test.cpp") for path in
                     (self.root / "tests" / "unit" / folder).glob("*_test.cpp")]
            tested = {max((stem for stem in known if f"{test}_".startswith(f"{stem}_")), key=len, default="")
                      for test in tests}
            yield from (f"{known[stem]} has no test" for stem in sorted(set(known) - tested))

    def intruders(self) -> Iterator[str]:
        """Tests that include the daemon and are not about it."""
        for path in sources(self.root / "tests"):
            name = path.relative_to(self.root).as_posix()
            if not name.startswith(KNOW_THE_DAEMON):
                for target, place in self.read(path).quoted.items():
                    if place.startswith("src/"):
                        yield f"{name} may not include {target}"

    def flaws(self) -> list[str]:
        """All that is against the rules."""
        return sorted({*self.strangers(), *self.circles(), *self.foreign_definitions(), *self.without_test(),
                       *self.intruders()})


def top_arrows(table: dict[str, Row]) -> dict[str, set[str]]:
    """Who may include whom, by the folders at the root."""
    arrows = collections.defaultdict(set)
    for room, row in table.items():
        top = room.split("/")[0]
        arrows[top] |= {target.split("/")[0] for target in row.includes} - {top}
    return arrows


def drawn_arrows(text: str) -> dict[str, set[str]]:
    """The same as the page draws it, a line for each floor."""
    arrows = {}
    for floor, targets in re.findall(r"^│ (.*)│ *(?:▼ (.*))?$", text, re.MULTILINE):
        for name in re.findall(r"(?:^|│ )(\w+)/", floor):
            arrows[name] = set(targets.split(", ")) if targets else set()
    return arrows


def forbidden_rows(table: dict[str, Row]) -> list[str]:
    """What no table may allow, whatever else it says."""
    found = []
    for room, row in table.items():
        for target in row.includes:
            folder = target if target in table else str(pathlib.PurePosixPath(target).parent)
            programs = [name.split("/")[1] for name in (room, folder) if name.startswith("tools/")]
            if target == "src" or target.startswith("src/") or len(set(programs)) > 1:
                found.append(f"{room}: {target}")
    found += [f"arrow up: {', '.join(group)}" for group in circles(top_arrows(table))]
    allowed = {room: {target if target in table else room_of(str(pathlib.PurePosixPath(target).parent))
                      for target in row.includes} - {room} for room, row in table.items()}
    return found + [f"circle: {', '.join(group)}" for group in circles(allowed)]


class TreeTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls) -> None:
        cls.tree = Tree(options.source)

    def test_the_tree_is_as_the_table_has_it(self) -> None:
        accepted = {*CIRCLES, *(f"{name} has no test" for names in TESTED_BY.values() for name in names)}
        not_yet = set(NOT_YET.read_text(encoding="utf-8").splitlines()) if NOT_YET.is_file() else set()
        flaws = set(self.tree.flaws())
        self.assertEqual(sorted(flaws - accepted - not_yet), [], "against the rules of docs/architecture.md")
        self.assertEqual(sorted((accepted | not_yet) - flaws), [], "an exception is no longer needed: remove it")

    def test_the_table_is_read(self) -> None:
        self.assertGreater(len(self.tree.table), 25)
        self.assertGreater(len(self.tree.sources), 250)
        for room, row in self.tree.table.items():
            self.assertTrue((options.source / room).is_dir(), room)
            for target in row.includes:
                self.assertTrue((options.source / target).exists(), f"{room}: {target}")
            self.assertEqual(set(row.libraries) - set(LIBRARIES), set(), room)

    def test_the_table_allows_nothing_in_vain(self) -> None:
        self.assertEqual(list(self.tree.unused()), [])

    def test_each_header_of_others_is_implemented_by_others(self) -> None:
        for pattern in IMPLEMENTED_ELSEWHERE:
            others = [other for other in IMPLEMENTED_ELSEWHERE if other != pattern]
            self.assertNotEqual(list(self.tree.foreign_definitions(others)), [], f"{pattern}: remove the exception")

    def test_the_table_ties_no_programs_together_and_has_no_circle(self) -> None:
        self.assertEqual(forbidden_rows(self.tree.table), [])

    def test_the_picture_shows_the_table(self) -> None:
        drawn = drawn_arrows((options.source / PAGE).read_text(encoding="utf-8"))
        self.assertEqual(drawn.pop("tests"), set())
        self.assertEqual(drawn, top_arrows(self.tree.table))

    def test_what_is_tested_elsewhere_is(self) -> None:
        for reason, names_of in TESTED_BY.items():
            places = re.findall(r"tests/[\w/]+\.\w+", reason)
            self.assertTrue(places or reason.startswith("nothing to test"), reason)
            for name in places:
                self.assertTrue((options.source / name).exists(), f"{', '.join(names_of)}: {name}")


TABLE = """
| `platform/` | surface | nothing | |
| `src/` | daemon | `platform/` | |
| `builtin/loop/` | loop | `platform/` | `libevent` |
| `builtin/store/` | store | `builtin/loop/` | |
| `lib/base/` | texts | nothing | |
| `lib/cards/` | cards | `lib/base/` | |
| `tools/one/` | program | `lib/cards/`, `builtin/store/client.h` | |
| `tools/two/` | program | `lib/base/` | |
"""
GOOD = {
    "docs/architecture.md": TABLE,
    "platform/loop.h": "int loop(void);",
    "src/app_cg/card.h": '#include "loop.h"\n#include <vector>\nvoid card();',
    "src/app_cg/card.cpp": '#include "app_cg/card.h"\n#include <unistd.h>\nvoid card() { }',
    "builtin/loop/loop.cpp": '#include "loop.h"\n#include <event2/event.h>\nint loop(void) { return 0; }',
    "builtin/store/client.h": '#include "loop/inner.h"\n'
                              "namespace s { class Client { void go(); }; int open(); inline int one() { return 1; } }",
    "builtin/store/client.cpp": '#include "store/client.h"\nnamespace s { void Client::go() { } int open() { return 1; } }',
    "builtin/store/inner.h": "",
    "builtin/loop/inner.h": "",
    "lib/base/include/base/text.h": "#pragma once",
    "lib/cards/include/cards/card_list.h": '#include "base/text.h"\nnamespace c { int cards(int); }',
    "lib/cards/card_list.cpp": '#include "cards/card_list.h"\nnamespace c { namespace { int own() { return 1; } }'
                               "int cards(int n) { return n + own(); } }",
    "tools/one/main.cpp": '#include "cards/card_list.h"\n#include "store/client.h"\nint main() { }',
    "tools/two/main.cpp": '#include "base/text.h"\nint main() { }',
    "tests/unit/app_cg/card_test.cpp": '#include "app_cg/card.h"',
    **{f"tests/unit/{name}_test.cpp": "" for name in ("builtin/loop/loop", "builtin/store/client", "tools/one/main",
                                                      "tools/two/main", "lib/cards/card_list_more")},
}  # fmt: skip


class CheckTest(unittest.TestCase):
    """The check itself, on trees in which something is planted."""

    maxDiff = None

    def flaws(self, planted: dict[str, str], check: Callable[[Tree], Iterable[str]] = Tree.flaws) -> list[str]:
        """What is found in the good tree with these files in it."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder).resolve()
            for name, text in {**GOOD, **planted}.items():
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text, encoding="utf-8")
            return list(check(Tree(root)))

    def test_nothing_is_found_where_nothing_is_planted(self) -> None:
        self.assertEqual(self.flaws({}), [])

    def test_an_include_that_the_table_does_not_have_is_found(self) -> None:
        for name, text, found in (
            ("src/app_cg/card.cpp", '#include "store/client.h"', "may not include builtin/store/client.h"),
            ("src/app_cg/card.cpp", "#include <hiredis/hiredis.h>", "may not include <hiredis/hiredis.h>"),
            ("src/app_cg/card.cpp", "#include <sys/socket.h>", "may not include <sys/socket.h>"),
            ("src/app_cg/card.cpp", '#include "nowhere.h"', "may not include nowhere.h"),
            ("builtin/loop/loop.cpp", '#include "app_cg/card.h"', "may not include src/app_cg/card.h"),
            ("builtin/loop/loop.cpp", '#  include "../../src/app_cg/card.h"', "may not include src/app_cg/card.h"),
            ("builtin/loop/loop.cpp", "#include <spdlog/logger.h>", "may not include <spdlog/logger.h>"),
            ("lib/base/include/base/text.h", '#include "store/client.h"', "may not include builtin/store/client.h"),
            ("tools/one/main.cpp", '#include "store/inner.h"', "may not include builtin/store/inner.h"),
            ("tools/one/main.cpp", '#include "../two/two.h"', "may not include tools/two/two.h"),
        ):
            with self.subTest(name=name, text=text):
                self.assertEqual(self.flaws({"tools/two/two.h": "", name: text}), [f"{name} {found}"])

    def test_what_the_table_allows_for_nothing_is_found(self) -> None:
        for allowed, found in (("`lib/base/`, `builtin/store/inner.h` | |", "lib/cards does not include builtin/store/inner.h"),
                               ("`lib/base/` | `spdlog` |", "lib/cards does not use spdlog")):
            with self.subTest(allowed):
                page = TABLE.replace("| cards | `lib/base/` | |", f"| cards | {allowed}")
                self.assertEqual(self.flaws({"docs/architecture.md": page}, Tree.unused), [f"{found}: take it out of its row"])

    def test_a_folder_that_is_not_in_the_table_is_found(self) -> None:
        for name in ("lib/odds/include/odds/end.h", "tools/one/inner/x.h", "builtin/store/codec/x.h"):
            self.assertEqual(self.flaws({name: ""}), [f"{name}: its folder is not in the table"])

    def test_a_name_of_two_files_is_found(self) -> None:
        self.assertEqual(
            self.flaws({"lib/cards/include/base/text.h": ""})[-1],
            "tools/two/main.cpp: base/text.h is lib/base/include/base/text.h and lib/cards/include/base/text.h")

    def test_circles_are_found(self) -> None:
        self.assertEqual(
            self.flaws({"lib/cards/a.h": '#include "b.h"', "lib/cards/b.h": "", "lib/cards/b.cpp": '#include "a.h"',
                        "tests/unit/lib/cards/b_test.cpp": ""}),
            ["circle of modules: lib/cards/a, lib/cards/b"])
        self.assertEqual(
            self.flaws({"docs/architecture.md": TABLE.replace("| texts | nothing", "| texts | `lib/cards/`"),
                        "lib/base/include/base/other.h": '#include "cards/card_list.h"'}),
            ["circle of rooms: lib/base, lib/cards"])

    def test_what_another_stem_declares_is_found(self) -> None:
        for text in ("namespace s { void Client::go() { } }", "int s::open() { return 2; }", "namespace s { int open()\n{ } }"):
            self.assertEqual(self.flaws({"builtin/store/more.cpp": text, "tests/unit/builtin/store/more_test.cpp": ""}),
                             ["builtin/store/more.cpp implements builtin/store/client.h"])
        for text in ("namespace { int open() { } }", "namespace t { int open() { } }", "static int open() { }",
                     "namespace s { int use() { if (open()) { } } }"):
            self.assertEqual(self.flaws({"builtin/store/more.cpp": text, "tests/unit/builtin/store/more_test.cpp": ""}), [])

    def test_a_source_without_a_test_is_found(self) -> None:
        self.assertEqual(self.flaws({"lib/cards/card.cpp": ""}), ["lib/cards/card.cpp has no test"])

    def test_a_test_that_includes_the_daemon_is_found(self) -> None:
        self.assertEqual(self.flaws({"tests/unit/tools/one/main_test.cpp": '#include "app_cg/card.h"'}),
                         ["tests/unit/tools/one/main_test.cpp may not include app_cg/card.h"])

    def test_what_no_table_may_allow_is_found(self) -> None:
        table = read_table(TABLE)
        self.assertEqual(forbidden_rows(table), [])
        for room, target, found in (
            ("tools/one", "tools/two", "tools/one: tools/two"),
            ("tools/one", "tools/two/two.h", "tools/one: tools/two/two.h"),
            ("lib/base", "src", "lib/base: src"),
            ("builtin/loop", "builtin/store/client.h", "circle: builtin/loop, builtin/store"),
        ):
            with self.subTest(target):
                self.assertEqual(forbidden_rows({**table, room: Row([target], [])}), [found])
        up = {"builtin/loop": Row(["lib/base"], []), "lib/cards": Row(["builtin/store/client.h"], [])}
        self.assertEqual(forbidden_rows({**table, **up}), ["arrow up: builtin, lib"])


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=lambda name: pathlib.Path(name).resolve(), required=True)
    parser.parse_args(namespace=options)
    unittest.main(argv=sys.argv[:1], verbosity=2)


if __name__ == "__main__":
    main()
