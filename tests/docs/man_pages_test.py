"""The manual pages are in good order, and the recorder's names the options that the recorder takes."""
import os
import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("APP_CG_BUILD", ROOT / "build" / "dev"))
PAGES = sorted(path for path in (ROOT / "docs").iterdir() if re.fullmatch(r"\.[1-8]", path.suffix))


class ManPagesTest(unittest.TestCase):
    def test_the_formatter_finds_nothing_wrong(self):
        self.assertGreaterEqual(len(PAGES), 2)
        for page in PAGES:
            with self.subTest(page.name):
                done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], capture_output=True, text=True,
                                      check=False)
                self.assertEqual(done.stdout + done.stderr, "")

    def test_a_mistake_would_be_found(self):
        done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning"], input=".Dd January 1, 2026\n.Dt X 1\n.Os\n.Sh\n",
                              capture_output=True, text=True, check=False)
        self.assertNotEqual(done.returncode, 0)

    def test_pages_that_are_referred_to_are_there(self):
        names = {page.name for page in PAGES}
        others = {"mdoc.7", "systemd.service.5", "journalctl.1", "redis-server.1", "redis-cli.1", "pkg-config.1",
                  "sd_notify.3", "sqlite3.1"}
        for page in PAGES:
            for name, section in re.findall(r"^\.Xr (\S+) (\d)", page.read_text(encoding="utf-8"), re.MULTILINE):
                self.assertIn(f"{name}.{section}", names | others, page.name)

    def test_the_recorder_takes_the_options_of_its_page(self):
        page, program = ROOT / "docs" / "cg_recorderd.8", BUILD / "bin" / "cg_recorderd"
        if not page.exists() or not program.exists():
            self.skipTest("no recorder was built")
        text = subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout
        taken = set(re.findall(r"--[a-z][a-z-]*", re.sub(r"Examples:.*", "", text, flags=re.DOTALL)))
        written = {f"--{name}" for name in re.findall(r"^\.(?:It|Op) .*?Fl Fl ([a-z-]+)",
                                                      page.read_text(encoding="utf-8"), re.MULTILINE)}
        self.assertEqual(taken, written)


if __name__ == "__main__":
    unittest.main(verbosity=2)
