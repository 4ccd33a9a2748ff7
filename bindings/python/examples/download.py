"""Saves a file as an updater does: through whatever proxy the session decides for, once more by another route if one
fails, and never half a file.

    python download.py [--user NAME --password-file FILE] URL FILE
"""

from __future__ import annotations

import argparse
import sys
import tempfile
import time
from pathlib import Path

import requests

import kiv
from kiv.adapter import KivAdapter

ATTEMPTS = 3


class Login:
    """Answers a proxy's first question from the command line. A program with a window shows a dialog."""

    def __init__(self, user: str, password_file: str) -> None:
        self.user = user
        self.password_file = password_file

    def __call__(self, challenge: kiv.Challenge) -> None:
        if self.user and challenge.attempt == 1:
            challenge.answer(self.user, Path(self.password_file).read_text(encoding="utf-8").rstrip("\r\n"))
        else:
            challenge.decline()


def may_pass(error: requests.RequestException) -> bool:
    """Whether another attempt may succeed: the session has been told what failed, and takes another route."""
    final = isinstance(error.__cause__, (kiv.AuthError, kiv.NoRoute, kiv.Closed))
    return not final and not isinstance(error, requests.HTTPError)


def download(http: requests.Session, url: str, file: Path) -> None:
    """Writes to a file beside the wanted one, which it becomes when it is complete."""
    with http.get(url, stream=True, timeout=30) as response:
        response.raise_for_status()
        descriptor, name = tempfile.mkstemp(dir=file.parent, prefix=f"{file.name}.part")
        part = Path(name)
        try:
            with open(descriptor, "wb") as output:
                for data in response.iter_content(65536):
                    output.write(data)
            part.replace(file)
        finally:
            part.unlink(missing_ok=True)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--user", default="", help="user name for proxies")
    parser.add_argument("--password-file", default="", help="file that holds the password for proxies")
    parser.add_argument("url")
    parser.add_argument("file", type=Path)
    options = parser.parse_args()
    login = Login(options.user, options.password_file)
    with kiv.Session("download/1", on_challenge=login) as session, requests.Session() as http:
        adapter = KivAdapter(session)
        http.mount("https://", adapter)
        http.mount("http://", adapter)
        return attempt_all(http, options.url, options.file)


def attempt_all(http: requests.Session, url: str, file: Path) -> int:
    """The exit code: 0 if one of the attempts was a success."""
    for attempt in range(1, ATTEMPTS + 1):
        try:
            download(http, url, file)
            return 0
        except requests.RequestException as error:
            print(error, file=sys.stderr)
            if not may_pass(error):
                break
        if attempt < ATTEMPTS:
            time.sleep(1)
    return 1


if __name__ == "__main__":
    sys.exit(main())
