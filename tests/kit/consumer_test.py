"""Somebody else's project, built against an installed kit: by find_package, by pkg-config, and by the headers alone.

What the build tree knows must not help: only the two components of the kit are installed, into a folder that is then
moved, and nothing of the sources is on any path.
"""

import argparse
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest

from installed_kit import InstalledKit, main, run

STRICT = ["-pedantic-errors", "-Wall", "-Wextra", "-Wconversion", "-Wshadow", "-Wundef", "-Werror"]
HERE = pathlib.Path(__file__).resolve().parent

options = argparse.Namespace()


class ConsumerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls._folder = tempfile.TemporaryDirectory()
        folder = pathlib.Path(cls._folder.name)
        kit = InstalledKit(options.build, folder)
        cls.tree, cls.libraries = kit.tree, kit.libraries
        cls.environment = {**kit.environment, "VX_MOM_ENDPOINT": "unix:/nowhere"}
        cls.work = folder / "work"
        shutil.copytree(HERE / "consumer", cls.work)

    @classmethod
    def tearDownClass(cls):
        cls._folder.cleanup()

    def said(self, program, *arguments):
        done = subprocess.run([program, *arguments], env=self.environment, capture_output=True, text=True, check=False)
        return done.returncode, done.stdout, done.stderr

    def test_find_package(self):
        build = self.work / "build"
        run("cmake", "-S", self.work, "-B", build, "-G", options.generator, f"-DCMAKE_PREFIX_PATH={self.tree}",
            f"-DCMAKE_C_COMPILER={options.cc}", f"-DCMAKE_CXX_COMPILER={options.cxx}",
            f"-DCMAKE_C_FLAGS={options.cflags}", f"-DCMAKE_CXX_FLAGS={options.cxxflags}")
        run("cmake", "--build", build)
        for program in ("in_c", "in_cpp"):
            status, said, log = self.said(build / program, "sixteen_bytes_xx")
            self.assertEqual(status, 1)
            self.assertIn("1 to 15 bytes", said)
            self.assertIn("sixteen_bytes_x", log)
            status, said, log = self.said(build / program, "types")
            self.assertEqual(status, 0, log)
            self.assertIn("done", said)

    def test_pkg_config(self):
        flags = run("pkg-config", "--cflags", "--libs", "app_cg_kit", env=self.environment).split()
        version = run("pkg-config", "--modversion", "app_cg_kit", env=self.environment).strip()
        program = self.work / "by_pkg_config"
        run(options.cc, "-std=c11", *shlex.split(options.cflags), self.work / "in_c.c", "-o", program, *flags)
        status, said, _ = self.said(program, "types")
        self.assertEqual((status, said), (0, f"{version}: done\n"))

    def test_the_headers_need_nothing_else(self):
        include = f"-I{next(self.tree.rglob('app_cg_kit.h')).parent}"
        for compiler, flags, header in (
            (options.cc, ["-x", "c", "-std=c11", "-Wstrict-prototypes"], "app_cg_kit.h"),
            (options.cxx, ["-x", "c++", "-std=c++20", "-Wold-style-cast"], "app_cg_kit.h"),
            (options.cxx, ["-x", "c++", "-std=c++20", "-Wold-style-cast"], "app_cg_kit.hpp"),
        ):
            with self.subTest(header=header, flags=flags):
                text = f"#include <{header}>\n#include <{header}>\n"
                run(compiler, "-fsyntax-only", *STRICT, *flags, include, "-", input=text)

    def test_the_library_shows_the_kit_and_nothing_else(self):
        listing = run("nm", "-D", "--defined-only", self.libraries / "libapp_cg_kit.so.0")
        names = {line.split()[-1].split("@")[0] for line in listing.splitlines()} - {"APP_CG_KIT_0"}
        header = next(self.tree.rglob("app_cg_kit.h")).read_text()
        declared = set(re.findall(r"^(?!static)[a-z].*?\*?(app_cg_kit_\w+)\(", header, re.MULTILINE)) - {"app_cg_kit_t"}
        self.assertGreater(len(declared), 10)
        self.assertEqual(names, declared)


if __name__ == "__main__":
    main(options, "build", "generator")
