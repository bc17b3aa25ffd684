"""Fixtures of the system tests."""
import pathlib
import signal
import sys

import pytest

# The pieces that start real programs privately are shared with the demonstration.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools"))

from demo import programs  # noqa: E402  (needs the path above)
from recording import Recorder  # noqa: E402
from rig import BUILD, Rig  # noqa: E402


def pytest_sessionstart(session):
    """Without the binaries no test can say anything."""
    for name in ("app_cg", "cgctl", "cg_sim", "cg_recorderd"):
        if not (BUILD / "bin" / name).exists():
            pytest.exit(f"{BUILD / 'bin' / name} is not built; set APP_CG_BUILD or run ./test", returncode=2)


@pytest.fixture
def rig():
    """A store server and a view, with no daemon started yet."""
    rig = Rig()
    yield rig
    rig.close()


@pytest.fixture
def master(rig):
    """A device that holds the global master role, with the modules m1 and m2 and a running daemon."""
    rig.start_master("m1", "m2")
    return rig


@pytest.fixture
def recorder(rig):
    """A recorder that is not started yet, on the rig's store."""
    recorder = Recorder(rig)
    yield recorder
    recorder.end(signal.SIGKILL)


@pytest.fixture
def runner(rig):
    """Starts `cgctl module run NAME` with a command; all are stopped at the end."""
    started = []

    def start(name, *command, options=()):
        started.append(rig.cgctl.start("module", "run", name, *options, "--", *command))
        return started[-1]

    yield start
    for process in started:
        programs.stop(process)
