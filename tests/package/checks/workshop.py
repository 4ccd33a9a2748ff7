"""What the checks of the packaging have in common: the files of a release, and how programs are run."""

from __future__ import annotations

import shutil
import subprocess
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[3]
CONSUMERS = ROOT / "tests/package"
TOOLCHAIN = ROOT / "cmake/mingw-w64-x86_64.cmake"

Check = tuple[str, object]
"""A name, and what is wrong; nothing if all is well."""


def run(*command: object) -> str:
    """What a command printed, which must succeed."""
    done = subprocess.run([str(part) for part in command], cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    if done.returncode:
        raise RuntimeError(f"{command} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def in_lib(line: str) -> str:
    """What a line of bash prints that uses scripts/lib.sh."""
    return run("bash", "-c", f". scripts/lib.sh; {line}").strip()


def run_in_wine(program: Path) -> str:
    return run(ROOT / "scripts/in_wine.sh", program).strip()


class Workshop:
    """What was built for Windows, what a release is made of, and the release that was made of it."""

    def __init__(self, built: Path, work: Path) -> None:
        self.built = built
        self.folder = work
        self.version = in_lib("project_version")
        shutil.rmtree(work, ignore_errors=True)
        work.mkdir(parents=True)
        run("/usr/bin/python3", "bindings/node/build.py", "--work", "build/bindings/node")
        self.release = self.make(built, "release")
        self.installed = work / "release-installed"

    def make(self, built: Path, name: str) -> Path:
        """Makes the files of a release in a new folder."""
        in_lib(f"release_files '{built}' '{self.folder / name}'")
        return self.folder / name

    def unzip(self, name: str) -> Path:
        """Unpacks a file of the release into a folder of its own."""
        folder = self.folder / "unpacked" / name
        with zipfile.ZipFile(self.release / name) as opened:
            opened.extractall(folder)
        return folder
