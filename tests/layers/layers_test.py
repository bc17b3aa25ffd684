"""Who may include whom.

The daemon knows the porting surface, the records, and the language, so that it can be put on any platform;
nobody but tests knows the daemon. An include is all it takes to break that, and no compiler would object.
"""

import argparse
import pathlib
import re
import sys
import tempfile
import unittest

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)
RECORDS = {"p_dev.pb-c.h", "p_libpub.pb-c.h", "s_dev.pb-c.h"}
C_LIBRARY = {"dirent.h", "fcntl.h", "signal.h", "sys/stat.h", "sys/time.h", "sys/types.h", "unistd.h"}
PROTOBUF = {"protobuf-c/protobuf-c.h"}
STANDARD = {
    "algorithm", "array", "bit", "bitset", "charconv", "chrono", "concepts", "cstdarg", "cstddef", "cstdint",
    "cstdio", "cstdlib", "cstring", "cerrno", "climits", "csignal", "ctime", "deque", "functional",
    "initializer_list", "iterator", "limits", "list", "map", "memory", "new", "numeric", "optional", "set",
    "span", "string", "string_view", "tuple", "type_traits", "unordered_map", "unordered_set", "utility",
    "variant", "vector",
}  # fmt: skip

# What the built-in platform offers to tools beyond the porting surface: the debug shell's client, what is wrong
# with the settings, its messages, a scan that names what it leaves out, the store's names, a look at the server, and
# how long it was silent.
FOR_TOOLS = {
    "builtin/platform_log.h", "builtin/settings.h", "builtin/ssat_client.h", "builtin/vx_mom/configuration.h",
    "builtin/vx_mom/endpoint.h", "builtin/vx_mom/full_scan.h", "builtin/vx_mom/inspection.h",
    "builtin/vx_mom/names.h", "builtin/vx_mom/silence.h",
}  # fmt: skip
# And to the kit: what it takes to live in somebody else's process.
FOR_KIT = {
    "builtin/descriptor.h", "builtin/loop.h", "builtin/platform_log.h", "builtin/settings.h",
    "builtin/vx_mom/configuration.h",
}  # fmt: skip
# What the kit has for `cgctl module run`, which is a module like any other.
KIT_FOR_TOOLS = {"kit/core/check.h", "kit/core/name.h", "kit/core/opening.h", "kit/core/timer.h"}
LIBRARIES_BEHIND_IT = ("hiredis", "event2/", "event.h", "spdlog", "systemd/")

options = argparse.Namespace()


def sources(folder):
    return sorted(path for path in folder.rglob("*") if path.suffix in {".c", ".cpp", ".h"})


def includes_of(path):
    return [(quote, name) for quote, name in INCLUDE.findall(path.read_text())]


def daemon_may_include(source, quote, name):
    if quote == "<":
        return name in STANDARD | C_LIBRARY | PROTOBUF
    own = (source / "src" / name).is_file() and not name.startswith(("/", ".."))
    surface = (source / "platform" / name).is_file() and "/" not in name
    return own or surface or name in RECORDS


def strangers(source):
    """Includes of the daemon that it may not make."""
    return [
        f"{path.relative_to(source)}: {name}"
        for path in sources(source / "src")
        for quote, name in includes_of(path)
        if not daemon_may_include(source, quote, name)
    ]


def intruders(source):
    """Includes of the daemon's headers by somebody other than its tests."""
    return [
        f"{path.relative_to(source)}: {name}"
        for folder in ("builtin", "kit", "platform", "proto", "tools")
        for path in sources(source / folder)
        for _, name in includes_of(path)
        if name.startswith(("app_cg/", "app_cg_dbg/", "../src", "src/"))
    ]


def shortcuts(source):
    """Includes of tools that reach behind the platform."""
    return [
        f"{path.relative_to(source)}: {name}"
        for path in sources(source / "tools" / "cgctl")
        for _, name in includes_of(path)
        if name.startswith(LIBRARIES_BEHIND_IT)
        or (name.startswith("builtin/") and name not in FOR_TOOLS)
        or (name.startswith("kit/") and name not in KIT_FOR_TOOLS)
        or (source / "builtin" / "vx_mom" / name).is_file()
    ]


def trespasses(source):
    """Includes of the kit that reach behind the platform, and of its public headers that reach anywhere."""
    public = {"app_cg_kit.h", "app_cg_kit.hpp"}
    return [
        f"{path.relative_to(source)}: {name}"
        for path in sources(source / "kit") + sorted((source / "kit").glob("*.hpp"))
        for quote, name in includes_of(path)
        if name.startswith((*LIBRARIES_BEHIND_IT, "tools/", "cgctl/"))
        or (name.startswith("builtin/") and name not in FOR_KIT)
        or (source / "builtin" / "vx_mom" / name).is_file()
        or (path.name in public and quote == '"' and name not in public)
    ]


class LayersTest(unittest.TestCase):
    maxDiff = None

    def test_the_daemon_includes_only_the_surface_the_records_and_the_language(self):
        self.assertGreater(len(sources(options.source / "src")), 20)
        self.assertEqual(strangers(options.source), [])

    def test_nobody_includes_the_daemon(self):
        self.assertGreater(len(sources(options.source / "builtin")), 5)
        self.assertEqual(intruders(options.source), [])

    def test_tools_do_not_reach_behind_the_platform(self):
        self.assertGreater(len(sources(options.source / "tools" / "cgctl")), 20)
        self.assertEqual(shortcuts(options.source), [])

    def test_the_kit_does_not_reach_behind_the_platform(self):
        self.assertGreater(len(sources(options.source / "kit")), 5)
        self.assertEqual(trespasses(options.source), [])

    def test_the_check_sees_a_stranger_and_an_intruder(self):
        with tempfile.TemporaryDirectory() as folder:
            tree = pathlib.Path(folder)
            for name, text in {
                "src/app_cg/own.h": '#include <vector>\n#include "vx_mom.h"\n',
                "src/app_cg/a.cpp": '#include "app_cg/own.h"\n#include <hiredis/hiredis.h>\n',
                "src/app_cg/b.cpp": '#  include "platform_context.h"\n#include "schema_registry.h"\n',
                "platform/vx_mom.h": "",
                "builtin/c.cpp": '#include "app_cg/own.h"\n',
                "tools/cgctl/d.cpp": '#include "builtin/ssat_client.h"\n#include "builtin/vx_mom/client.h"\n'
                '#include "kit/core/opening.h"\n#include "kit/core/records.h"\n',
                "kit/core/e.cpp": '#include "builtin/loop.h"\n#include "builtin/platform_context.h"\n',
                "kit/app_cg_kit.h": '#include <stdint.h>\n#include "vx_mom.h"\n',
            }.items():
                path = tree / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            self.assertEqual(
                strangers(tree),
                [
                    "src/app_cg/a.cpp: hiredis/hiredis.h",
                    "src/app_cg/b.cpp: platform_context.h",
                    "src/app_cg/b.cpp: schema_registry.h",
                ],
            )
            self.assertEqual(intruders(tree), ["builtin/c.cpp: app_cg/own.h"])
            self.assertEqual(
                shortcuts(tree), [f"tools/cgctl/d.cpp: {name}" for name in ("builtin/vx_mom/client.h", "kit/core/records.h")]
            )
            self.assertEqual(
                trespasses(tree),
                ["kit/app_cg_kit.h: vx_mom.h", "kit/core/e.cpp: builtin/platform_context.h"],
            )


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.parse_args(namespace=options)
    unittest.main(argv=sys.argv[:1], verbosity=2)


if __name__ == "__main__":
    main()
