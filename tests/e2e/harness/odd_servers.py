"""Servers of our own for what no well-behaved server does: silence, resets, garbage, chosen statuses, slow scripts."""

from __future__ import annotations

import base64
import re
import socket
import socketserver
import struct
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass
from weakref import WeakKeyDictionary

from harness.ntlm import TYPE_1, Examiner, message_type
from harness.servers import SERVER_PASSWORD, SERVER_USER, Server

HOSTILE_MARKUP = """</style></title></svg>'"><script>document.title="taken"</script><img src=x onerror=alert(1)>"""
"""What must be shown as it is, and never become part of a page."""


@dataclass(frozen=True)
class Request:
    """The head of a request."""

    method: str
    target: str
    headers: dict[str, str]

    @property
    def path(self) -> str:
        """The target's path, whether the request came to a server ("/ok") or to a proxy ("http://host/ok")."""
        return re.sub(r"^[a-z]+://[^/]*", "", self.target) or "/"


Connection = socket.socket
Behaviour = Callable[[Request, Connection], str]
"""Answers a request, in whatever way, and says for the access log what it did."""


def read_request(connection: Connection) -> Request | None:
    """Reads a request's head; nothing if the peer closes before it is complete."""
    head = b""
    while b"\r\n\r\n" not in head:
        received = connection.recv(65536)
        if not received:
            return None
        head += received
    first, *others = head.split(b"\r\n\r\n")[0].decode("latin-1").split("\r\n")
    method, target, *_ = first.split(" ")
    fields = (line.partition(":") for line in others)
    return Request(method, target, {name.strip().lower(): value.strip() for name, _, value in fields})


class _Listener(socketserver.ThreadingTCPServer):
    daemon_threads = True
    # Connections that are answered with silence would otherwise keep the runner from ending.
    block_on_close = False
    request_queue_size = 64


class OddServer(Server):
    """A listener on one port that treats every request in one way."""

    def __init__(self, name: str, behaviour: Behaviour) -> None:
        self.name = name
        self.ports = {}
        self._behaviour = behaviour
        self._listener: _Listener | None = None
        self._lock = threading.Lock()
        self._log: list[str] = []

    def start(self) -> None:
        owner = self

        class Handler(socketserver.BaseRequestHandler):
            def handle(self) -> None:
                owner.serve(self.request)

        self._listener = _Listener(("127.0.0.1", 0), Handler)
        self.ports = {self.name: self._listener.server_address[1]}
        threading.Thread(target=self._listener.serve_forever, args=(0.05,), daemon=True).start()

    def serve(self, connection: Connection) -> None:
        """Serves the requests of one connection; each behaviour but a plain answer ends it."""
        try:
            while (request := read_request(connection)) is not None:
                with self._lock:
                    place = len(self._log)
                    self._log.append(f"{request.method} {request.target}")
                done = self._behaviour(request, connection)
                with self._lock:
                    # The log is cut when the next scenario begins, which may be while this answer is under way.
                    if place < len(self._log):
                        self._log[place] += f" {done}"
        except OSError:
            # The peer has gone; what it saw until then is the tool's transcript's business.
            pass

    def stop(self) -> None:
        if self._listener is not None:
            self._listener.shutdown()
            self._listener.server_close()
            self._listener = None

    def mark(self) -> None:
        with self._lock:
            self._log.clear()

    def accesses(self) -> list[str]:
        with self._lock:
            return list(self._log)


class DeadServer(Server):
    """A port that refuses connections, and that nobody else can get while it does."""

    def __init__(self, name: str) -> None:
        self.name = name
        self.ports = {}
        self._reserved: socket.socket | None = None

    def start(self) -> None:
        # Bound without listening: taken, and refusing.
        self._reserved = socket.socket()
        self._reserved.bind(("127.0.0.1", 0))
        self.ports = {self.name: self._reserved.getsockname()[1]}

    def stop(self) -> None:
        if self._reserved is not None:
            self._reserved.close()
            self._reserved = None

    def mark(self) -> None:
        pass

    def accesses(self) -> list[str]:
        return []


def answer(connection: Connection, status: str, *headers: str, body: bytes = b"", head_only: bool = False) -> str:
    """Sends a response; `status` is code and reason. Returns the code for the access log."""
    lines = [f"HTTP/1.1 {status}", *headers, f"Content-Length: {len(body)}", "", ""]
    connection.sendall("\r\n".join(lines).encode("latin-1") + (b"" if head_only else body))
    return status.split(" ")[0]


def silent(_: Request, connection: Connection) -> str:
    """Accepts the request and never says anything."""
    while connection.recv(4096):
        pass
    return "(silence)"


def resets(_: Request, connection: Connection) -> str:
    """Resets the connection instead of answering."""
    # Not before the peer waits for the answer: what it is told otherwise depends on who was faster.
    time.sleep(0.3)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()
    return "(reset)"


