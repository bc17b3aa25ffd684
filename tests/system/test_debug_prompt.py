"""The prompt of `cgctl debug`, in a terminal."""
import os
import pty
import re
import select
import subprocess
import termios
import time

import pytest

from demo import programs


class Terminal:
    """A program on a terminal of its own, typed to and read from."""

    def __init__(self, argv, env):
        self._master, slave = pty.openpty()
        self.process = subprocess.Popen(list(map(str, argv)), env={**os.environ, **env, "TERM": "xterm"}, stdin=slave,
                                        stdout=slave, stderr=slave, start_new_session=True)
        os.close(slave)
        self._shown = ""

    def type(self, text, seconds=20):
        """Types when the program reads keys: the prompt is shown a moment before the terminal leaves lines to it."""
        deadline = time.monotonic() + seconds
        while termios.tcgetattr(self._master)[3] & termios.ICANON:
            assert time.monotonic() < deadline, f"the terminal still edits lines itself after {self._shown!r}"
            select.select([], [], [], 0.01)
        os.write(self._master, text.encode())

    def expect(self, pattern, seconds=20):
        """Waits until what was shown since the last match matches; forgets it then."""
        deadline = time.monotonic() + seconds
        while not (found := re.search(pattern, self._shown)):
            if not select.select([self._master], [], [], max(0, deadline - time.monotonic()))[0]:
                raise AssertionError(f"no {pattern!r} in {self._shown!r}")
            try:
                self._shown += os.read(self._master, 65536).decode("utf-8", "replace")
            except OSError as end:  # the program has ended
                raise AssertionError(f"no {pattern!r} in {self._shown!r}") from end
        self._shown = self._shown[found.end():]

    def close(self):
        programs.stop(self.process)
        os.close(self._master)


@pytest.fixture
def prompt(master):
    """The prompt, before a daemon with the modules m1 and m2."""
    state = master.folder / "state"
    terminal = Terminal([master.cgctl.program, "debug"],
                        {**master.cgctl.env, "XDG_STATE_HOME": str(state), "HOME": str(master.folder)})
    terminal.rig, terminal.state = master, state
    yield terminal
    terminal.close()


def test_who_answers_and_the_end(prompt):
    prompt.expect(rf"app_cg, process {prompt.rig.daemon.pid}, up since \d\d:\d\d:\d\d \(\d+ s\), at ")
    prompt.expect("app_cg> ")
    prompt.type("\x04")
    assert prompt.process.wait(10) == 0


def test_tab_completes_commands_and_arguments(prompt):
    prompt.expect("app_cg> ")
    prompt.type("dump_n\t")
    prompt.expect("ode ")  # what was completed: the line's beginning stands there already
    prompt.type("\n")
    prompt.expect("CURRENT_NODE_INFO")
    prompt.expect("app_cg> ")
    prompt.type("du\t")
    prompt.expect("mp_")
    prompt.type("\t")
    prompt.expect("dump_all  dump_check_module  dump_node")
    prompt.type("c\t\n")
    prompt.expect("app_cg_wait_obj_num 2")
    prompt.expect("app_cg> ")
    prompt.type("log\tl\t2\n")
    prompt.expect("app_cg> ")
    prompt.type("log-level level=3\n")
    prompt.expect("app_cg> ")
    prompt.rig.expect_logged("set debug level 3")


def test_lines_are_edited_and_kept(prompt):
    prompt.expect("app_cg> ")
    prompt.type("XXshow_time\x01\x04\x04\n")  # to the beginning, and two characters away
    prompt.expect("app_cg run ")
    prompt.expect("app_cg> ")
    prompt.type("\x1b[A\n")  # the line before
    prompt.expect("app_cg run ")
    prompt.expect("app_cg> ")
    prompt.type("quit\n")
    assert prompt.process.wait(10) == 0
    history = (prompt.state / "cgctl" / "debug_history").read_text()
    assert "show_time" in history.replace("\\040", " ")
    again = Terminal([prompt.rig.cgctl.program, "debug"], {**prompt.rig.cgctl.env, "XDG_STATE_HOME": str(prompt.state)})
    try:
        again.expect("app_cg> ")
        again.type("\x1b[A")
        again.expect("quit")
        again.type("\x1b[A\n")
        again.expect("app_cg run ")
    finally:
        again.close()


def test_what_is_wrong_leaves_the_prompt(prompt):
    prompt.expect("app_cg> ")
    prompt.type("shw_time\n")
    prompt.expect("has no command 'shw_time'")
    prompt.expect("app_cg> ")
    prompt.type("help\n")
    prompt.expect("update_dev dev=%d")
    prompt.expect("app_cg> ")
    prompt.rig.daemon.stop()
    prompt.type("dump_node\n")
    prompt.expect("no process listens there")
    prompt.expect("app_cg> ")
    prompt.rig.start()
    prompt.type("dump_node\n")
    prompt.expect(f"process {prompt.rig.daemon.pid}, up since")
    prompt.expect("CURRENT_NODE_INFO")


def test_commands_from_a_pipe(master):
    def piped(text):
        return subprocess.run([master.cgctl.program, "debug"], env={**os.environ, **master.cgctl.env}, input=text,
                              capture_output=True, text=True, check=False, timeout=30)

    good = piped("dump_check_module\n# nothing\nshow_time\n")
    assert good.returncode == 0 and "name[m1]" in good.stdout and "app_cg run" in good.stdout
    assert f"process {master.daemon.pid}" in good.stderr and "\x1b" not in good.stdout
    bad = piped("no-such\ndump_check_module\n")
    assert bad.returncode == 1 and "name[m1]" in bad.stdout and "no-such" in bad.stderr
