"""Fixtures of the system tests."""
import pathlib
import sys

import pytest

# The pieces that start real programs privately are shared with the demonstration.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools"))

from rig import BUILD, Rig  # noqa: E402  (needs the path above)


def pytest_sessionstart(session):
    """Without the binaries no test can say anything."""
    for name in ("app_cg", "cgctl", "cg_recorderd"):
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
    rig.modules("m1", "m2")
    rig.role("master")
    rig.start()
    return rig
