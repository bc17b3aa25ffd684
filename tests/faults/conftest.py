"""Options and fixtures of the fault tests."""
import os
import pathlib
import sys

import pytest

_HERE = pathlib.Path(__file__).resolve().parent
# The device under test is the system tests', and theirs is built of the demonstration's pieces.
sys.path[:0] = [str(_HERE), str(_HERE.parents[1] / "tools"), str(_HERE.parent / "system")]

from rig import BUILD, Rig  # noqa: E402  (needs the path above)


def pytest_addoption(parser):
    """How much, and which random decisions."""
    parser.addoption("--long", action="store_true", help="every fault, and as many changes and cards as promised")
    parser.addoption("--seed", type=int, default=20240501, help="of every random decision")


def pytest_sessionstart(session):
    """Without the binaries no test can say anything."""
    for name in ("bin/app_cg", "bin/cgctl", "bin/cg_sim", "tests/fault_subscriber"):
        if not (BUILD / name).exists():
            pytest.exit(f"{BUILD / name} is not built; set APP_CG_BUILD or run tests/faults/run", returncode=2)


@pytest.fixture
def is_long(request):
    """Whether the full length is asked for."""
    return request.config.getoption("--long")


@pytest.fixture
def seed(request):
    """The seed of this run; a failing test shows it."""
    value = request.config.getoption("--seed")
    print(f"seed {value}")
    return value


@pytest.fixture
def progress(request, is_long):
    """Says how far a test is: progress(text). Silent in the short form, which is over soon."""
    def say(text):
        if is_long:
            os.write(2, f"{request.node.name}: {text}\n".encode())
    return say


@pytest.fixture
def rig():
    """A store server and a view, with no daemon started yet."""
    rig = Rig()
    yield rig
    rig.close()
