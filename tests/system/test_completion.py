"""Completion in the shells themselves, with the scripts that cgctl prints.

Bash's function is called as bash calls it, the words split where bash splits them. Zsh completes only at its own
prompt, so it gets a terminal, and a key of ours that prints the line as it stands.
"""
import os
import pty
import re
import select
import shutil
import subprocess
import time

import pytest

from rig import BUILD, Rig

PATIENCE_S = 20
BREAKS = re.compile(r"([=:])")


@pytest.fixture(scope="module")
def device():
    """A chassis with two cards, and the daemon."""
    rig = Rig()
    try:
        rig.start_master("m1", "m2")
        for position in ("1/3/0", "1/4/0"):
            rig.plug(position)
        yield rig
    finally:
        rig.close()


def environment(device):
    """As an operator's shell has it."""
    return {**os.environ, **device.cgctl.env, "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}", "TERM": "dumb",
            "HOME": str(device.folder), "LC_ALL": "C.UTF-8"}


BASH = r"""
. <(cgctl completion bash)
words=("$@")
COMP_WORDS=("${words[@]}")
COMP_CWORD=$((${#words[@]} - 1))
_cgctl cgctl "${words[-1]}" "${words[-2]}"
printf '%s\n' "${COMPREPLY[@]}"
"""


def bash(device, line):
    """What bash offers at the end of a line."""
    words = [part for word in line.split(" ") for part in BREAKS.split(word) if part or not word]
    done = subprocess.run(["bash", "--norc", "-c", BASH, "bash", *words], env=environment(device), text=True,
                          capture_output=True, timeout=PATIENCE_S, check=True)
    assert done.stderr == ""
    return sorted(done.stdout.split())


def test_bash_completes_verbs_options_and_fixed_words(device):
    assert bash(device, "cgctl sho") == ["show"]
    assert {"list", "card", "doctor"} <= set(bash(device, "cgctl "))
    assert "manual" not in bash(device, "cgctl ")
    assert bash(device, "cgctl card ") == ["offline", "online", "plug", "pull"]
    assert bash(device, "cgctl card plug --no") == ["--node-type", "--nodeid"]
    assert bash(device, "cgctl card plug 1/3 --node-type s") == ["sfc", "sub_lc"]
    assert bash(device, "cgctl role m") == ["master"]
    assert bash(device, "cgctl completion z") == ["zsh"]
    assert bash(device, "cgctl list --state wai") == ["waiting"]
    assert bash(device, "cgctl list --state waiting,den") == ["waiting,denied"]
    assert bash(device, "cgctl --json role sl") == ["slave"]


def test_bash_completes_types_files_and_folders(device, tmp_path):
    (tmp_path / "secrets").mkdir()
    (tmp_path / "notes").touch()
    assert bash(device, "cgctl get card_in") == ["card_info"]
    assert bash(device, "cgctl get p_dev.card_in") == ["p_dev.card_info"]
    assert bash(device, f"cgctl acl --secrets {tmp_path}/") == [f"{tmp_path}/secrets"]
    assert bash(device, f"cgctl --socket {tmp_path}/n") == [f"{tmp_path}/notes"]
    assert bash(device, "cgctl watch card_info app_cg_card_check_a") == ["app_cg_card_check_ack"]
    assert "true" in bash(device, "cgctl module run m1 -- tru")


def test_bash_asks_the_device(device):
    assert bash(device, "cgctl show 1/") == ["1/3/0", "1/4/0"]
    assert bash(device, "cgctl card pull 1/4") == ["1/4/0"]
    assert bash(device, "cgctl debug dump_") == ["dump_all", "dump_check_module", "dump_node"]
    assert bash(device, "cgctl debug update_dev de") == ["dev="]
    assert bash(device, "cgctl get card_info dev") == ["devid="]
    assert bash(device, "cgctl get card_info devid=1 slo") == ["slotid="]
    assert bash(device, f"cgctl --endpoint unix:{device.store.socket_path} show 1/3") == ["1/3/0"]


