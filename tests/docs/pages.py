"""The pages of the project: what they show between fences, and a device to run it on."""
import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
for folder in ("tools", "tests/system"):
    sys.path.insert(0, str(ROOT / folder))

from demo import programs  # noqa: E402  (needs the paths above)
from rig import BUILD, Rig  # noqa: E402

BLOCK_S = 60
FENCE = re.compile(r"^```(\S*) ?(.*)\n((?:.*\n)*?)```$|^<!-- run: (.*) -->$", re.MULTILINE)


def all_pages():
    """Every page in Markdown that people read."""
    return [ROOT / "README.md", ROOT / "HACKING.md", *sorted((ROOT / "docs").rglob("*.md")),
            *sorted((ROOT / "kit").rglob("*.md"))]


@dataclasses.dataclass
class Block:
    """What stands between fences, or in a comment `<!-- run: ... -->`, whose kind is "run"."""

    kind: str
    argument: str
    text: str
    line: int

    @property
    def lines(self):
        """The lines, those joined that end with a backslash."""
        return self.text.replace("\\\n", "").splitlines()


def blocks(page):
    """The blocks of a page's text, in their order."""
    for match in FENCE.finditer(page):
        kind, argument, text, hidden = match.groups()
        line = page.count("\n", 0, match.start()) + 1
        yield Block("run", "", hidden, line) if hidden else Block(kind, argument, text, line)


def manual_examples():
    """The literal blocks of cgctl(1)'s examples, of kind "sh"; a comment above one is its argument."""
    page = (ROOT / "docs" / "man" / "cgctl" / "examples.mdoc").read_text(encoding="utf-8")
    for match in re.finditer(r'(?:^\.\\" (.*)\n)?^\.Bd -literal.*\n((?:.*\n)*?)^\.Ed$', page, re.MULTILINE):
        text = match[2].replace(r"\(aq", "'").replace(r"\(dq", '"').replace(r"\e", "\\")
        yield Block("sh", match[1] or "", text, page.count("\n", 0, match.start()) + 1)


class Bench:
    """A chassis with the modules thermal and power, one card that waits in 1/3/0, and a shell in its view.

    The shell sees the programs of the build, the sources read-only in /src, and an empty folder to work in.
    """

    def __init__(self):
        self.rig = Rig()
        self._work = self.rig.folder / "work"
        self._work.mkdir()
        try:
            self.rig.modules("thermal", "power")
            self.rig.role("master")
            self.rig.start()
            self.rig.plug("1/3/0")
            self.rig.expect_request("1/3/0")
        except BaseException:
            self.rig.close()
            raise

    def close(self):
        """Stops all of it."""
        self.rig.close()

    def _command(self, script, info):
        view = self.rig.view
        env = {"VX_MOM_ENDPOINT": "unix:/store/store.sock", "SSAT_SOCKET": "/run/app_cg.ssat", "VX_ZLOG": "stderr",
               "HOME": "/work", "PATH": "/app:/usr/bin:/bin:/usr/sbin:/sbin", "LC_ALL": "C.UTF-8"}
        argv = view.command(BUILD / "bin" / "cgctl", env, info)
        more = ["--bind", self._work, "/work", "--ro-bind", ROOT, "/src"]
        for program in sorted((BUILD / "bin").iterdir()):
            if program.name != "cgctl":
                more += ["--ro-bind", program.resolve(), f"/app/{program.name}"]
        at = argv.index("--remount-ro")
        argv[at:at] = map(str, more)
        argv[argv.index("--chdir") + 1] = "/work"
        return [*argv[:-1], "bash", "-c", "set -e -o pipefail\n" + script]

    def _start(self, script):
        with open(os.devnull, "wb") as info:
            return programs.start(self._command(script, info.fileno()), stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, pass_fds=[info.fileno()])

    def run(self, script):
        """Runs a script to its end; returns its status and what it printed."""
        with self._start(script) as process:
            try:
                printed, _ = process.communicate(timeout=BLOCK_S)
            except subprocess.TimeoutExpired:
                programs.stop_group(process, signal.SIGKILL)
                printed, _ = process.communicate()
                return None, f"not at its end after {BLOCK_S} s; it printed: {printed}"
        return process.returncode, printed

    def run_until_it_speaks(self, script):
        """Runs what does not end by itself until it has printed a line, and then as Ctrl-C ends it."""
        with self._start(script) as process:
            first = process.stdout.readline()
            programs.stop_group(process, signal.SIGINT)
            try:
                printed, _ = process.communicate(timeout=BLOCK_S)
            except subprocess.TimeoutExpired:
                programs.stop_group(process, signal.SIGKILL)
                printed, _ = process.communicate()
                return None, f"not ended by Ctrl-C; it printed: {first}{printed}"
        # The shell around it may die of the signal; what fails by itself ends otherwise.
        ended = process.returncode in (0, -signal.SIGINT, 128 + signal.SIGINT)
        return (0 if first and ended else process.returncode), first + printed
