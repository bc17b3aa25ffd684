"""A bare Debian, booted from a copy of the tree, with a network of its own that leads nowhere.

systemd-nspawn and not a chroot with a manager of our own: what is looked at is what systemd makes of the units.
Commands are run by nsenter, so that the tree needs neither a message bus nor a login.
"""
import pathlib
import shutil
import subprocess
import sys
import textwrap

_ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(_ROOT / "tools"))

from demo import programs  # noqa: E402  (needs the path above)
from layer import Layer  # noqa: E402

TREE = _ROOT / "build" / "packages-test" / "tree"
PACKAGES = _ROOT / "build" / "packages"
NAMES = sorted(package.name.split("_")[0] for package in PACKAGES.glob("*.deb"))


class Device:
    """A booted copy of the tree, with a store server, that forgets everything when it restarts."""

    def __init__(self, folder):
        self._layer = Layer(TREE, folder)
        self.root = self._layer.root
        self._log = folder / "console.log"
        with open(self.root / "etc/redis/redis.conf", "a", encoding="utf-8") as conf:
            conf.write('databases 64\nsave ""\n')
        for package in PACKAGES.glob("*.deb"):
            shutil.copy(package, self.root / "srv")
        self._nspawn = None
        self._leader = None

    def boot(self):
        """Starts the tree's systemd and waits until its store server answers."""
        with open(self._log, "wb") as log:
            self._nspawn = programs.start(
                ["systemd-nspawn", "--quiet", "--directory", self.root, "--register=no", "--keep-unit",
                 "--private-network", "--console=read-only", "--boot"], stdout=log, stderr=log)
        programs.wait_until(self._answers, 60, "the tree boots and its store server answers")

    def _answers(self):
        if self._nspawn.poll() is not None:
            raise RuntimeError(f"systemd-nspawn ended: {self._log.read_text(errors='replace')}")
        # Processes of systemd-nspawn come and go before it settles on the process that is the tree's first.
        children = pathlib.Path(f"/proc/{self._nspawn.pid}/task/{self._nspawn.pid}/children").read_text().split()
        self._leader = children[0] if children else None
        return self._leader and "PONG" in self.run("redis-cli", "ping", check=False)

    def close(self):
        """Ends it, and removes the copy."""
        programs.stop(self._nspawn, 30)
        self._layer.close()

    def run(self, *argv, check=True, status=None):
        """Runs a command on the device. Returns what it printed; with `status`, it has to end with that one."""
        done = subprocess.run(["nsenter", "--target", self._leader, "--all", *argv], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120, check=False)
        if status is not None or check:
            assert done.returncode == (status or 0), f"{argv} ended with {done.returncode}: {done.stdout}"
        return done.stdout

    def sh(self, script):
        """Runs lines of shell on the device."""
        return self.run("sh", "-euc", script)

    def install(self):
        """Installs the packages, without a network."""
        return self.sh("DEBIAN_FRONTEND=noninteractive dpkg -i /srv/*.deb")

    def purge(self):
        """Removes the packages and what belongs to them."""
        return self.run("dpkg", "--purge", *NAMES)

    def manual(self, first, lines=None):
        """What README.Debian shows, from the line that begins so: to the next empty line, or so many lines."""
        text = self.run("cat", "/usr/share/doc/app-cg/README.Debian")
        shown = text[text.index(f"    {first}"):]
        return textwrap.dedent(shown.split("\n\n")[0] if lines is None else "\n".join(shown.splitlines()[:lines]))

    def cgctl(self, *argv):
        """Runs cgctl."""
        return self.run("cgctl", *argv)

    def metrics(self):
        """What the recorder tells Prometheus. There is no client in the tree, so bash is one."""
        return self.run("bash", "-c", "exec 3<>/dev/tcp/127.0.0.1/9717 && "
                        "printf 'GET /metrics HTTP/1.0\\r\\n\\r\\n' >&3 && cat <&3", check=False)

    def unit(self, name, what):
        """A property of a unit."""
        return self.run("systemctl", "show", "--value", "-p", what, name).strip()

    def state(self, name="app_cg.service"):
        """A unit's ActiveState."""
        return self.unit(name, "ActiveState")

    def pid(self, name="app_cg.service"):
        """A service's process id on the device; "0" when there is none. The daemon's, unless said."""
        return self.unit(name, "MainPID")

    def journal(self, *argv):
        """The lines of the system log that journalctl picks out."""
        self.run("journalctl", "--sync")
        return self.run("journalctl", "--quiet", "--no-pager", *argv)

    def wait(self, condition, what, seconds=30):
        """Waits for a condition; when it does not come true, shows what the journal says."""
        try:
            return programs.wait_until(condition, seconds, what)
        except programs.NotInTime:
            print(self.run("journalctl", "--no-pager", "-n", "80", check=False))
            raise

    def wait_active(self, other_than="0", name="app_cg.service"):
        """Waits for the daemon, or another service, to serve, as another process than `other_than`. Returns its
        process id."""
        return self.wait(lambda: self.state(name) == "active" and self.pid(name) not in ("0", other_than)
                         and self.pid(name), f"{name} is up")

    def module(self, name, *command):
        """Registers a check module that runs a command, and has the daemon know it."""
        self.run("touch", f"/etc/app_cg/deny_check/{name}")
        self.run("systemd-run", "--quiet", f"--unit=module-{name}", "cgctl", "module", "run", name, "--", *command)
        self.run("systemctl", "restart", "app_cg")

    def verdict(self, position):
        """What became of a card: the state in the list's line about it."""
        for line in self.cgctl("list").splitlines():
            if line.startswith(position + " "):
                return line
        return ""
