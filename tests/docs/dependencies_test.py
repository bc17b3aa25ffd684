"""The README names every package that the scripts install, and why, and none besides."""
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def installed():
    """The packages in the lists of scripts/deps.sh."""
    text = (ROOT / "scripts" / "deps.sh").read_text(encoding="utf-8")
    return {name for body in re.findall(r"^ +deps_\w+=\(([^)]*)\)", text, re.MULTILINE) for name in body.split()}


def described():
    """{package: why} of the README's table."""
    section = (ROOT / "README.md").read_text(encoding="utf-8").split("## Dependencies")[1].split("\n## ")[0]
    rows = re.findall(r"^\| (`.*?`) \| (.*) \|$", section, re.MULTILINE)
    return {name: why for names, why in rows for name in re.findall(r"`([^`]+)`", names)}


class DependenciesTest(unittest.TestCase):
    def test_each_is_described_and_none_besides(self):
        # What the scripts of the packages and of the builds for other machines install, and what is not installed by any.
        others = set(re.findall(r"[a-z0-9-]+", "dpkg-dev lintian debootstrap systemd-container valkey-tools qemu-user "
                                               "crossbuild-essential-arm64 crossbuild-essential-s390x"))
        self.assertEqual(set(described()) - others, installed())

    def test_each_has_a_reason(self):
        for name, why in described().items():
            self.assertGreater(len(why.split()), 1, name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
