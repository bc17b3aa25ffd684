"""Fixtures of the packages' tests."""
import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

from device import TREE, Device  # noqa: E402  (needs the path above)


def pytest_sessionstart(session):
    """Without the tree and without root no test can say anything."""
    if os.geteuid() != 0 or not TREE.is_dir():
        pytest.exit("run tests/packages/run, as root", returncode=2)


@pytest.fixture
def bare(tmp_path):
    """A booted device without the packages."""
    device = Device(tmp_path)
    try:
        device.boot()
        yield device
    finally:
        device.close()


@pytest.fixture
def device(bare):
    """A booted device with the packages installed and the service up."""
    bare.install()
    bare.wait_active()
    return bare
