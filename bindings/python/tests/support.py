"""What the tests share: sessions over the stand-in of kiv-session.dll, whose complaints and leaks fail a test."""

from __future__ import annotations

import atexit
import ctypes
import gc
import os
import subprocess
import tempfile
import time
import unittest
from collections.abc import Callable
from pathlib import Path
from typing import Any

import kiv
from kiv.library import text_of, wide

BINDING = Path(__file__).resolve().parents[1]
KINDS = ("session", "request", "decision", "challenge", "event", "authentication")
PATIENCE = 60.0
USER, PASSWORD = "alice", "opensesame"

_folder = tempfile.TemporaryDirectory(prefix="kiv-python-")
atexit.register(_folder.cleanup)


def build(name: str, *defines: str) -> str:
    """Compiles a stand-in, once; returns its path."""
    library = Path(_folder.name) / f"{name}.so"
    if not library.exists():
        subprocess.run([os.environ.get("CC", "gcc"), "-std=gnu11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-O1",
                        "-g", "-fPIC", "-shared", "-pthread", "-fshort-wchar", *defines, "-I", BINDING.parents[1] / "include",
                        BINDING / "tests/stand_in.c", "-o", library], check=True)
    return str(library)


def scratch(name: str, data: bytes) -> str:
    """Writes a file; returns its path."""
    path = Path(_folder.name) / name
    path.write_bytes(data)
    return str(path)


def wait_for(condition: Callable[[], object]) -> None:
    """Waits until something is so that nothing tells of."""
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("in vain")
        time.sleep(0.005)


class StandIn:
    """The stand-in's functions for tests."""

    def __init__(self) -> None:
        self.path = build("stand_in")
        self._library = ctypes.CDLL(self.path)
        self._library.StandIn_Complaint.restype = ctypes.c_char_p
        for name in ("StandIn_Text", "StandIn_Proxy"):
            getattr(self._library, name).restype = ctypes.POINTER(ctypes.c_uint16)
        for name in ("StandIn_Change", "StandIn_Withdraw", "StandIn_Reported"):
            getattr(self._library, name).argtypes = [ctypes.c_void_p]
        for name in ("StandIn_Number", "StandIn_Text"):
            getattr(self._library, name).argtypes = [ctypes.c_void_p, ctypes.c_uint32]
        self._library.StandIn_Proxy.argtypes = [ctypes.c_void_p, ctypes.c_uint32, ctypes.c_uint32]
        self._library.StandIn_Log.argtypes = [ctypes.c_void_p, ctypes.c_uint32, ctypes.POINTER(ctypes.c_uint16)]

    def reset(self) -> None:
        self._library.StandIn_Reset()

    def complaint(self) -> str:
        return bytes(self._library.StandIn_Complaint()).decode()

    def live(self) -> dict[str, int]:
        """The objects that were not released, by kind."""
        counts = {kind: int(self._library.StandIn_Live(number)) for number, kind in enumerate(KINDS)}
        return {kind: count for kind, count in counts.items() if count}

    def answer(self, host: str, proxy: str = "", *, status: int = 0, auth: int = 0, password: str = "",
               reason: int = kiv.Reason.REACHED) -> None:
        """How URLs of a host are resolved: a proxy's URL, DIRECT or NONE. `password` is what that proxy wants of USER."""
        kind = {"DIRECT": kiv.Kind.DIRECT, "NONE": kiv.Kind.NONE, "": kiv.Kind.NONE}.get(proxy, kiv.Kind.PROXY)
        scheme, _, address = proxy.partition("://") if kind == kiv.Kind.PROXY else ("", "", "")
        name, _, port = address.rpartition(":")
        self._library.StandIn_Answer(host.encode(), ctypes.c_uint32(status), kind, scheme.encode(), name.encode(),
                                     int(port or 0), auth, reason, password.encode())

    def fail(self, function: str, status: int) -> None:
        """The next call of the function returns this status."""
        self._library.StandIn_Fail(function.encode(), ctypes.c_uint32(status))

    def will_fail(self) -> bool:
        return bool(self._library.StandIn_WillFail())

    def change(self, session: kiv.Session) -> None:
        self._library.StandIn_Change(session._handle)

    def withdraw(self, session: kiv.Session) -> None:
        self._library.StandIn_Withdraw(session._handle)

    def log(self, session: kiv.Session, level: int, line: str) -> None:
        self._library.StandIn_Log(session._handle, level, wide(line))

    def reported(self, session: kiv.Session) -> int:
        return int(self._library.StandIn_Reported(session._handle))

    def number(self, session: kiv.Session, option: int) -> int:
        return int(self._library.StandIn_Number(session._handle, option))

    def text(self, session: kiv.Session, option: int) -> str:
        return text_of(self._library.StandIn_Text(session._handle, option))

    def proxy(self, session: kiv.Session, which: int) -> list[str]:
        return [text_of(self._library.StandIn_Proxy(session._handle, which, part)) for part in range(3)]


stand_in = StandIn()


class Case(unittest.TestCase):
    """Fails if the stand-in complains, or if an object was not released."""

    def setUp(self) -> None:
        stand_in.reset()
        self.addCleanup(self._check)

    def session(self, options: kiv.Options = kiv.Options(), **callbacks: Any) -> kiv.Session:
        session = kiv.Session("test/1", options, library=stand_in.path, **callbacks)
        self.addCleanup(session.close)
        return session

    def _check(self) -> None:
        def nothing_lives() -> bool:
            gc.collect()
            return not stand_in.live()

        try:
            # Threads that have just ended may still hold what they used.
            wait_for(nothing_lives)
        except AssertionError:
            self.fail(f"not released: {stand_in.live()}")
        self.assertEqual(stand_in.complaint(), "")


class Login:
    """Answers challenges with these passwords, one after the other, then declines."""

    def __init__(self, *passwords: str) -> None:
        self._passwords = list(passwords)
        self.asked: list[tuple[str, int]] = []

    def __call__(self, challenge: kiv.Challenge) -> None:
        self.asked.append((challenge.proxy, challenge.attempt))
        if self._passwords:
            challenge.answer(USER, self._passwords.pop(0))
