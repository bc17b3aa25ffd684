"""The other end of /dev/log: reads what a program writes to the system log."""
import re
import socket
import threading

_LINE = re.compile(rb"^<(\d+)>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d (.*)$", re.DOTALL)


class SystemLog:
    """Receives every record of the socket on a thread of its own, until closed."""

    def __init__(self, path, on_line=None):
        """Listens on `path`; calls on_line(severity, text), if given, on the receiving thread."""
        self._on_line = on_line
        self._lines = []
        self._may_read = threading.Event()
        self._may_read.set()
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(path))
        self._thread = threading.Thread(target=self._receive, daemon=True)
        self._thread.start()

    def _receive(self):
        while True:
            record = self._socket.recv(1 << 20)
            if not record:
                return
            self._may_read.wait()
            match = _LINE.match(record)
            severity = int(match.group(1)) & 7 if match else None
            text = (match.group(2) if match else record).decode("utf-8", "replace").rstrip("\0")
            self._lines.append((severity, text))
            if self._on_line:
                self._on_line(severity, text)

    def lines(self):
        """All records so far: (severity, text) each, in the order of arrival."""
        return list(self._lines)

    def hold(self):
        """Reads nothing more, but for one record, until release()."""
        self._may_read.clear()

    def release(self):
        """Reads on."""
        self._may_read.set()

    def close(self):
        """Stops receiving."""
        self.release()
        self._socket.shutdown(socket.SHUT_RD)
        self._thread.join(5)
        self._socket.close()
