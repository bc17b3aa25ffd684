"""Keeps the daemon running as its service unit does: whatever it ends with but 0, it is started again.

Only the pause between two starts is left out. The statuses are kept: which of them are right is the test's affair.
"""
import signal
import threading

START_AFRESH = 77
NO_STORE = 256 - 110  # nobody was master for the whole deadline, just when it was started
KILLED = 128 + 9  # as bubblewrap reports it


class Supervisor:
    """Runs `daemon` until closed; a context manager. Calls `before_start`, if given, before each further start."""

    def __init__(self, daemon, before_start=lambda: None):
        self.daemon = daemon
        self._before_start = before_start
        self.ends = []  # the statuses it ended with
        self._closing = threading.Event()
        self._thread = None

    def __enter__(self):
        self.daemon.start()
        self._thread = threading.Thread(target=self._watch, daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._closing.set()
        self._thread.join(20)
        if self.daemon.is_running:
            self.daemon.stop()

    def _watch(self):
        while not self._closing.wait(0.005):
            if not self.daemon.is_running:
                status = self.daemon.wait()
                if status != 0:
                    self._before_start()
                # Whoever sees the restart counted sees what was done before it too.
                self.ends.append(status)
                if status == 0:
                    return
                self.daemon.start()

    def kill(self):
        """Ends the daemon for good, as a power cut would."""
        self._closing.set()
        self._thread.join(20)
        self.daemon.signal(signal.SIGKILL)
        self.daemon.wait()

    @property
    def restarts(self):
        """How often it was started again."""
        return len(self.ends)
