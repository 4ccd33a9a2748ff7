"""Files in place of kiv-session.dll that every binding must refuse, for the tests of all bindings."""

from __future__ import annotations

import struct
import subprocess
from pathlib import Path

import check_declarations

COMPILER = "x86_64-w64-mingw32-gcc-win32"
MACHINES = {"arm64": 0xAA64, "x86": 0x014C}
LACKING = "KivAuth_Next"
VERSIONS = {"old": 0x000900, "later": 0x020000, "lacking": 0x010000}


def compile_stub(dll: Path, version: int, functions: list[str]) -> None:
    """A DLL whose functions all return its version."""
    source = "".join(f"__declspec(dllexport) unsigned {name}(void) {{ return {version}; }}\n" for name in functions)
    subprocess.run([COMPILER, "-x", "c", "-", "-shared", "-s", "-o", dll], input=source, text=True, check=True)


def for_machine(image: bytes, machine: int) -> bytes:
    """The same DLL with another processor in its header, whose place the number at 0x3C tells."""
    (header,) = struct.unpack_from("<I", image, 0x3C)
    return image[:header + 4] + struct.pack("<H", machine) + image[header + 6:]


def make(folder: Path, dll: Path) -> dict[str, Path]:
    """Makes them in `folder`: versions 0.9.0 (old) and 2.0.0 (later), one without a function (lacking), one for each other
    machine, and a file that is no DLL (text)."""
    folder.mkdir(parents=True, exist_ok=True)
    functions = list(check_declarations.in_header(check_declarations.HEADER.read_text(encoding="utf-8")).functions)
    made = {name: folder / f"{name}.dll" for name in (*VERSIONS, *MACHINES, "text")}
    for name, version in VERSIONS.items():
        compile_stub(made[name], version, [one for one in functions if (name, one) != ("lacking", LACKING)])
    for name, machine in MACHINES.items():
        made[name].write_bytes(for_machine(dll.read_bytes(), machine))
    made["text"].write_text("This is no library.", encoding="utf-8")
    return made
