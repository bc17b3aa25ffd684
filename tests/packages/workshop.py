"""A bare Debian with a compiler, for what a module's author does. Nothing runs there, so it is not booted."""
import pathlib
import shutil
import subprocess

from device import PACKAGES, TREE
from layer import Layer

TREE_WITH_COMPILER = TREE.with_name("tree-dev")
CONSUMER = pathlib.Path(__file__).resolve().parents[1] / "kit" / "consumer"


class Workshop:
    """A copy of the tree, with the kit and the documents and none else of ours, and a project in /srv/consumer."""

    packages = ("libapp-cg-kit0", "libapp-cg-kit-dev", "app-cg-doc")

    def __init__(self, folder):
        self._layer = Layer(TREE_WITH_COMPILER, folder)
        self.root = self._layer.root
        for name in self.packages:
            shutil.copy(next(PACKAGES.glob(f"{name}_*.deb")), self.root / "srv")
        shutil.copytree(CONSUMER, self.root / "srv/consumer")
        self.sh("dpkg -i /srv/*.deb")

    def sh(self, script):
        """Runs lines of shell there, without a network. Returns what they printed."""
        done = subprocess.run(
            ["systemd-nspawn", "--quiet", "--directory", self.root, "--register=no", "--keep-unit", "--private-network",
             "--pipe", "--setenv=VX_MOM_ENDPOINT=unix:/nowhere", "sh", "-euc", script],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=300,
            check=False)
        assert done.returncode == 0, f"{script}: {done.returncode}: {done.stdout}{done.stderr}"
        return done.stdout

    def close(self):
        """Removes the copy."""
        self._layer.close()
