"""The manual pages are in good order, and those of programs name the options that these take."""
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

    def test_programs_take_the_options_of_their_pages(self):
        for page, name in (("cg_recorderd.8", "cg_recorderd"), ("cg_sim.1", "cg_sim")):
            program = BUILD / "bin" / name
            with self.subTest(page):
                if not program.exists():
                    self.skipTest(f"no {name} was built")
                text = subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout
                taken = set(re.findall(r"--[a-z][a-z-]*", re.sub(r"Examples:.*", "", text, flags=re.DOTALL)))
                text = (ROOT / "docs" / page).read_text(encoding="utf-8")
                written = {f"--{option}" for option in re.findall(r"\bFl Fl ([a-z-]+)", text)}
                self.assertEqual(taken, written)


if __name__ == "__main__":
    unittest.main(verbosity=2)
