"""The store server that ./test chooses: it is the one that PATH has as redis-server, or there is none."""
import os
import pathlib
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
CHOOSE = r"""
set -euo pipefail
project_root=$1
. "$2/scripts/ui.sh"
. "$2/scripts/store.sh"
store_choose "$3"
redis-server --version
"""


class StoreTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.programs = pathlib.Path(folder.name) / "programs"
        self.programs.mkdir()
        for name in ("bash", "ln", "mkdir"):
            (self.programs / name).symlink_to(f"/bin/{name}")
        self.program("redis-server", "Redis server v=7.0.15")

    def program(self, name, version):
        (self.programs / name).write_text(f"#!/bin/sh\necho '{version}'\n")
        (self.programs / name).chmod(0o755)

    def choose(self, server):
        """Status, output and errors of a choice."""
        done = subprocess.run(["bash", "-c", CHOOSE, "bash", self.programs.parent, ROOT, server], text=True,
                              env={**os.environ, "PATH": str(self.programs)}, capture_output=True, timeout=30, check=False)
        return done.returncode, done.stdout.splitlines(), done.stderr

    def test_redis_is_what_path_has(self):
        self.assertEqual(self.choose("redis"), (0, ["Redis server v=7.0.15"], ""))

    def test_valkey_takes_the_place_of_redis(self):
        for name in ("valkey-server", "valkey-check-rdb"):
            with self.subTest(name):
                self.program(name, "Valkey server v=8.0.2")
                self.assertEqual(self.choose("valkey"), (0, ["== Store: Valkey server v=8.0.2", "Valkey server v=8.0.2"], ""))
                (self.programs / name).unlink()

    def test_without_valkey_it_says_where_one_is(self):
        status, output, errors = self.choose("valkey")
        self.assertEqual((status, output), (1, []))
        self.assertEqual(errors, "test: no valkey-server. Debian 12 has one in its backports: "
                                 "apt-get install -t bookworm-backports valkey-tools\n")

    def test_another_server_of_that_name_is_refused(self):
        self.program("valkey-server", "Redis server v=7.0.15")
        status, output, errors = self.choose("valkey")
        self.assertEqual((status, output), (1, []))
        self.assertIn("is not Valkey: Redis server v=7.0.15", errors)

    def test_an_unknown_server_is_wrong_usage(self):
        self.assertEqual(self.choose("memory"), (2, [], "test: no store server 'memory'; there are redis and valkey\n"))

    def test_test_refuses_before_it_builds(self):
        self.program("valkey-server", "something else")
        for words, status in ((["--store"], 2), (["--store", "memory"], 2), (["--store=valkey"], 1)):
            done = subprocess.run(["bash", ROOT / "test", *words], capture_output=True, text=True, timeout=30, check=False,
                                  env={**os.environ, "PATH": f"{self.programs}:{os.environ['PATH']}"})
            self.assertEqual((done.returncode, done.stdout), (status, ""), done.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
