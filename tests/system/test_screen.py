"""The live view of `cgctl watch` in a real terminal: tmux holds it, and says what stands on it.

One store and one daemon serve all cases: the cards are plugged and pulled as each case wants them.
"""
import itertools
import os
import shutil
import signal
import subprocess

import pytest

from demo import programs
from rig import BUILD, CARD_INFO, HOST, REQUEST, Rig

TMUX = shutil.which("tmux")
_numbers = itertools.count(1)


class Terminal:
    """A terminal of a certain size, with a shell that runs one program and then says how that ended."""

    def __init__(self, folder, size, command, env):
        self._socket = folder / f"tmux-{next(_numbers)}"
        self._env = {**os.environ, **env, "LC_ALL": "C.UTF-8"}
        self._env.pop("TMUX", None)
        width, height = size
        self._run("-f", "/dev/null", "new-session", "-d", "-x", width, "-y", height,
                  f"echo before; {command}; echo ended with $?; exec cat")
        self._run("set-option", "-g", "window-size", "manual")

    def _run(self, *arguments):
        return subprocess.run([TMUX, "-S", self._socket, *map(str, arguments)], env=self._env, check=True,
                              stdout=subprocess.PIPE, text=True, encoding="utf-8").stdout

    def close(self):
        self._run("kill-server")

    def text(self):
        """What stands on it; a line that is longer than the terminal is wide comes as one."""
        return self._run("capture-pane", "-p", "-J")

    def press(self, *keys):
        self._run("send-keys", *keys)

    def resize(self, width, height):
        self._run("resize-window", "-x", width, "-y", height)

    def pid(self):
        """The process id of the program in it."""
        shell = self._run("display-message", "-p", "#{pane_pid}").strip()
        return int(subprocess.run(["pgrep", "-P", shell], check=True, stdout=subprocess.PIPE).stdout.split()[0])

    def expect(self, *texts, gone=()):
        """Waits until all of these stand on it, and none of those."""
        def is_so():
            shown = self.text()
            return all(text in shown for text in texts) and not any(text in shown for text in gone)
        try:
            programs.wait_until(is_so, 20, f"the screen shows {texts} and not {gone}")
        except programs.NotInTime as late:
            raise AssertionError(f"{late}:\n{self.text()}") from late

    def expect_end(self, status=0):
        """The program has ended, and left the terminal as it found it."""
        self.expect("before", f"ended with {status}", gone=("events", "quit"))


@pytest.fixture(scope="module")
def device():
    """A master device with two modules that say nothing by themselves."""
    rig = Rig()
    rig.start_master("m1", "m2")
    yield rig
    rig.close()


@pytest.fixture
def watch(device, tmp_path):
    """Starts the view, or another verb, in a terminal of a size; every card is pulled at the end."""
    terminals = []

    def start(size, command="watch"):
        command = f"{BUILD / 'bin' / 'cgctl'} {command}"
        terminals.append(Terminal(tmp_path, size, command, device.cgctl.env))
        return terminals[-1]

    yield start
    for terminal in terminals:
        terminal.close()
    device.cgctl("del", "card_info", "t_mod=0", "--keys", 1)
    device.expect(lambda: not device.keys(HOST, REQUEST), "no check is left open")


def plug_many(device, count):
    """So many line cards that wait, in slots of three devices: by the server's function, since a command for each
    takes seconds. The fields: online, name, static part (packed), TIPC node."""
    for number in range(count):
        key = f"{CARD_INFO}:0:{1 + number // 80}:{1 + number % 80}:0"
        device.database(HOST).execute_command(
            "FCALL", "vx_mom2_set", 3, key, f"@rev:{CARD_INFO}", f"@idx:{CARD_INFO}", f"@chg:{HOST}:", f"plug-{key}",
            "7", "1", "12", f"lc-{number}", "14", b"\x2a\x00\x30\x03", "22", 5000 + number)


def test_one_card_at_80x24(device, watch):
    screen = watch((80, 24))
    screen.expect("no cards")
    device.plug("1/3/0")
    screen.expect("1 card: 1 waiting", "slot 3", "card-3 (lc)", "waiting for m", "█", " s│", "q quit", "master")
    screen.expect("1/3/0 card-3: plugged, lc, online", "1/3/0 card-3: check requested of m")
    device.answer("1/3/0", "m1")
    screen.expect("waiting for m2", "1/3/0 card-3: m1 PASS after", gone=("waiting for m1",))
    device.answer("1/3/0", "m2", 1, "too hot")
    screen.expect("denied by m2", "1 card: 1 denied", "denied by m2: too hot", "power-off requested")
    screen.press("Down", "Enter")
    screen.expect("decided   denied by m2: too hot", "answers   m1 PASS after", "type      lc")
    screen.press("Escape")
    screen.expect("slot 3", gone=("answers   m1",))
    screen.press("q")
    screen.expect_end()


def test_sixteen_cards_with_sub_slots_at_200x50(device, watch):
    plug_many(device, 12)
    for sub in (1, 2):
        device.cgctl("card", "plug", f"1/3/{sub}", "--node-type", "sub_lc", "--name", f"sub-{sub}")
    for slot in (13, 14):
        device.cgctl("card", "plug", f"1/{slot}/0", "--offline", "--name", f"cold-{slot}")
    screen = watch((200, 50))
    screen.expect("16 cards: 14 waiting, 2 offline", "slot 12", "/1 sub-1 (sub_lc)", "/2 sub-2", "device 1: 16 cards")
    screen.press("f")
    screen.expect("only waiting", "slot 12", gone=("cold-13",))
    screen.press("f", "f", "f")
    screen.expect("only offline", "cold-13", gone=("slot 12",))
    screen.press("?")
    screen.expect("pause the stream of events")
    screen.press("?")
    screen.resize(80, 24)
    screen.expect("only offline", "cold-14", gone=("pause the stream of events",))
    screen.press("q")
    screen.expect_end()


