"""The page's commands, as a reader types them: with the kit installed, from the root of the sources."""

import argparse
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from installed_kit import InstalledKit, main

options = argparse.Namespace()


def blocks(page, kind):
    return re.findall(rf"^```{kind}\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)


class ReadmeTest(unittest.TestCase):
    def test_the_commands_of_the_page_do_what_it_says(self):
        page = (options.source / "kit" / "examples" / "README.md").read_text()
        (program,) = blocks(page, "cpp")
        commands = blocks(page, "sh norun: [^\n]*tests/kit/readme_test.py[^\n]*")
        self.assertEqual(len(commands), 2)
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            kit = InstalledKit(options.build, folder)
            work = folder / "work"
            work.mkdir()
            (work / "types.cpp").write_text(program)
            (work / "kit").symlink_to(options.source / "kit")
            environment = {**kit.environment, "PATH": f"{options.build}/bin:{os.environ['PATH']}",
                           "CMAKE_PREFIX_PATH": str(kit.tree), "CC": options.cc, "CXX": options.cxx,
                           "CFLAGS": options.cflags, "CXXFLAGS": options.cxxflags}
            # Under sanitizers the program has to be linked like the library.
            script = "set -e\n" + "".join(commands).replace("c++ -std", f"{options.cxx} {options.cxxflags} -std")
            done = subprocess.run(["sh", "-c", script], cwd=work, env=environment, capture_output=True, text=True,
                                  check=False)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertEqual(len(re.findall(r"^ok   ends ", done.stdout, re.MULTILINE)), 4, done.stdout)
            self.assertNotIn("FAIL", done.stdout)


if __name__ == "__main__":
    main(options, "source", "build")
