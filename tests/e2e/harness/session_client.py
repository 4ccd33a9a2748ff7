"""Drives the program session_client: commands to its standard input, JSON objects from its standard output."""

from __future__ import annotations

import json
import os
import shlex
import shutil
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

from harness.processes import Processes
from harness.wine import WineUser

# include/kiv/session.h
OK, TIMED_OUT, CANCELLED, BAD_URL, UNSUPPORTED, CLOSED, NOT_YET = 0, 1, 2, 4, 7, 9, 10
AGAIN, DONE, REJECTED = 11, 12, 13
NONE, DIRECT, PROXY = 0, 1, 2
BYPASSED, REACHED, CONNECTED, NOT_TESTED, MAKESHIFT = 0x101, 0x102, 0x103, 0x104, 0x105
NO_CANDIDATE, NOTHING_WORKS, CREDENTIALS_WANTED, SCHEME_UNSUPPORTED = 0x111, 0x112, 0x113, 0x114
BASIC, NTLM = 1, 2
OPTION_TEST, OPTION_DISCOVERY_TIME_OUT, OPTION_CONNECT_TIME_OUT, OPTION_ANSWER_TIME_OUT = 1, 3, 4, 5
OPTION_ORIGINS = 10
OPTION_DIRECT, DIRECT_LAST_RESORT, DIRECT_NEVER = 12, 1, 2
OPTION_LOGGED_ON_USER, LOGGED_ON_USER_NEVER = 13, 0
OPTION_LEFT_OUT, OPTION_BYPASS_LIST = 64, 65
PREFERRED, FALLBACK = 1, 2
PROXY_UNREACHABLE, PROXY_CREDENTIALS, TARGET_FAILED = 1, 2, 3
RESOLUTIONS, KEPT_ANSWERS, KEPT_ORIGINS, DISCOVERIES, OVERDUE, CHALLENGES, CHANGES = 1, 2, 3, 5, 6, 9, 10

Told = dict[str, Any]


def stage_session(folder: Path, binaries: Path, program: Path) -> Path:
    """Lays kiv-session.dll beside a program and returns its path there. Away from the bridge: a session opens WinHTTP
    with the proxy's name, which Wine honours."""
    folder = folder.resolve()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    for file in (binaries / "kiv-session.dll", program):
        shutil.copy2(file, folder)
    return folder / program.name


class SessionClient:
    """A running program. What it has told is kept, and taken by kind."""

    def __init__(self, program: Path, folder: Path, user: WineUser, processes: Processes) -> None:
        self._fifo = folder / "session_client.stdin"
        self._output = folder / "session_client.stdout"
        self._processes = processes
        for left in (self._fifo, self._output):
            left.unlink(missing_ok=True)
        os.mkfifo(self._fifo)
        # For both directions, so that neither end waits for the other to open it.
        self._commands = os.open(self._fifo, os.O_RDWR)
        self._process = processes.start(["wine", str(program)], self._output, folder / "session_client.stderr",
                                        user.environment(), stdin=self._fifo)
        self._read = 0
        self._told: list[Told] = []
        self.take("ready", 60)

    def send(self, *words: object) -> None:
        os.write(self._commands, (" ".join(str(word) for word in words) + "\n").encode())

    def ask(self, *words: object, patience: float = 60) -> Told:
        """Sends a command and returns what the client tells of it."""
        self.send(*words)
        return self.take(str(words[0]), patience)

    def do(self, commands: str) -> None:
        """Sends commands, one in each line, each of which must succeed."""
        for line in filter(None, map(str.strip, commands.splitlines())):
            told = self.ask(*shlex.split(line))
            if told.get("status", OK) != OK:
                raise AssertionError(f"{line}: status {told['status']}")

    def take(self, what: str, patience: float = 30, where: Callable[[Told], bool] = lambda _: True) -> Told:
        """The first of this kind that nobody has taken; waits for it."""
        deadline = time.monotonic() + patience
        while True:
            self._receive()
            for told in self._told:
                if told["what"] == what and where(told):
                    self._told.remove(told)
                    return told
            if time.monotonic() > deadline:
                raise AssertionError(f"the client does not tell {what!r}; it has told {self._told}")
            if self._process.poll() is not None:
                self._receive()
                if not any(told["what"] == what for told in self._told):
                    raise AssertionError(f"the client ended with {self._process.returncode} before it told {what!r}")
            time.sleep(0.005)

    def left(self, what: str) -> list[Told]:
        """What it has told of this kind by now and nobody has taken."""
        self._receive()
        return [told for told in self._told if told["what"] == what]

    def completed(self, tag: int, patience: float = 60) -> Told:
        return self.take("completed", patience, lambda told: told["tag"] == tag)

    def counter(self, which: int) -> int:
        return int(self.ask("counters")[str(which)])

    def stop(self) -> int:
        """Lets it end; returns its exit code."""
        try:
            self.send("quit")
            return self._process.wait(30)
        finally:
            os.close(self._commands)
            self._processes.stop(self._process)

    def _receive(self) -> None:
        for line in self._new_lines():
            self._told.append(json.loads(line))

    def _new_lines(self) -> Iterator[bytes]:
        with open(self._output, "rb") as output:
            output.seek(self._read)
            for line in output:
                # The rest of a line that is still being written comes with the next look.
                if not line.endswith(b"\n"):
                    return
                self._read += len(line)
                yield line
