"""The daemon, unmodified, in a private view of the file system."""
import contextlib
import glob
import json
import os
import signal
import subprocess

from demo import programs


def faketime_library():
    """Path of the library that scales a program's time; None where it is not installed."""
    found = sorted(glob.glob("/usr/lib/*/faketime/libfaketime.so.1"))
    return found[0] if found else None


def scaled_time(factor):
    """Environment in which a program's clocks run `factor` times as fast."""
    library = faketime_library()
    if library is None:
        raise FileNotFoundError("libfaketime is not installed")
    return {"LD_PRELOAD": library, "FAKETIME": f"+0 x{factor}",
            "NO_FAKE_STAT": "1",
            # AddressSanitizer refuses to start behind another library, for those that replace what it replaces.
            "ASAN_OPTIONS": "verify_asan_link_order=0",
            # The store answers in real time: what is 5 s on the daemon's clock is too short.
            "VX_MOM_DEADLINE_MS": str(5000 * factor)}


class Daemon:
    """One start of the daemon; may be started again after it ended."""

    def __init__(self, program, view, env=None, arguments=()):
        """`env` is added to the daemon's environment; the store is the one of the view by default."""
        self._program = program
        self._arguments = [str(argument) for argument in arguments]
        self.view = view
        self._env = {"VX_MOM_ENDPOINT": "unix:/store/store.sock", "VX_ZLOG": "file:/log/app_cg.log",
                     **(env or {})}
        self._process = None
        self.pid = None
        self._output = view.root / "daemon.out"
        self._errors = view.root / "daemon.err"

    def start(self):
        """Starts it, and returns when its process exists; what it prints goes to a file."""
        reader, writer = os.pipe()
        with open(self._output, "ab") as output, open(self._errors, "ab") as errors:
            self._process = programs.start(
                [*self.view.command(self._program, self._env, writer), *self._arguments], stdout=output, stderr=errors,
                pass_fds=[writer])
        os.close(writer)
        with os.fdopen(reader) as info:
            text = info.read()
        if not text:
            raise RuntimeError(f"bubblewrap could not start the daemon: {self.complained()}")
        self.pid = json.loads(text)["child-pid"]
        return self

    @property
    def is_running(self):
        """Whether the process lives."""
        return self._process is not None and self._process.poll() is None

    def printed(self):
        """What it wrote to standard output since the first start; line ends as they are."""
        return self._output.read_bytes().decode("utf-8", "replace")

    def complained(self):
        """What it wrote to standard error since the first start."""
        return self._errors.read_bytes().decode("utf-8", "replace")

    def logged(self):
        """The bytes of its log."""
        path = self.view.log / "app_cg.log"
        return path.read_bytes() if path.exists() else b""

    def signal(self, signum):
        """Signals the daemon itself: a signal to bubblewrap would end the daemon without its handler."""
        if self.is_running:
            with contextlib.suppress(ProcessLookupError):  # it has just ended by itself, and the view around it not yet
                os.kill(self.pid, signum)

    def wait(self, seconds=20):
        """Waits for its end and returns the exit status."""
        return self._process.wait(seconds)

    def stop(self):
        """Ends it the way a service manager does; by force when it does not hear."""
        if not self.is_running:
            return
        self.signal(signal.SIGTERM)
        try:
            self.wait(10)
        except subprocess.TimeoutExpired:
            self.signal(signal.SIGKILL)
            self.wait()
