"""A proxy that inspects TLS: it answers in the place of every server, with certificates of its own authority."""

from __future__ import annotations

import socket
import ssl
import subprocess
from pathlib import Path

from harness.odd_servers import OddServer, Request, answer, read_request

AUTHORITY_NAME = "/O=Example/CN=Example inspection"


def der_of(certificate: Path) -> bytes:
    """The certificate in a file, in the form that Windows keeps."""
    return ssl.PEM_cert_to_DER_cert(certificate.read_text())


class Inspector(OddServer):
    """One port. Whatever is asked for over TLS is there, and nothing is sent on."""

    def __init__(self, name: str, folder: Path) -> None:
        super().__init__(name, self._inspect)
        self.certificate = folder / "authority.pem"
        self._folder = folder
        self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        # Wine does not speak TLS 1.3.
        self._context.maximum_version = ssl.TLSVersion.TLSv1_2

    def start(self) -> None:
        self._folder.mkdir(parents=True, exist_ok=True)
        key, request, leaf = (str(self._folder / name) for name in ("key.pem", "request.pem", "leaf.pem"))
        (self._folder / "names").write_text("subjectAltName=DNS:localhost\n")
        for command in (
                ["req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", AUTHORITY_NAME, "-keyout", key,
                 "-out", str(self.certificate)],
                ["req", "-new", "-key", key, "-subj", "/CN=localhost", "-out", request],
                ["x509", "-req", "-in", request, "-CA", str(self.certificate), "-CAkey", key, "-set_serial", "7",
                 "-days", "2", "-extfile", str(self._folder / "names"), "-out", leaf]):
            subprocess.run(["openssl", *command], check=True, capture_output=True)
        self._context.load_cert_chain(leaf, key)
        super().start()

    def _inspect(self, request: Request, connection: socket.socket) -> str:
        if request.method != "CONNECT":
            return answer(connection, "403 Forbidden")
        connection.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")
        with self._context.wrap_socket(connection, server_side=True) as inspected:
            inner = read_request(inspected)
            if inner is None:
                return "(nothing inside)"
            return f"({inner.method} {inner.target} {answer(inspected, '200 OK')} inside)"
