"""What ./bench does around its measurements: its command line, and that nothing is lost or left when one goes wrong."""
import ast
import contextlib
import io
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parents[1]
sys.path[:0] = [str(HERE), str(PROJECT / "tools")]

import redis  # noqa: E402  (needs the path above)

from runner import __main__ as run, ending, lines, place, usage  # noqa: E402
from runner.figures import figure  # noqa: E402


class InFolder(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)


class CommandLine(InFolder):
    def refused(self, *arguments):
        """What is said about arguments that are wrong."""
        said = io.StringIO()
        with contextlib.redirect_stderr(said), self.assertRaises(SystemExit) as end:
            usage.parse(arguments)
        self.assertEqual(end.exception.code, 2)
        return said.getvalue()

    def test_wrong_usage_ends_with_2(self):
        for arguments in (["--only", "nothing"], ["--only", "written,"], ["--rounds", "0"], ["--rounds", "x"], ["more"],
                          ["--quic"], ["--only"]):
            self.refused(*arguments)

    def test_a_wrong_name_tells_what_there_is(self):
        self.assertIn("start-1000", self.refused("--only", "written,nothing"))

    def test_quick_and_rounds_do_not_go_together(self):
        self.assertIn("not allowed with", self.refused("--quick", "--rounds", "5"))
        self.assertEqual(usage.parse(["--quick"]).rounds, 3)
        self.assertEqual(usage.parse([]).rounds, 9)
        self.assertEqual(usage.parse(["--rounds", "5"]).rounds, 5)

    def test_every_line_names_the_measurement_that_makes_it(self):
        for name, measurement in (("start-1000", "start"), ("memory-card", "memory"), ("foreign-road", "growth-foreign"),
                                  ("encode", "records"), ("room-cost", "room"), ("log", "log")):
            self.assertEqual(usage.parse(["--only", name]).only, [measurement])

    def test_lists_may_have_commas_and_repeat_nothing(self):
        self.assertEqual(usage.parse(["--only", "start-1000,written", "--only", "start,encode"]).only,
                         ["start", "written", "records"])
        self.assertEqual(usage.parse([]).only, list(lines.MEASUREMENTS))

    def test_results_that_can_not_be_written_are_told_at_once(self):
        self.assertIn("No such file or directory", self.refused("--json", str(self.folder / "none" / "x.json")))
        self.assertIn("Is a directory", self.refused("--json", str(self.folder)))
        (self.folder / "file").touch()
        self.assertIn("nothing can be written into", self.refused("--plots", str(self.folder / "file")))

    def test_trying_leaves_files_as_they_are(self):
        (self.folder / "old").write_text("kept")
        usage.parse(["--json", str(self.folder / "new")])
        usage.parse(["--json", str(self.folder / "old"), "--plots", str(self.folder)])
        self.assertEqual([(path.name, path.read_text()) for path in self.folder.iterdir()], [("old", "kept")])

    def test_is_looked_at_without_what_may_be_missing_and_whatever_lies_in_the_present_folder(self):
        for name in ("redis", "demo", "runner", "json"):  # none of these may be taken for ours
            (self.folder / f"{name}.py").write_text("raise ImportError('not here')\n")
        hidden = self.folder / "hidden"
        hidden.mkdir()
        shutil.copy(self.folder / "redis.py", hidden)
        path = ":".join(map(str, (hidden, PROJECT / "tools", HERE)))
        for argument, status in (("--quick", 0), ("--no-such", 2)):
            done = subprocess.run([sys.executable, "-BPm", "runner.usage", argument], cwd=self.folder, check=False,
                                  env={"PYTHONPATH": path}, capture_output=True, text=True)
            self.assertEqual(done.returncode, status, done.stderr)


