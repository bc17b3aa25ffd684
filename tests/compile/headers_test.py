"""Compiles every header of the porting surface alone, as C11 and as C++20, with all warnings as errors.

The headers are all that a device maker sees of the project, and his compiler may be stricter than ours, so
they are compiled by themselves, twice in one file, and not just wherever the project happens to include them.
"""

import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

COMMON = ["-fsyntax-only", "-pedantic-errors", "-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-Wundef", "-Werror"]
C11 = ["-x", "c", "-std=c11", "-Wstrict-prototypes", "-Wmissing-prototypes"]
CXX20 = ["-x", "c++", "-std=c++20", "-Wold-style-cast"]
# What the surface must not give away: which libraries stand behind it.
LIBRARIES = re.compile(r"redis|libevent|spdlog|systemd", re.IGNORECASE)
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]', re.MULTILINE)
HEADERS_IT_MAY_NEED = {"stdint.h", "stddef.h", "sys/time.h", "protobuf-c/protobuf-c.h"}

# A prototype begins a line with its type; macros and typedefs do not match.
FUNCTION = re.compile(r"^(?:int32_t|void|vx_\w+) \*?(\w+)\(", re.MULTILINE)

options = argparse.Namespace()


def headers():
    return sorted((options.source / "platform").glob("*.h"))


def compile_text(compiler, flags, text):
    """Returns the compiler's complaints, or nothing."""
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "alone"
        source.write_text(text)
        command = [compiler, *COMMON, *flags, f"-I{options.source}/platform"]
        command += [f"-isystem{folder}" for folder in options.system_includes]
        result = subprocess.run([*command, str(source)], capture_output=True, text=True, check=False)
        return result.stderr if result.returncode != 0 else ""


def undefined_symbols(header, names):
    """Returns the symbols that a C++ file needs that uses these functions of the header."""
    text = f'#include "{header.name}"\n'
    text += "".join(f"decltype(&{name}) use_{name} = {name};\n" for name in names)
    with tempfile.TemporaryDirectory() as folder:
        compiled = pathlib.Path(folder) / "use.o"
        command = [options.cxx, "-x", "c++", "-std=c++20", "-c", "-o", str(compiled), f"-I{options.source}/platform"]
        command += [f"-isystem{folder}" for folder in options.system_includes]
        subprocess.run([*command, "-"], input=text, text=True, check=True)
        listing = subprocess.run(["nm", "-u", str(compiled)], capture_output=True, text=True, check=True)
    return sorted(line.split()[-1] for line in listing.stdout.splitlines())


class HeadersTest(unittest.TestCase):
    maxDiff = None

    def each(self, compiler, flags):
        self.assertEqual(
            [header.name for header in headers()],
            ["ham.h", "ssat.h", "vx_mom.h", "vx_mom_schema.h", "vx_thread.h", "vx_zlog.h"],
        )
        for header in headers():
            with self.subTest(header=header.name):
                include = f'#include "{header.name}"\n'
                # The declaration keeps the file from being empty, which C forbids.
                complaints = compile_text(compiler, flags, include + include + "extern int alone;\n")
                self.assertEqual(complaints, "")

    def test_each_compiles_alone_as_c11(self):
        self.each(options.cc, C11)

    def test_each_compiles_alone_as_cxx20(self):
        self.each(options.cxx, CXX20)

    def test_the_check_sees_a_fault(self):
        self.assertNotEqual(compile_text(options.cc, C11, "int f() { return 0; }\n"), "")
        self.assertNotEqual(compile_text(options.cxx, CXX20, "void *p = (void *)0; int i = 1.5;\n"), "")

    def test_functions_have_c_linkage(self):
        """A C++ file that uses every function asks the linker for its C name."""
        for header in headers():
            with self.subTest(header=header.name):
                names = FUNCTION.findall(header.read_text())
                self.assertGreater(len(names), 0)
                self.assertEqual(undefined_symbols(header, names), sorted(names))

    def test_no_header_names_a_library(self):
        for header in headers():
            with self.subTest(header=header.name):
                self.assertIsNone(LIBRARIES.search(header.read_text()))

    def test_headers_need_only_each_other_and_the_language(self):
        own = {header.name for header in headers()}
        for header in headers():
            with self.subTest(header=header.name):
                self.assertLessEqual(set(INCLUDE.findall(header.read_text())), own | HEADERS_IT_MAY_NEED)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--cc", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("--system-include", dest="system_includes", action="append", default=[])
    parser.parse_args(namespace=options)
    unittest.main(argv=sys.argv[:1], verbosity=2)


if __name__ == "__main__":
    main()
