#!/usr/bin/env python3
"""Compiles the addon, and lays out the two packages of the Node.js binding as they are published.

    build.py --dll kiv-session.dll --headers FOLDER --out FOLDER

The headers are those of the package node-api-headers.
"""

from __future__ import annotations

import argparse
import os
import shutil
import subprocess
from pathlib import Path

HERE = Path(__file__).resolve().parent
COMPILER = os.environ.get("KIV_MINGW_GCC", "x86_64-w64-mingw32-gcc-win32")
OPTIONS = ["-std=c11", "-O2", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-DKIV_STATIC", "-D_WIN32_WINNT=0x0601",
           "-DWIN32_LEAN_AND_MEAN", "-shared", "-static", "-s", "-Wl,--no-insert-timestamp"]


def compile_addon(headers: Path, addon: Path) -> None:
    subprocess.run([COMPILER, *OPTIONS, "-I", HERE.parents[1] / "include", "-I", headers, HERE / "addon.c", "-o", addon],
                   check=True)


def lay_out(dll: Path, headers: Path, out: Path) -> None:
    """Makes out/kiv-session and out/kiv-session-win32-x64."""
    for name in ("kiv-session", "kiv-session-win32-x64"):
        shutil.rmtree(out / name, ignore_errors=True)
    shutil.copytree(HERE / "lib", out / "kiv-session" / "lib")
    for file in ("package.json", "index.d.ts", "README.md"):
        shutil.copy2(HERE / file, out / "kiv-session")
    shutil.copytree(HERE / "win32-x64", out / "kiv-session-win32-x64")
    shutil.copy2(dll, out / "kiv-session-win32-x64" / "kiv-session.dll")
    compile_addon(headers, out / "kiv-session-win32-x64" / "kiv_session.node")
    for name in ("kiv-session", "kiv-session-win32-x64"):
        shutil.copy2(HERE.parents[1] / "LICENSE", out / name)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("--dll", "--headers", "--out"):
        parser.add_argument(name, type=Path, required=True)
    options = parser.parse_args()
    lay_out(options.dll, options.headers, options.out)


if __name__ == "__main__":
    main()
