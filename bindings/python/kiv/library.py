"""kiv-session.dll: loading it, its texts, and what it hands out."""

from __future__ import annotations

import ctypes
import sysconfig
import threading
from pathlib import Path
from typing import Any, Callable, Optional

from .declarations import FUNCTIONS, MINIMUM_VERSION, Status
from .errors import Closed, LoadError, StatusError, TimedOut, Unsupported

DLL = Path(__file__).resolve().parent / "kiv-session.dll"

_loaded: dict[str, ctypes.CDLL] = {}
_loading = threading.Lock()


def load(path: Optional[str]) -> ctypes.CDLL:
    """The library of this path, or the one beside this package. It stays loaded: the first session keeps it anyway."""
    if path is None and sysconfig.get_platform() != "win-amd64":
        raise Unsupported(f"kiv needs Python for Windows x64; this is Python for {sysconfig.get_platform()}")
    # A full path, always: a bare name would let Windows take a DLL of that name from the current folder or from PATH.
    full = str(Path(path).absolute() if path is not None else DLL)
    with _loading:
        if full not in _loaded:
            _loaded[full] = _open(full)
        return _loaded[full]


def _open(path: str) -> ctypes.CDLL:
    if not Path(path).is_file():
        raise LoadError(path, "there is no such file: reinstall kiv, or name kiv-session.dll with the "
                              "parameter library")
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise LoadError(path, f"{error}: take the kiv-session.dll that is built for this Python's processor, "
                              f"{sysconfig.get_platform()}") from error
    wanted = f"take kiv-session.dll {_version_text(MINIMUM_VERSION)} or a later one of the same major version"
    for name, (result, parameters) in FUNCTIONS.items():
        try:
            function = getattr(library, name)
        except AttributeError:
            raise LoadError(path, f"it has no function {name}: {wanted}") from None
        function.restype, function.argtypes = result, parameters
    version = int(library.KivSession_Version())
    if version >> 16 != MINIMUM_VERSION >> 16 or version < MINIMUM_VERSION:
        raise LoadError(path, f"its version is {_version_text(version)}: {wanted}")
    return library


def _version_text(version: int) -> str:
    return f"{version >> 16}.{version >> 8 & 0xFF}.{version & 0xFF}"


def wide(text: str) -> ctypes.Array[ctypes.c_uint16]:
    """A text as the library takes it. One that holds a NUL would be cut there, and is refused."""
    if "\0" in text:
        raise ValueError("a text for kiv contains a NUL character")
    units = text.encode("utf-16-le", "surrogatepass") + b"\0\0"
    return (ctypes.c_uint16 * (len(units) // 2)).from_buffer_copy(units)


def wipe(text: ctypes.Array[ctypes.c_uint16]) -> None:
    """Overwrites a password."""
    ctypes.memset(text, 0, ctypes.sizeof(text))


def text_of(pointer: Any) -> str:
    """Copies a text of the library; a null one is empty."""
    if not pointer:
        return ""
    length = 0
    while pointer[length]:
        length += 1
    return ctypes.string_at(pointer, 2 * length).decode("utf-16-le", "replace")


def error_of(library: ctypes.CDLL, status: int) -> StatusError:
    """What a status that is not OK stands for."""
    kind = {Status.CLOSED: Closed, Status.TIMED_OUT: TimedOut}.get(Status(status), StatusError)
    return kind(status, f"{text_of(library.KivStatus_Text(status))} (status {status:#x})")


def must(library: ctypes.CDLL, status: int) -> None:
    """Raises what a status stands for."""
    if status != Status.OK:
        raise error_of(library, status)


class Handle:
    """Owns an object of the library, and releases it when nothing refers to it any more."""

    __slots__ = ("_as_parameter_", "_release", "__weakref__")

    def __init__(self, address: Optional[int], release: Callable[[Optional[int]], object]) -> None:
        # What ctypes passes for this object. A call keeps its arguments alive until it has returned.
        self._as_parameter_ = address
        self._release = release

    @property
    def address(self) -> Optional[int]:
        return self._as_parameter_

    def __del__(self) -> None:
        self._release(self._as_parameter_)
