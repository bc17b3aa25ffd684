"""The soak in short: two minutes in which nothing may fail, and wrongs done on purpose, each of which must be found."""
import os
import pathlib
import subprocess
import sys

import pytest

from demo.daemon import faketime_library

_HERE = pathlib.Path(__file__).resolve().parent

pytestmark = pytest.mark.skipif(faketime_library() is None, reason="libfaketime is not installed")

_SEED = "20240501"
# What is said of each wrong.
_FOUND = {
    "answer-lost": "answers are left over",
    "result-deleted": "records, index and what was published differ",
    "request-deleted": "another writer changes a record of the daemon's",
    "verdict-changed": "expected, by the gate's rules",
    "line-swallowed": "the system log lacks",
    "history-edited": "the history lacks",
    "metrics-ahead": "the metrics count",
    "history-unsure": "was missed|the history lacks",
    "gap-endless": "the history has a gap",
    "lines-exchanged": "or their order differs",
    "registry-mistaken": "modules are registered, and not",
    "daemon-grows": "it began with",
    "shell-mistaken": "the debug shell knows the modules",
    "heartbeats-missing": "heard no heartbeat",
    "log-lost": "records of the daemon's log",
}


def _soak(*arguments, seconds):
    return subprocess.run([sys.executable, "-B", _HERE / "soak.py", "--seed", _SEED, *arguments], env=os.environ,
                          capture_output=True, text=True, timeout=seconds, check=False)


def test_nothing_fails():
    done = _soak("--minutes", "2", seconds=300)
    print(done.stdout, done.stderr)
    assert done.returncode == 0 and "nothing failed" in done.stdout


@pytest.mark.parametrize("sabotage", _FOUND)
def test_a_wrong_is_found(sabotage):
    """With a fault that loses nothing: after a return of the store the daemon makes some of the wrongs good."""
    done = _soak("--minutes", "1", "--only", "daemon_stopped", "--sabotage", sabotage, seconds=180)
    print(done.stdout, done.stderr)
    assert done.returncode == 1
    assert "contradiction in minute" in done.stderr and f"seed {_SEED}" in done.stderr
    assert any(text in done.stderr for text in _FOUND[sabotage].split("|"))