class Lists(unittest.TestCase):
    def test_every_measurement_is_known_by_name_and_every_name_is_measured(self):
        self.assertEqual(set(lines.MEASUREMENTS), set(run.MEASUREMENTS))
        self.assertEqual(len(lines.LINES), sum(map(len, lines.MEASUREMENTS.values())))

    def test_all_that_is_imported_is_installed(self):
        wanted = set()
        for path in [*HERE.glob("runner/*.py"), *(PROJECT / "tools" / "demo").glob("*.py")]:
            for node in ast.walk(ast.parse(path.read_text(encoding="utf-8"))):
                if isinstance(node, ast.Import):
                    wanted |= {name.name.split(".")[0] for name in node.names}
                elif isinstance(node, ast.ImportFrom) and node.level == 0:
                    wanted.add(node.module.split(".")[0])
        packages = re.findall(r"deps_(?:run|bench)=\(([^)]*)\)", (PROJECT / "scripts" / "deps.sh").read_text("utf-8"))
        packages = " ".join(packages).split()
        for module in wanted - set(sys.stdlib_module_names) - {"demo", "runner"}:
            self.assertIn(f"python3-{module}", packages)

    @unittest.skipUnless(shutil.which("dpkg-buildflags"), "no dpkg-buildflags here")
    def test_is_built_with_the_flags_of_the_packages(self):
        presets = json.loads((PROJECT / "CMakePresets.json").read_text(encoding="utf-8"))["configurePresets"]
        (set_here,) = (preset["cacheVariables"] for preset in presets if preset["name"] == "bench")
        for ours, theirs in (("CMAKE_C_FLAGS", "CFLAGS CPPFLAGS"), ("CMAKE_CXX_FLAGS", "CXXFLAGS CPPFLAGS"),
                             ("CMAKE_EXE_LINKER_FLAGS", "LDFLAGS")):
            flags = " ".join(subprocess.run(["dpkg-buildflags", "--get", name], capture_output=True, text=True, check=True,
                                            env={"PATH": os.environ["PATH"], "DEB_BUILD_MAINT_OPTIONS": "hardening=+all"},
                                            ).stdout for name in theirs.split())
            flags = [flag for flag in shlex.split(flags) if not flag.startswith("-ffile-prefix-map")]
            self.assertEqual(sorted(shlex.split(set_here[ours])), sorted(flags))


def fails_with(failure):
    """A measurement during which somebody disturbed a round, and which fails."""
    def measure(_rounds):
        place.rounds_of('{"ours": [1], "shared": 1}')
        raise failure
    return measure


def works(name):
    """A measurement of one line."""
    return lambda rounds: [figure(name, {"baseline": [1] * rounds, "ours": [2] * rounds})]


