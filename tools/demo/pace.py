"""How long something did not go on that should have: a count is watched, and the moments at which it changed are kept."""
import threading
import time


class Pace:
    """Watches until closed; a context manager."""

    def __init__(self, count):
        """`count()` is called a hundred times a second; None while it cannot be known."""
        self._count = count
        self._changes = []
        self._is_over = threading.Event()
        self._thread = threading.Thread(target=self._watch, daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._is_over.set()
        self._thread.join(20)

    def _watch(self):
        known = None
        while not self._is_over.wait(0.01):
            count = self._count()
            if count is not None and count != known:
                known = count
                self._changes.append(time.monotonic())

    def longest_after(self, moment):
        """The longest time from that moment on in which nothing changed; infinite when nothing did any more."""
        times = [moment, *(when for when in self._changes if when > moment)]
        return max((later - earlier for earlier, later in zip(times, times[1:])), default=float("inf"))
