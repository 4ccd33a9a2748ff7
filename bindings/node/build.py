#!/usr/bin/env python3
"""Compiles the addon of the Node.js binding for Windows: WORK/kiv_session.node.

    build.py --work FOLDER

npm installs the packages that this needs, and those that the tests need, in WORK/npm.
"""

from __future__ import annotations

import argparse
import fcntl
import os
import shutil
import subprocess
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
COMPILER = os.environ.get("KIV_MINGW_GCC", "x86_64-w64-mingw32-gcc-win32")
# Without an automatic base address, which would follow from the path of the file.
OPTIONS = ["-std=c11", "-O2", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-DKIV_STATIC", "-D_WIN32_WINNT=0x0601",
           "-DWIN32_LEAN_AND_MEAN", "-shared", "-static", "-s", "-Wl,--no-insert-timestamp", "-Wl,--disable-auto-image-base"]


def install(work: Path) -> Path:
    """Installs the pinned packages of test/ below `work`; returns the folder of packages."""
    work.mkdir(parents=True, exist_ok=True)
    pinned = [HERE / "test" / name for name in ("package.json", "package-lock.json", ".npmrc")]
    texts = "".join(file.read_text(encoding="utf-8") for file in pinned)
    stamp = work / "installed"
    if not stamp.exists() or stamp.read_text(encoding="utf-8") != texts:
        for file in pinned:
            shutil.copy2(file, work)
        subprocess.run(["npm", "ci", "--force", "--os=win32", "--cpu=x64", "--ignore-scripts", "--no-audit", "--no-fund",
                        "--loglevel=error"], cwd=work, check=True)
        stamp.write_text(texts, encoding="utf-8")
    return work / "node_modules"


def compile_addon(modules: Path, folder: Path) -> Path:
    """Makes the addon in a folder, with the headers that are among these packages, and puts it there as a whole: somebody
    may be reading the one before.
    """
    headers = modules / "node-api-headers" / "include"
    with tempfile.TemporaryDirectory(dir=folder) as aside:
        addon = Path(aside, "kiv_session.node")
        subprocess.run([COMPILER, *OPTIONS, "-I", HERE.parents[1] / "include", "-I", headers, HERE / "addon.c", "-o", addon,
                        f"-Wl,-Map,{addon}.map"], check=True)
        for made in Path(aside).iterdir():
            made.replace(folder / made.name)
    return folder / addon.name


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--work", type=Path, required=True)
    work = parser.parse_args().work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    with (work / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        compile_addon(install(work / "npm"), work)


if __name__ == "__main__":
    main()