def test_bash_is_silent_when_nobody_answers(device):
    assert bash(device, "cgctl --endpoint unix:/nonexistent show ") == []
    assert bash(device, "cgctl --socket /nonexistent debug ") == []
    assert bash(device, "cgctl get no_such_type ") == []


def test_bash_finds_no_mistake_in_its_script(tmp_path):
    script = subprocess.run([BUILD / "bin" / "cgctl", "completion", "bash"], capture_output=True, check=True)
    done = subprocess.run(["bash", "-n"], input=script.stdout, capture_output=True, check=True)
    assert done.stderr == b""


ZSH = r"""
PROMPT='ready> '
unsetopt beep prompt_cr prompt_sp
setopt no_always_last_prompt
fpath=({folder} $fpath)
autoload -U compinit && compinit -u -D
show-line() {{ print; print -r -- "LINE[$BUFFER]"; BUFFER=; zle reset-prompt }}
zle -N show-line
bindkey '^O' show-line
print configured
"""


class Zsh:
    """Zsh at a terminal of its own."""

    def __init__(self, folder, env):
        (folder / ".zshrc").write_text(ZSH.format(folder=folder))
        script = subprocess.run([BUILD / "bin" / "cgctl", "completion", "zsh"], capture_output=True, check=True)
        (folder / "_cgctl").write_bytes(script.stdout)
        self._pid, self._terminal = pty.fork()
        if self._pid == 0:
            os.execvpe("zsh", ["zsh", "-d", "-i"], {**env, "ZDOTDIR": str(folder)})
        self._seen = ""
        self._until("configured")

    def close(self):
        """Hangs up."""
        os.close(self._terminal)
        os.waitpid(self._pid, 0)

    def _until(self, text):
        deadline = time.monotonic() + PATIENCE_S
        while text not in self._seen:
            ready, _, _ = select.select([self._terminal], [], [], max(0, deadline - time.monotonic()))
            assert ready, f"no {text!r} in {self._seen!r}"
            self._seen += os.read(self._terminal, 4096).decode("utf-8", "replace")
        before, self._seen = self._seen.split(text, 1)
        return before

    def completed(self, line):
        """The line as it stands after TAB."""
        os.write(self._terminal, line.encode() + b"\t\x0f")
        self._until("LINE[")
        return self._until("]")

    def offered(self, line):
        """What is listed at TAB."""
        os.write(self._terminal, line.encode() + b"\t\t\x0f")
        return self._until("LINE[").split()


@pytest.fixture(scope="module")
def zsh(device, tmp_path_factory):
    """A zsh that has our completion."""
    if not shutil.which("zsh"):
        pytest.fail("zsh is not installed; ./test installs it")
    shell = Zsh(tmp_path_factory.mktemp("zsh"), environment(device))
    yield shell
    shell.close()


def test_zsh_completes_verbs_options_and_fixed_words(zsh):
    assert zsh.completed("cgctl sho") == "cgctl show "
    assert zsh.completed("cgctl card plu") == "cgctl card plug "
    assert zsh.completed("cgctl card plug 1/3 --node-t") == "cgctl card plug 1/3 --node-type "
    assert zsh.completed("cgctl card plug 1/3 --node-type hps") == "cgctl card plug 1/3 --node-type hpsc "
    assert zsh.completed("cgctl role ma") == "cgctl role master "
    assert zsh.completed("cgctl --json role sl") == "cgctl --json role slave "
    assert zsh.completed("cgctl get card_in") == "cgctl get card_info "
    # The comma goes again when a blank is typed.
    assert zsh.completed("cgctl list --state waiting,den") == "cgctl list --state waiting,denied,"


def test_zsh_asks_the_device(zsh):
    assert zsh.completed("cgctl card pull 1/4") == "cgctl card pull 1/4/0 "
    assert zsh.completed("cgctl debug dump_n") == "cgctl debug dump_node "
    assert zsh.completed("cgctl debug log-level le") == "cgctl debug log-level level="
    assert zsh.completed("cgctl get card_info dev") == "cgctl get card_info devid="
    assert {"1/3/0", "1/4/0"} <= set(zsh.offered("cgctl show 1/"))
