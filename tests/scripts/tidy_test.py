"""scripts/tidy.py: which sources it checks, what it remembers, what it says. The compiler and clang-tidy are stand-ins."""
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as tree

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "tidy.py"
# A source is bad when it says so; each check is noted.
TIDY = """#!/bin/sh
[ "$1" = --version ] && { echo 14; exit; }
for argument; do [ "$argument" = -- ] && break; file=$argument; done
basename "$file" >>"$NOTES"
if grep -q BAD "$file"; then echo "$file:1:1: warning: bad [rule]"; exit 1; fi
"""
# What is included counts as well: here, every header of the folder.
COMPILER = '#!/bin/sh\nfor file; do :; done\ncat "$file" "$(dirname "$file")"/*.h\n'


class TidyTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name).resolve()
        for name, text in {"bin/clang-tidy-14": TIDY, "bin/clang++-14": COMPILER, "bin/clang-14": COMPILER}.items():
            self.write(name, text).chmod(0o755)
        self.write(".clang-tidy", "Checks: '*'\n")
        self.write("src/a.h", "")
        self.sources = [self.write("src/a.cpp", "int a;"), self.write("src/b.cpp", "int b;")]
        (self.root / "scripts").mkdir()
        shutil.copy(SCRIPT, self.root / "scripts" / "tidy.py")
        generated = self.write("build/lint/made.cpp", "BAD")
        # One source belongs to two programs.
        commands = [{"directory": str(self.root), "file": str(path), "command": f"launcher c++ -o x.o -c {path}"}
                    for path in [*self.sources, self.sources[0], generated]]
        self.write("build/lint/compile_commands.json", json.dumps(commands))

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return path

    def tidy(self, *arguments):
        """Runs it; returns its status, the sources that were checked, and what it printed."""
        notes = self.write("notes", "")
        done = subprocess.run([sys.executable, "-B", self.root / "scripts" / "tidy.py", *arguments], text=True,
                              capture_output=True, check=False,
                              env={**os.environ, "NOTES": str(notes), "PATH": f"{self.root}/bin:{os.environ['PATH']}"})
        return done.returncode, sorted(notes.read_text(encoding="utf-8").split()), done.stdout + done.stderr

    def test_each_source_is_checked_once_and_nothing_that_is_generated(self):
        self.assertEqual(self.tidy()[:2], (0, ["a.cpp", "b.cpp"]))

    def test_a_clean_source_is_not_checked_again_until_something_changes(self):
        self.tidy()
        self.assertEqual(self.tidy()[:2], (0, []))
        self.sources[1].write_text("int c;", encoding="utf-8")
        self.assertEqual(self.tidy()[:2], (0, ["b.cpp"]))
        self.write("src/a.h", "int header;")
        self.assertEqual(self.tidy()[:2], (0, ["a.cpp", "b.cpp"]))
        self.write(".clang-tidy", "Checks: 'misc-*'\n")
        self.assertEqual(self.tidy()[:2], (0, ["a.cpp", "b.cpp"]))

    def test_a_finding_fails_each_time(self):
        self.sources[0].write_text("BAD", encoding="utf-8")
        for checked in (["a.cpp", "b.cpp"], ["a.cpp"]):
            status, seen, output = self.tidy("--junit", str(self.root / "found.xml"))
            self.assertEqual((status, seen), (1, checked))
            self.assertIn("a.cpp:1:1: warning: bad [rule]", output)
        cases = {case.get("name"): case.find("failure") for case in tree.parse(self.root / "found.xml").iter("testcase")}
        self.assertEqual({name: failure is not None for name, failure in cases.items()},
                         {"src/a.cpp": True, "src/b.cpp": False})

    def test_sources_that_are_compiled_as_one_are_checked_as_one(self):
        unit = self.write("build/lint/x/Unity/unity_src.cxx", "".join(f'#include "{path}"\n' for path in self.sources))
        commands = [{"directory": str(self.root), "file": str(unit), "command": f"c++ -DA=1 -o x.o -c {unit}"}]
        self.write("build/lint/compile_commands.json", json.dumps(commands))
        for _ in range(2):
            status, seen, output = self.tidy(str(self.sources[1]), "--junit", str(self.root / "found.xml"))
            self.assertEqual((status, seen), (0, ["UnifiedSource_unity_src.cxx"]), output)
            self.write("src/a.h", "int header;")
        shown = (unit.parent / "UnifiedSource_unity_src.cxx").read_text(encoding="utf-8")
        self.assertEqual([line.split(" //")[0] for line in shown.splitlines()],
                         [f'#include "{path}"' for path in self.sources])
        self.assertEqual([case.get("name") for case in tree.parse(self.root / "found.xml").iter("testcase")],
                         ["src/a.cpp src/b.cpp"])

    def test_what_cannot_be_preprocessed_is_not_remembered(self):
        self.write("bin/clang++-14", "#!/bin/sh\nexit 1\n")
        self.assertEqual(self.tidy()[1], ["a.cpp", "b.cpp"])
        self.assertEqual(self.tidy()[1], ["a.cpp", "b.cpp"])

    def test_one_may_be_named(self):
        self.assertEqual(self.tidy(str(self.sources[1]))[:2], (0, ["b.cpp"]))
        self.assertEqual(self.tidy(str(self.root / "src" / "none.cpp"))[0], 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