class Failures(InFolder):
    def run_with(self, measurements, *arguments):
        """Runs these measurements only; returns (status, what was printed, what was said on the way)."""
        printed, said = io.StringIO(), io.StringIO()
        with mock.patch.object(run, "MEASUREMENTS", measurements), mock.patch.object(place, "learn_pace"), \
                mock.patch.object(place, "stay_on"), contextlib.redirect_stdout(printed), contextlib.redirect_stderr(said):
            status = run.main(["--quick", "--only", ",".join(measurements), *arguments])
        return status, printed.getvalue(), said.getvalue()

    def test_a_failure_of_any_kind_is_told_and_the_others_go_on(self):
        failures = (redis.ConnectionError("refused"), subprocess.TimeoutExpired("bench", 5), KeyError("ours"),
                    IndexError("list index out of range"), json.JSONDecodeError("Expecting value", "", 0),
                    FileNotFoundError(2, "No such file or directory", "bench_store"), place.Failed("status 1:\n why"))
        for failure in failures:
            with self.subTest(failure=failure):
                status, printed, said = self.run_with({"road": fails_with(failure), "written": works("written")})
                self.assertEqual(status, 1)
                self.assertIn(f"not measured: road, road-unlogged: {run.why_of(failure)}\n", said)
                self.assertRegex(printed, r"(?m)^road +not measured: .* <= 1\.15 ")
                self.assertRegex(printed, r"(?m)^written .* 2 +<= 1\.2 +MISSED")

    def test_what_is_no_text_by_itself_is_told_with_its_kind(self):
        self.assertEqual(run.why_of(KeyError("ours")), "KeyError: 'ours'")
        self.assertEqual(run.why_of(place.Failed("status 1:\n why")), "status 1: why")

    def test_remarks_of_a_failed_measurement_are_not_the_next_ones(self):
        _, printed, said = self.run_with({"road": fails_with(place.Failed("no")), "written": works("written")})
        self.assertNotIn("somebody else", printed + said)

    def test_a_figure_that_is_none_is_not_shown(self):
        for rounds in ({"ours": [1]}, {"baseline": [1], "ours": []}, {"baseline": [0], "ours": [1]},
                       {"baseline": [1], "ours": [-1]}, {"baseline": [1], "ours": [float("nan")]}):
            with self.subTest(rounds=rounds):
                status, printed, _ = self.run_with({"written": lambda _, rounds=rounds: [figure("written", rounds)]})
                self.assertEqual(status, 1)
                self.assertIn("written  not measured", printed)

    def test_a_measurement_that_hangs_fails(self):
        with mock.patch.object(run, "limit", lambda _: 0.02):
            status, _, said = self.run_with({"call": lambda _: signal.pause(), "written": works("written")})
        self.assertEqual(status, 1)
        self.assertIn("not measured: call: not done within 0.02 s", said)

    def test_processes_of_a_failed_measurement_are_ended_before_the_next_one(self):
        left = []

        def leaves_one(_rounds):
            with subprocess.Popen(["sh", "-c", "sleep 1000 >&2 & echo $!"], stdout=subprocess.PIPE, text=True) as parent:
                left.append(int(parent.stdout.readline()))
            raise place.Failed("no")

        def looks(rounds):
            self.assertRaises(ProcessLookupError, os.kill, left[0], 0)
            return works("written")(rounds)

        _, printed, _ = self.run_with({"call": leaves_one, "written": looks})
        self.assertRegex(printed, r"(?m)^written .* MISSED")

    def test_all_is_in_the_json(self):
        path = self.folder / "x.json"
        self.run_with({"road": fails_with(KeyError("x")), "written": works("written")}, "--json", str(path))
        shown = {each["name"]: each for each in json.loads(path.read_text(encoding="utf-8"))}
        self.assertEqual((shown["road"]["goal"], shown["road"]["met"], shown["road"]["why"]), (1.15, None, "KeyError: 'x'"))
        self.assertEqual(shown["written"]["ratio"], 2)

    def test_a_file_that_can_no_longer_be_written_costs_nothing_else(self):
        def measure(rounds):
            gone.rmdir()
            return works("written")(rounds)

        gone = self.folder / "gone"
        gone.mkdir()
        status, printed, said = self.run_with({"written": measure}, "--json", str(gone / "x.json"))
        self.assertEqual(status, 1)
        self.assertIn("not written:", said)
        self.assertIn("MISSED", printed)


class Programs(InFolder):
    def setUp(self):
        super().setUp()
        patched = mock.patch.object(place, "PROGRAMS", self.folder)
        patched.start()
        self.addCleanup(patched.stop)
        place.remarks()

    def program(self, text):
        path = self.folder / "program"
        path.write_text(f"#!/bin/sh\n{text}\n")
        path.chmod(0o755)

    def test_one_that_is_missing_or_ends_badly_has_failed(self):
        with self.assertRaisesRegex(place.Failed, r"failed to execute .* \(status 127 of .*/none\)"):
            place.run("none")
        self.program("echo '{\"ours\": [1]}'; echo why >&2; exit 3")
        with self.assertRaisesRegex(place.Failed, r"^why \(status 3 of .*/program 1 two\)"):
            place.run("program", 1, "two")
        self.program("exit 4")
        with self.assertRaisesRegex(place.Failed, "^it has said nothing .status 4 of "):
            place.run("program")
        self.assertEqual(place.remarks(), [])

    def test_what_it_says_besides_its_figures_is_kept_once(self):
        self.program("echo 'not the first in line' >&2; echo 'not the first in line' >&2; echo '{\"ours\": [1]}'")
        with contextlib.redirect_stderr(io.StringIO()):
            self.assertEqual(place.run("program"), {"ours": [1]})
        self.assertEqual(place.remarks(), ["not the first in line"])

    def test_it_knows_until_when_rounds_are_taken_again(self):
        self.program("echo \"{\\\"ours\\\": [$BENCH_AGAIN_UNTIL]}\"")
        now = place.time.monotonic() * 1e6
        self.assertTrue(now < place.run("program")["ours"][0] < now + place.AGAIN_MINUTES * 60e6)


