"""Proxies and targets of our own that count what they are asked, and some that are asked in vain."""

from __future__ import annotations

import base64
import contextlib
import socket
import struct
import threading
import time
from collections.abc import Callable
from types import TracebackType

from harness.odd_servers import Behaviour, Connection, OddServer, Request, answer


def plain_ok(_: Request, connection: Connection) -> str:
    """A proxy that reaches every target, whatever its name."""
    return answer(connection, "200 OK", head_only=True)


def status(code: int) -> Behaviour:
    """A proxy that answers with this status."""
    return lambda _, connection: answer(connection, f"{code} As Asked", head_only=True)


def portal(_: Request, connection: Connection) -> str:
    """A hotel's network, which sends everybody to its own page."""
    return answer(connection, "302 Found", "Location: http://portal.test/login", head_only=True)


def late(seconds: float) -> Behaviour:
    """Answers well, and late."""
    def behaviour(_: Request, connection: Connection) -> str:
        time.sleep(seconds)
        return answer(connection, "200 OK", head_only=True)

    return behaviour


def basic(user: str, password: str) -> Behaviour:
    """A proxy that wants a password, and logs with what it was asked."""
    right = "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()

    def behaviour(request: Request, connection: Connection) -> str:
        given = request.headers.get("proxy-authorization")
        if given == right:
            return "right " + answer(connection, "200 OK", head_only=True)
        done = answer(connection, "407 Proxy Authentication Required", 'Proxy-Authenticate: Basic realm="gate"',
                      head_only=True)
        return f"{'wrong' if given else 'nothing'} {done}"

    return behaviour


class Started:
    """Something that serves on one port as long as a with statement lasts."""

    port: int

    def __enter__(self) -> Started:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.stop()

    def stop(self) -> None:
        raise NotImplementedError


class Odd(Started):
    """A proxy or target of the behaviours above; `lines` are the requests and what became of them."""

    def __init__(self, behaviour: Behaviour) -> None:
        self._server = OddServer("odd", behaviour)
        self._server.start()
        self.port = self._server.ports["odd"]

    @property
    def lines(self) -> list[str]:
        return self._server.accesses()

    def stop(self) -> None:
        self._server.stop()


class Listening(Started):
    """Accepts connections and hands them to a function, each on a thread; counts them."""

    def __init__(self, serve: Callable[[socket.socket], None]) -> None:
        self.connections = 0
        self._serve = serve
        self._listener = socket.create_server(("127.0.0.1", 0), backlog=128)
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self) -> None:
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listener.accept()
                self.connections += 1
                threading.Thread(target=self._run, args=(connection,), daemon=True).start()

    def _run(self, connection: socket.socket) -> None:
        with connection, contextlib.suppress(OSError, ValueError, struct.error):
            self._serve(connection)

    def stop(self) -> None:
        # Closing alone does not wake a thread that waits in accept.
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()


def say_nothing(connection: socket.socket) -> None:
    """Reads until the peer has gone."""
    while connection.recv(4096):
        pass


def living_proxy(connection: socket.socket) -> None:
    """Answers each request with success."""
    received = b""
    while more := connection.recv(4096):
        received += more
        while b"\r\n\r\n" in received:
            received = received.partition(b"\r\n\r\n")[2]
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")


class FullBacklog(Started):
    """A port that lets nobody connect, and refuses nobody: its queue of connections is full."""

    def __init__(self) -> None:
        self._listener = socket.socket()
        self._listener.bind(("127.0.0.1", 0))
        self._listener.listen(0)
        self.port = self._listener.getsockname()[1]
        self._fillers = []
        for _ in range(4):
            filler = socket.socket()
            filler.setblocking(False)
            filler.connect_ex(("127.0.0.1", self.port))
            self._fillers.append(filler)

    def stop(self) -> None:
        for used in (*self._fillers, self._listener):
            used.close()


class Socks(Started):
    """A SOCKS 4a and 5 proxy that connects nobody to anything, and says that it has."""

    def __init__(self, login: tuple[str, str] | None = None, granted: bool = True) -> None:
        self.targets: list[str] = []
        self._login = login
        self._granted = granted
        self._listening = Listening(self._serve)
        self.port = self._listening.port

    def stop(self) -> None:
        self._listening.stop()

    def _serve(self, connection: socket.socket) -> None:
        stream = connection.makefile("rwb")

        def say(data: bytes) -> None:
            stream.write(data)
            stream.flush()

        version = stream.read(1)[0]
        if version == 4:
            self._socks4(stream, say)
        elif version == 5:
            self._socks5(stream, say)
        say_nothing(connection)

    def _socks4(self, stream: socket.SocketIO, say: Callable[[bytes], None]) -> None:
        _, port, address = struct.unpack("!BH4s", stream.read(7))
        self._text(stream)
        host = self._text(stream) if address[:3] == bytes(3) else socket.inet_ntoa(address)
        self.targets.append(f"socks4 {host}:{port}")
        say(struct.pack("!BBHI", 0, 90 if self._granted else 91, 0, 0))

    def _socks5(self, stream: socket.SocketIO, say: Callable[[bytes], None]) -> None:
        methods = stream.read(stream.read(1)[0])
        wanted = 2 if self._login else 0
        if wanted not in methods:
            say(b"\x05\xff")
            return
        say(bytes((5, wanted)))
        if self._login and not self._logged_in(stream, say):
            return
        _, _, _, kind = stream.read(4)
        host = (stream.read(stream.read(1)[0]).decode() if kind == 3
                else socket.inet_ntop(socket.AF_INET if kind == 1 else socket.AF_INET6, stream.read(4 if kind == 1 else 16)))
        (port,) = struct.unpack("!H", stream.read(2))
        self.targets.append(f"socks5 {host}:{port}")
        say(struct.pack("!BBBBIH", 5, 0 if self._granted else 4, 0, 1, 0, 0))

    def _logged_in(self, stream: socket.SocketIO, say: Callable[[bytes], None]) -> bool:
        stream.read(1)
        given = tuple(stream.read(stream.read(1)[0]).decode() for _ in range(2))
        say(bytes((1, 0 if given == self._login else 1)))
        return given == self._login

    @staticmethod
    def _text(stream: socket.SocketIO) -> str:
        text = b""
        while (character := stream.read(1)) not in (b"\0", b""):
            text += character
        return text.decode()
