"""Starts child processes and answers for it that each of them, and nothing else, is stopped in the end."""

from __future__ import annotations

import os
import signal
import socket
import subprocess
import threading
import time
from collections.abc import Mapping, Sequence
from pathlib import Path


class Interrupted(Exception):
    """Something was to be started while everything is being stopped."""


class Processes:
    """The processes that one run has started."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._running: list[subprocess.Popen[bytes]] = []
        self._closed = False

    def start(self, command: Sequence[str], stdout: Path, stderr: Path | None = None,
              environment: Mapping[str, str] | None = None, user: str | None = None,
              stdin: Path | None = None) -> subprocess.Popen[bytes]:
        """Starts a process whose output goes to files: a pipe would stay open in whatever the process leaves behind."""
        with (open(stdout, "ab") as out, open(stderr or stdout, "ab") as err, open(stdin or os.devnull, "rb") as given,
              self._lock):
            if self._closed:
                raise Interrupted
            process = subprocess.Popen(
                command, stdin=given, stdout=out, stderr=err, env=environment, user=user,
                # A Ctrl-C at the terminal reaches the runner alone, which then stops its processes in order.
                start_new_session=True)
            self._running.append(process)
        return process

    def stop(self, process: subprocess.Popen[bytes], patience: float = 3.0) -> None:
        """Asks a process to end, and makes it end if it does not within `patience` seconds."""
        if process.poll() is None:
            process.send_signal(signal.SIGTERM)
            try:
                process.wait(patience)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        with self._lock:
            if process in self._running:
                self._running.remove(process)

    def run(self, command: Sequence[str], stdout: Path, stderr: Path | None = None,
            environment: Mapping[str, str] | None = None, timeout: float = 60.0, stdin: Path | None = None) -> int:
        """Runs a process to its end and returns its exit code; TimeoutExpired if it takes longer than `timeout`."""
        process = self.start(command, stdout, stderr, environment, stdin=stdin)
        try:
            return process.wait(timeout)
        finally:
            self.stop(process, patience=0.5)

    def refuse_more(self) -> None:
        """From now on nothing is started."""
        with self._lock:
            self._closed = True

    def stop_all(self) -> None:
        """Stops what still runs, last started first."""
        self.refuse_more()
        with self._lock:
            left = list(reversed(self._running))
        for process in left:
            self.stop(process)


def clean_environment(**additions: str) -> dict[str, str]:
    """A child's environment that does not depend on the caller's: above all, without its proxy variables."""
    return {"PATH": os.environ.get("PATH", os.defpath), "LANG": "C.UTF-8", "TZ": "UTC", **additions}


def free_port() -> int:
    """A loopback port that nothing listened on a moment ago."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


def wait_until_listening(process: subprocess.Popen[bytes], port: int, address: str = "127.0.0.1",
                         patience: float = 20.0) -> bool:
    """Waits until `process` accepts connections on `port`; false if it ended instead."""
    deadline = time.monotonic() + patience
    while time.monotonic() < deadline:
        if process.poll() is not None:
            return False
        try:
            socket.create_connection((address, port), timeout=1).close()
            return True
        except OSError:
            time.sleep(0.02)
    raise TimeoutError(f"{process.args!r} did not listen within {patience:.0f} s")
