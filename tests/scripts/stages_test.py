"""The stages of ./test: what is counted, what fails, and what runs beside what."""
import os
import pathlib
import signal
import subprocess
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FUNCTIONS = r"""
set -euo pipefail
project_root=$1
. "$2/scripts/ui.sh"
. "$2/scripts/stages.sh"
good() { echo "good $*"; }
bad() { echo bad; return 3; }
counted() {
    printf '<testsuite><testcase/><testcase/><testcase><failure/></testcase><testcase><skipped/></testcase></testsuite>' >"$junit"
    return 1
}
empty() { printf '<testsuite/>' >"$junit"; }
waits_for() { until [ -e "$project_root/$1" ]; do read -r -t 0.02 _ <> <(:) || true; done; }
makes() { touch "$project_root/$1"; }
hangs() { touch "$project_root/hanging"; exec sleep 1000; }
stages_begin
"""


class StagesTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def start(self, stages):
        return subprocess.Popen(["bash", "-c", FUNCTIONS + stages, "bash", self.folder.name, ROOT], text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def run_stages(self, stages):
        process = self.start(stages)
        output, _ = process.communicate(timeout=60)
        return process.returncode, output.splitlines()

    def verdicts(self, lines):
        """{stage: (verdict, counts)} of the summary."""
        summary = lines[lines.index("== Summary") + 1:-1]
        return {line[6:32].strip(): (line[:4], line.split(" s  ")[1]) for line in summary}

    def test_the_tests_of_a_program_are_counted_and_not_the_program(self):
        folder = pathlib.Path(self.folder.name)
        (folder / "all.xml").write_text('<testsuite><testcase name="some.1"/><testcase name="some.2"><failure/></testcase>'
                                        '<testcase name="crashed"><failure/></testcase></testsuite>')
        (folder / "some.1.xml").write_text("<testsuites><testsuite><testcase/><testcase/></testsuite></testsuites>")
        (folder / "some.2.xml").write_text("<testsuites><testsuite><testcase/><testcase><failure/></testcase>"
                                           "<testcase><skipped/></testcase></testsuite></testsuites>")
        status, lines = self.run_stages(f"""
            merged() {{ cp {folder}/all.xml "$junit"; unit_results "$junit" {folder}; }}
            stage units merged || true
            stages_end""")
        self.assertEqual(status, 1)
        self.assertEqual(self.verdicts(lines), {"units": ("FAIL", "3 passed, 2 failed, 1 skipped")})

    def test_each_stage_counts_what_it_ran(self):
        status, lines = self.run_stages("""
            stage one good || true
            stage two bad || true
            stage three counted || true
            stage four empty || true
            stages_end""")
        self.assertEqual(status, 1)
        self.assertEqual(self.verdicts(lines), {
            "one": ("pass", "1 passed, 0 failed, 0 skipped"), "two": ("FAIL", "0 passed, 1 failed, 0 skipped"),
            "three": ("FAIL", "2 passed, 1 failed, 1 skipped"), "four": ("FAIL", "0 passed, 1 failed, 0 skipped")})
        self.assertEqual(lines[-1], "3 passed, 3 failed")

    def test_nothing_failed_is_status_0(self):
        self.assertEqual(self.run_stages("stage one good || true; stage_beside two good; stages_end")[0], 0)

    def test_a_failure_beside_is_one(self):
        status, lines = self.run_stages('stage_beside "tests, a" bad; stage one good; stages_end')
        self.assertEqual((status, lines[-1]), (1, "1 passed, 1 failed"))
        self.assertEqual(self.verdicts(lines)["tests, a"][0], "FAIL")

    def test_what_is_beside_runs_meanwhile_and_is_shown_afterwards(self):
        # Each waits for the other: one after the other they would hang.
        status, lines = self.run_stages("""
            both() { makes "$1"; waits_for "$2"; echo "$1 is done"; }
            stage_beside two both b a
            stage one both a b
            stages_end""")
        self.assertEqual(status, 0)
        self.assertEqual(lines[:4], ["== one", "a is done", "== two", "b is done"])

    def test_what_is_beside_runs_one_after_the_other(self):
        status, _ = self.run_stages("""
            first() { waits_for go; makes first; }
            second() { [ -e "$project_root/first" ]; }
            stage_beside one first
            stage_beside two second
            stage three makes go
            stages_end""")
        self.assertEqual(status, 0)

    def test_what_is_beside_keeps_the_environment_that_it_was_given(self):
        _, lines = self.run_stages('shows() { echo "[$WORD]"; }; WORD=given stage_beside one shows; stages_end')
        self.assertIn("[given]", lines)

    def test_an_interrupt_ends_what_is_beside(self):
        process = self.start("stage_beside one hangs; stage two waits_for never; stages_end")
        deadline = time.monotonic() + 30
        while not (pathlib.Path(self.folder.name) / "hanging").exists():
            self.assertLess(time.monotonic(), deadline)
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=30)
        self.assertNotEqual(process.returncode, 0)
        while self.still_runs():  # it has its signal, and maybe no processor yet
            self.assertLess(time.monotonic(), deadline + 30, "sleep 1000 still runs")

    def still_runs(self):
        """Whether a process of the hanging stage is left."""
        for entry in pathlib.Path("/proc").iterdir():
            if entry.name.isdigit():
                try:
                    if (os.readlink(entry / "fd/1").startswith(self.folder.name)
                            and b"sleep" in (entry / "cmdline").read_bytes()):
                        return True
                except OSError:
                    continue  # it has ended, or is another user's
        return False


if __name__ == "__main__":
    unittest.main(verbosity=2)
