"""What the demonstration shows: a line per event. Colours only on a terminal."""
import os
import sys
import threading
import time

_COLOURS = {"bad": "31", "notice": "33", "head": "1"}


class Screen:
    """Standard output, written to by several threads, a whole line at a time."""

    def __init__(self, stream=sys.stdout):
        self._stream = stream
        self._lock = threading.Lock()
        self._coloured = stream.isatty() and not os.environ.get("NO_COLOR")

    def _tinted(self, text, tone):
        if not self._coloured or tone not in _COLOURS:
            return text
        return f"\x1b[{_COLOURS[tone]}m{text}\x1b[0m"

    def _write(self, text):
        with self._lock:
            try:
                print(text, file=self._stream, flush=True)
            except BrokenPipeError:
                pass  # nobody reads any more; what runs is stopped all the same

    def heading(self, text):
        """A line of its own weight."""
        self._write(self._tinted(f"== {text}", "head"))

    def say(self, text="", tone=""):
        """A line."""
        self._write(self._tinted(text, tone))

    def event(self, card, text, tone=""):
        """What happened to a card, now. `card` is its position, or empty for the chassis."""
        now = time.time()
        clock = time.strftime("%H:%M:%S", time.localtime(now)) + f".{int(now * 10) % 10}"
        self._write(f"{clock}  {card or 'chassis':<8} {self._tinted(text, tone)}")
