"""A device's way to the group of the stack: its programs reach servers and sentinels through here, and it can be cut.

Sentinels name servers by their ports, so in what they answer each port is replaced by ours. Cutting by means of
the kernel was rejected: a namespace or a filter for one device is not for ordinary users, and stopping the
servers would strike all devices.
"""
import contextlib
import socket
import threading

from demo.group import endpoint_of, free_ports
from demo.resp import Messages


class _Door:
    """A port of ours that leads to one of the group."""

    def __init__(self, gateway, target):
        self._gateway = gateway
        self._target = target
        self._lock = threading.Lock()
        self._ends = set()  # of the connections there are, both sockets of each
        self._accepting = None
        self._listener = socket.socket()
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        # By its number: only a port that was asked for stays ours while nobody listens on it.
        [self.port] = free_ports(1)
        self._listener.bind(("127.0.0.1", self.port))

    def open(self):
        """Accepts connections from now on."""
        self._listener.listen(64)
        self._accepting = threading.Thread(target=self._accept, daemon=True)
        self._accepting.start()

    def shut(self):
        """Refuses connections from now on, and ends those there are."""
        if self._accepting is not None:
            self._listener.shutdown(socket.SHUT_RDWR)
            self._accepting.join(20)
            self._accepting = None
        with self._lock:
            for end in self._ends:
                _end(end)

    def close(self):
        """The same, for good."""
        self.shut()
        self._listener.close()

    def _accept(self):
        with contextlib.suppress(OSError):  # it was shut
            while True:
                client, _ = self._listener.accept()
                try:
                    server = socket.create_connection(("127.0.0.1", self._target), 5)
                except OSError:
                    client.close()
                    continue
                server.settimeout(None)
                with self._lock:
                    self._ends |= {client, server}
                threading.Thread(target=self._serve, args=(client, server), daemon=True).start()

    def _serve(self, client, server):
        back = threading.Thread(target=self._pass_on, args=(server, client, self._gateway.renaming()), daemon=True)
        back.start()
        self._pass_on(client, server, bytes)
        back.join()
        with self._lock:
            self._ends -= {client, server}
        client.close()
        server.close()

    def _pass_on(self, source, target, changed):
        """Passes on what comes, as `changed` makes it, until an end closes."""
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                if not self._gateway.is_silent:
                    target.sendall(changed(data))
        _end(source)
        _end(target)


def _end(connection):
    with contextlib.suppress(OSError):
        connection.shutdown(socket.SHUT_RDWR)


class Gateway:
    """See above; open until it is cut or closed."""

    def __init__(self, group):
        self.is_silent = False
        self._doors = {server.port: _Door(self, server.port) for server in (*group.servers, *group.sentinels)}
        self.endpoint = endpoint_of(self._doors[sentinel.port].port for sentinel in group.sentinels)
        for door in self._doors.values():
            door.open()

    def renaming(self):
        """A function for one connection: from the bytes that come it makes those to pass on, with our ports in them."""
        messages = Messages()

        def renamed(data):
            messages.feed(data)
            whole = b""
            while (message := messages.take()) is not None:
                whole += message[0]
            for port, door in self._doors.items():
                whole = whole.replace(_bulk(port), _bulk(door.port))
            return whole
        return renamed

    def cut(self, silent=False):
        """Ends all connections and refuses new ones; or, if `silent`, lets what is sent vanish."""
        if silent:
            self.is_silent = True
        else:
            self._shut()

    def join(self):
        """Takes the cut back. Connections on which something vanished are ended."""
        self._shut()
        self.is_silent = False
        for door in self._doors.values():
            door.open()

    def _shut(self):
        for door in self._doors.values():
            door.shut()

    def close(self):
        """Ends everything."""
        for door in self._doors.values():
            door.close()


def _bulk(number):
    """A number as the text that it is in an answer."""
    text = str(number).encode()
    return b"$%d\r\n%s\r\n" % (len(text), text)
