"""Certificates that openssl makes for a run: servers' own, and those of authorities that sign others."""

from __future__ import annotations

import ssl
import subprocess
from pathlib import Path


def make_certificate(certificate: Path, key: Path, subject: str, *extensions: str) -> None:
    """Makes a key, and a certificate signed by it that is valid for two days."""
    added = [argument for extension in extensions for argument in ("-addext", extension)]
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", subject, *added,
                    "-keyout", str(key), "-out", str(certificate)], check=True, capture_output=True)


def der_of(certificate: Path) -> bytes:
    """The certificate in a file, in the form that Windows keeps."""
    return ssl.PEM_cert_to_DER_cert(certificate.read_text())