def test_two_hundred_cards_at_80x24(device, watch):
    plug_many(device, 200)
    screen = watch((80, 24))
    screen.expect("200 cards: 200 waiting", "device 1: 80 cards", "1/1/0", gone=("3/40/0",))
    screen.press("End")
    screen.expect("3/40/0", "lc-199")
    screen.press("/", "2", "/", "7", "7", "Enter", "Enter")
    screen.expect("card 2/77/0", "lc-156", "asked     ")
    screen.resize(20, 5)
    screen.expect("This terminal is", gone=("card 2/77/0",))
    screen.resize(200, 50)
    screen.expect("card 2/77/0", "3/40/0")
    screen.press("Escape", "p")
    screen.expect("paused")
    device.cgctl("card", "pull", "1/1/0")
    screen.expect("199 cards", gone=("1/1/0 lc-0: pulled",))
    screen.press("p")
    screen.expect("1/1/0 lc-0: pulled", gone=("paused",))
    screen.press("q")
    screen.expect_end()


def test_a_dead_daemon_and_a_lost_store_stand_in_front(rig, tmp_path):
    rig.start_master("m1", "m2")
    rig.plug("1/3/0")
    rig.expect_request("1/3/0")
    said = tmp_path / "lines"
    with open(said, "wb") as out:
        lines = rig.cgctl.start("watch", "--json", stdout=out)
    screen = Terminal(tmp_path, (80, 24), f"{BUILD / 'bin' / 'cgctl'} watch", rig.cgctl.env)
    try:
        screen.expect("1 card: 1 waiting", gone=("SILENT", "LOST"))
        rig.expect(lambda: "listening" in said.read_text(), "the lines begin")
        screen.press("p")
        rig.daemon.signal(signal.SIGKILL)
        screen.expect(" DAEMON SILENT since ", "the daemon no longer answers", "paused")
        rig.expect(lambda: '"event":"daemon"' in said.read_text() and '"answers":false' in said.read_text(),
                   "the lines tell of the daemon")
        rig.store.kill()
        screen.expect(" STORE LOST since ", "DAEMON SILENT", "lost the store")
        screen.press("q")
        screen.expect_end()
    finally:
        screen.close()
        programs.stop(lines)


def test_the_list_fits_the_terminal_and_is_whole_in_a_pipe(device, watch):
    device.plug("1/3/0")
    device.expect_request("1/3/0")
    reason = "far too hot for a " + "long, " * 12 + "long while"
    device.answer("1/3/0", "m1", 1, reason)
    device.expect(lambda: "denied" in device.cgctl("list", "--state", "denied,waiting"), "the denial")
    screen = watch((80, 24), "list")
    screen.expect("CARD", "denied", "\n    far too hot for a long", "long while\n", "1 card: 1 denied",
                  "ended with 0", gone=("…", reason))
    assert max(map(len, screen.text().splitlines()[1:6])) <= 80
    screen = watch((80, 24), "list | cat")
    screen.expect(reason, "ended with 0", gone=("…",))


def test_nothing_that_matters_is_lost_at_80_columns(rig, tmp_path):
    rig.start_master("firmware", "power", "thermal")
    history, said = tmp_path / "history.sqlite", tmp_path / "said"
    with open(said, "wb") as errors:
        recorder = programs.start(
            [BUILD / "bin" / "cg_recorderd", "--history", history, "--modules", rig.view.modules, "--life", tmp_path / "life",
             "--listen", "127.0.0.1:0"], {"VX_MOM_ENDPOINT": rig.store.endpoint}, stderr=errors)
    screens = []

    def start(command):
        screens.append(Terminal(tmp_path, (80, 24), f"{BUILD / 'bin' / 'cgctl'} {command} --history {history}",
                                rig.cgctl.env))
        return screens[-1]

    try:
        rig.expect(lambda: "subscribed; following" in said.read_text(), "the recorder subscribes")
        rig.cgctl("card", "plug", "1/3/0", "--name", "a line card with a long name")
        rig.expect_request("1/3/0")
        rig.expect(lambda: rig.cgctl.json("show", "1/3/0", "--history", history)["time_left_s"], "it is recorded")
        screen = start("list")
        screen.expect("1/3/0  a line card wit…  ", "  waiting ", " s  ", "\n    for firmware, power, thermal\n", "ended with 0")
        assert max(map(len, screen.text().splitlines()[1:4])) <= 80
        screen = start(f"modules --modules {rig.view.modules}")
        screen.expect("MODULE    REG  ANSWERS", "\n    first asked: waited for by 1 card\n", "ended with 0")
        assert max(map(len, screen.text().splitlines()[1:8])) <= 80
    finally:
        for screen in screens:
            screen.close()
        programs.stop(recorder)


@pytest.mark.parametrize("signal", ["TERM", "INT", "HUP"])
def test_a_signal_gives_the_terminal_back(watch, signal):
    screen = watch((80, 24))
    screen.expect("0 cards", "no cards")
    subprocess.run(["kill", f"-{signal}", str(screen.pid())], check=True)
    screen.expect_end()


def test_a_terminal_of_an_unknown_kind_is_named(device, tmp_path):
    terminal = Terminal(tmp_path, (80, 24), f"TERM=unheard-of {BUILD / 'bin' / 'cgctl'} watch", device.cgctl.env)
    try:
        terminal.expect("TERM=unheard-of", "cgctl watch --lines", "ended with 1")
    finally:
        terminal.close()
