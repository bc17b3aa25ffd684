"""The two components of the kit, installed into a folder of one's own, and the settings that lead a build there."""

import argparse
import os
import pathlib
import shlex
import subprocess
import sys
import unittest


def run(*command, **more):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **more)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command))}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


class InstalledKit:
    """Below `folder`, moved there after its installation: no path in it may be one of the installation's."""

    def __init__(self, build, folder):
        for component in ("kit", "kit_dev"):
            run("cmake", "--install", build, "--component", component, "--prefix", folder / "first")
        self.tree = folder / "installed"
        (folder / "first").rename(self.tree)
        self.libraries = next(self.tree.rglob("libapp_cg_kit.so.0")).parent
        self.environment = {**os.environ, "LD_LIBRARY_PATH": str(self.libraries),
                            "PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")}


def main(options, *names):
    """The test program: these options, those of the compilers, and what is in the calling module."""
    parser = argparse.ArgumentParser()
    for name in (*names, "cc", "cxx"):
        parser.add_argument(f"--{name}", required=True)
    for name in ("cflags", "cxxflags"):
        parser.add_argument(f"--{name}", default="")
    parser.parse_args(namespace=options)
    for name in ("source", "build"):
        if name in names:
            setattr(options, name, pathlib.Path(getattr(options, name)))
    unittest.main(argv=sys.argv[:1], verbosity=2)