def garbage(_: Request, connection: Connection) -> str:
    """Answers with something that is not HTTP."""
    connection.sendall(b"\x16\x03\x01 220 mail.test ESMTP ready\r\n" * 3)
    connection.close()
    return "(garbage)"


def bad_status_line(_: Request, connection: Connection) -> str:
    """Answers with something that begins like HTTP."""
    connection.sendall(b"HTTP/1.1 banana\r\n\r\n")
    connection.close()
    return "(bad status line)"


def bad_gateway(_: Request, connection: Connection) -> str:
    """A proxy that cannot reach the server."""
    return answer(connection, "502 Bad Gateway")


def bare_407(_: Request, connection: Connection) -> str:
    """A proxy that wants authentication and does not say which."""
    return answer(connection, "407 Proxy Authentication Required")


def stubborn_407(_: Request, connection: Connection) -> str:
    """A proxy that no credentials satisfy."""
    return answer(connection, "407 Proxy Authentication Required", 'Proxy-Authenticate: Basic realm="never"')


def huge_headers(_: Request, connection: Connection) -> str:
    """A success behind 64 KiB of headers."""
    return answer(connection, "200 OK", *(f"X-Filler-{number:02}: {'x' * 1006}" for number in range(64)))


def markup(_: Request, connection: Connection) -> str:
    """A proxy whose refusal would be a script, an image and an end of all styles to whoever believes it."""
    return answer(connection, "403 Forbidden", f"X-Hostile: {HOSTILE_MARKUP}", "X-Entities: &lt;b&gt; &amp; ]]>")


class OddWeb:
    """A web server whose path says what happens: /status/CODE, /challenge/SCHEME, /portal, /slow/… and /huge/script.pac.

    Negotiate is carried out, with NTLM, which belongs to a connection; of Basic any password is right.
    """

    def __init__(self, script_delay: float = 3.0, script_size: int = 5 * 1024 * 1024) -> None:
        self.script = ""
        self._examiners: WeakKeyDictionary[Connection, Examiner] = WeakKeyDictionary()
        self._script_delay = script_delay
        self._script_size = script_size

    def __call__(self, request: Request, connection: Connection) -> str:
        _, kind, *rest = request.path.split("/")
        subject = rest[0] if rest else ""
        if kind == "status" and subject.isdigit():
            return self._status(subject, connection)
        if kind == "challenge":
            return self._challenge(subject, request, connection)
        if kind == "portal":
            # A guest network that has its own page in place of what was asked for.
            return answer(connection, "302 Found", f"Location: http://127.0.0.1:{connection.getsockname()[1]}/status/200")
        if kind == "slow":
            time.sleep(self._script_delay)
            return self._serve_script(self.script, request, connection)
        if kind == "huge":
            # A comment in front, so that the engine has to read all of it before it meets the function.
            filler = ("//" + "x" * 1021 + "\n") * (self._script_size // 1024)
            return self._serve_script(filler + self.script, request, connection)
        return answer(connection, "404 Not Found")

    @staticmethod
    def _status(code: str, connection: Connection) -> str:
        location = ["Location: /status/200"] if code in ("301", "302") else []
        return answer(connection, f"{code} As Asked", *location)

    def _challenge(self, subject: str, request: Request, connection: Connection) -> str:
        challenges = {"basic": ['Basic realm="odd"'], "digest": ['Digest realm="odd", nonce="0", qop="auth"'],
                      "ntlm": ["NTLM"], "negotiate": ["Negotiate"], "many": ["Negotiate", 'Basic realm="odd"']}
        offered = challenges.get(subject, [])
        scheme, _, given = request.headers.get("authorization", "").partition(" ")
        done = "401 Unauthorized"
        if scheme == "Negotiate":
            done, offered = self._negotiate(base64.b64decode(given), connection, offered)
        elif scheme == "Basic":
            done = "200 OK"
        said = answer(connection, done, *(f"WWW-Authenticate: {challenge}" for challenge in offered))
        return f"{scheme} {said}".lstrip()

    def _negotiate(self, message: bytes, connection: Connection, offered: list[str]) -> tuple[str, list[str]]:
        """The status and the challenges with which a client's message is answered."""
        examiner = self._examiners.setdefault(connection, Examiner({SERVER_USER: SERVER_PASSWORD}))
        if message_type(message) == TYPE_1:
            return "401 Unauthorized", [f"Negotiate {base64.b64encode(examiner.ask()).decode()}"]
        return ("200 OK", []) if examiner.known_user(message) else ("401 Unauthorized", offered)

    @staticmethod
    def _serve_script(script: str, request: Request, connection: Connection) -> str:
        return answer(connection, "200 OK", "Content-Type: application/x-ns-proxy-autoconfig", body=script.encode(),
                      head_only=request.method == "HEAD")
