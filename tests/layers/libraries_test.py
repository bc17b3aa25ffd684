"""Which shared libraries each program needs, exactly.

Nobody's device carries what it does not use: a library that comes in by the way, through an object that a program happens
to link, is a package more on every device, and an update more to be made.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import unittest

# The language's own, what sanitizers and coverage bring, and spdlog's formatter, which the optimizer may leave to it.
RUNTIME = {"libfmt", "ld-linux-x86-64", "libasan", "libc", "libclang_rt.asan-x86_64", "libgcc_s", "libgcov", "libm", "libstdc++",
           "libtsan", "libubsan"}
PLATFORM = {"libevent-2.1", "libhiredis", "libprotobuf-c", "libspdlog"}
NEEDED = {
    "app_cg": PLATFORM,
    "cg_sim": PLATFORM | {"libutf8proc"},
    "cg_recorderd": PLATFORM | {"libprometheus-cpp-core", "libsqlite3"},
    "cgctl": PLATFORM | {"libmd", "libncursesw", "libsqlite3", "libtinfo", "libutf8proc"},
    "libapp_cg_kit": PLATFORM,
}

options = argparse.Namespace()


def libraries(names):
    """The libraries of these names of files, without versions."""
    return {re.sub(r"\.so(\.\d+)*$", "", name) for name in names}


def needed(path):
    """The libraries that a program names."""
    text = subprocess.run(["readelf", "-d", path], capture_output=True, text=True, check=True,
                          env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"}).stdout
    return libraries(re.findall(r"\(NEEDED\)\s+Shared library: \[([^\]]+)\]", text))


class LibrariesTest(unittest.TestCase):
    maxDiff = None

    def test_each_program_needs_these_and_no_others(self):
        seen = {path.name.partition(".")[0]: needed(path) - RUNTIME for path in options.programs}
        self.assertEqual(seen, NEEDED)

    def test_names_are_read_without_versions(self):
        self.assertEqual(libraries(["libevent-2.1.so.7", "libstdc++.so.6", "libx.so", "ld-linux-x86-64.so.2"]),
                         {"libevent-2.1", "libstdc++", "libx", "ld-linux-x86-64"})


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("programs", type=pathlib.Path, nargs="+")
    parser.parse_args(namespace=options)
    unittest.main(argv=sys.argv[:1], verbosity=2)


if __name__ == "__main__":
    main()