# Is ended while it measures `call`, with a store server that is up, a program that has a child, and a folder.
INTERRUPTED = """
import os, subprocess, sys
from runner import __main__ as run, place
from runner.figures import figure
def call(rounds):
    with place.server() as store:
        parent = subprocess.Popen(["sh", "-c", "sleep 1000 & echo $!; wait"], stdout=subprocess.PIPE, text=True)
        print(store._process.pid, parent.pid, parent.stdout.readline(), file=sys.stdout, flush=True)
        place.run("waits")
os.environ["RUNNER"] = str(os.getpid())
place.learn_pace = lambda: None
place.stay_on = lambda processor: None
run.MEASUREMENTS = {"written": lambda rounds: [figure("written", {"baseline": [1], "ours": [2]})], "call": call}
sys.exit(run.main(["--only", "written,call,fields", "--json", sys.argv[1]]))
"""


class Ends(InFolder):
    def ended_by(self, signum):
        """Starts a run, ends it; returns (status, what it printed last, the JSON) and sees that nothing is left."""
        programs, temporary = self.folder / "tests" / "bench", self.folder / "tmp"
        programs.mkdir(parents=True)
        temporary.mkdir()
        (programs / "waits").write_text("#!/bin/sh\nkill -$SIGNAL $RUNNER\nexec sleep 1000\n")
        (programs / "waits").chmod(0o755)
        done = subprocess.run([sys.executable, "-BPc", INTERRUPTED, self.folder / "x.json"], capture_output=True, text=True,
                              check=False, timeout=30,
                              env={**os.environ, "APP_CG_BUILD": str(self.folder), "SIGNAL": str(int(signum)),
                                   "TMPDIR": str(temporary), "PYTHONPATH": f"{HERE}:{PROJECT / 'tools'}"})
        pids, printed = done.stdout.split("\n", 1)
        for pid in pids.split():
            self.assertRaises(ProcessLookupError, os.kill, int(pid), 0)
        self.assertEqual(list(temporary.iterdir()), [])
        return done, printed, json.loads((self.folder / "x.json").read_text(encoding="utf-8"))

    def test_ctrl_c_ends_with_what_was_measured(self):
        done, printed, shown = self.ended_by(signal.SIGINT)
        self.assertEqual(done.returncode, 130)
        self.assertRegex(printed, r"(?m)^written .* MISSED")
        self.assertEqual([each.get("why") for each in shown], [None, "ended by SIGINT", "ended by SIGINT"])
        self.assertIn("not measured: call, fields: ended by SIGINT\n", done.stderr)

    def test_sigterm_does_too(self):
        done, printed, _ = self.ended_by(signal.SIGTERM)
        self.assertEqual(done.returncode, 143)
        self.assertRegex(printed, r"(?m)^written .* MISSED")

    def test_a_name_with_spaces_and_parentheses_is_no_part_of_the_parents_id(self):
        self.assertEqual(ending._parent("17 (a) (b c) S 42 17 17 0"), 42)  # pylint: disable=protected-access


if __name__ == "__main__":
    unittest.main()
