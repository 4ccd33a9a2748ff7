#!/usr/bin/env python3
"""Makes the packages of the bindings, each with the kiv-session.dll and the notices that belong to it.

    packages.py --version VERSION --dll kiv-session.dll --addon kiv_session.node --out FOLDER

The same files give the same packages. Fails if a package says that it has another version.
"""

from __future__ import annotations

import argparse
import base64
import gzip
import hashlib
import io
import re
import sys
import tarfile
import tomllib
import zipfile
from collections.abc import Callable, Mapping
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
# 1980-01-02, the day of all that kiv packs.
ZIP_TIME = (1980, 1, 2, 0, 0, 0)
TAR_TIME = 315619200

Contents = dict[str, bytes]
"""Files by their names in a package."""


@dataclass(frozen=True)
class Package:
    """One file that is made, and what is in it."""

    name: str
    top: str
    """The folder that all is in, with a slash; nothing where there is none."""
    folder: str
    """The folder of this project that `files` are in."""
    files: tuple[str, ...]
    binaries: Mapping[str, str] = field(default_factory=dict)
    """What was built for Windows (dll, addon), and its place. NOTICES.txt is for these."""
    finish: Callable[[Contents, str], Contents] = lambda contents, _: contents
    """Adds what the kind of package asks for; given the contents and the version."""


def wheel(contents: Contents, version: str) -> Contents:
    """Adds the folder that describes a wheel, with what pyproject.toml says."""
    project = tomllib.loads((ROOT / "bindings/python/pyproject.toml").read_text(encoding="utf-8"))["project"]
    info = f"{project['name']}-{version}.dist-info/"
    extras = project.get("optional-dependencies", {})
    metadata = ["Metadata-Version: 2.1", f"Name: {project['name']}", f"Version: {version}",
                f"Summary: {project['description']}", "License: MIT", f"Keywords: {','.join(project['keywords'])}",
                *(f"Classifier: {classifier}" for classifier in project["classifiers"]),
                f"Requires-Python: {project['requires-python']}", *(f"Provides-Extra: {extra}" for extra in extras),
                *(f'Requires-Dist: {wanted}; extra == "{extra}"' for extra, all_wanted in extras.items() for wanted in all_wanted),
                "Description-Content-Type: text/markdown", "", contents.pop("README.md").decode()]
    described = {**contents, f"{info}METADATA": "\n".join(metadata).encode(),
                 f"{info}WHEEL": b"Wheel-Version: 1.0\nGenerator: kiv\nRoot-Is-Purelib: false\nTag: py3-none-win_amd64\n"}
    for name in ("LICENSE", "NOTICES.txt"):
        described[info + name] = described.pop(name)
    lines = [f"{name},sha256={base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b'=').decode()},{len(data)}\n"
             for name, data in sorted(described.items())]
    return {**described, f"{info}RECORD": "".join([*lines, f"{info}RECORD,,\n"]).encode()}


PACKAGES = (
    Package("kiv-{version}.tgz", "package/", "bindings/node", ("package.json", "index.d.ts", "README.md", "lib/*.js")),
    Package("kiv-win32-x64-{version}.tgz", "package/", "bindings/node/win32-x64", ("package.json", "README.md"),
            {"dll": "kiv-session.dll", "addon": "kiv_session.node"}),
    Package("kiv-go-{version}.zip", "kiv@v{version}/", "bindings/go",
            ("go.mod", "README.md", "*.go", "examples/*/*.go"), {"dll": "windows-x64/kiv-session.dll"}),
    Package("kiv-{version}.crate", "kiv-{version}/", "bindings/rust",
            ("Cargo.toml", "README.md", "src/**/*.rs", "examples/*.rs"), {"dll": "windows-x64/kiv-session.dll"}),
    Package("kiv-{version}-py3-none-win_amd64.whl", "", "bindings/python", ("README.md", "kiv/*.py", "kiv/py.typed"),
            {"dll": "kiv/kiv-session.dll"}, wheel),
)

# Where a package says which version it has.
VERSIONS = {
    "packaging/vcpkg/kiv/vcpkg.json": r'"version": "(.+?)"',
    "packaging/conan/conanfile.py": r'^    version = "(.+)"',
    "bindings/node/package.json": r'"(?:version|kiv-win32-x64)": "(.+?)"',
    "bindings/node/win32-x64/package.json": r'"version": "(.+?)"',
    "bindings/go/session.go": r'^const Version = "(.+)"',
    "bindings/rust/Cargo.toml": r'^version = "(.+)"',
    "bindings/python/pyproject.toml": r'^version = "(.+)"',
}


def other_versions(version: str) -> list[str]:
    """What says that it has another version."""
    said = {place: re.findall(pattern, (ROOT / place).read_text(encoding="utf-8"), re.M)
            for place, pattern in VERSIONS.items()}
    return [f"{place} says {', '.join(found) or 'no version'}, and not {version}"
            for place, found in said.items() if set(found) != {version}]


def contents_of(package: Package, version: str, built: Mapping[str, Path]) -> Contents:
    folder = ROOT / package.folder
    found = {str(file.relative_to(folder)): file for pattern in package.files for file in folder.glob(pattern)
             if not file.name.endswith("_test.go")}
    found |= {place: built[which] for which, place in package.binaries.items()}
    found |= {name: ROOT / name for name in ("LICENSE", *(["NOTICES.txt"] if package.binaries else []))}
    contents = package.finish({name: file.read_bytes() for name, file in found.items()}, version)
    return {package.top.format(version=version) + name: contents[name] for name in sorted(contents)}


def zipped(contents: Contents) -> bytes:
    packed = io.BytesIO()
    with zipfile.ZipFile(packed, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in contents.items():
            entry = zipfile.ZipInfo(name, ZIP_TIME)
            entry.compress_type = zipfile.ZIP_DEFLATED
            # A file that everybody may read, by the attributes of a system that is always the same.
            entry.create_system, entry.external_attr = 3, 0o100644 << 16
            archive.writestr(entry, data)
    return packed.getvalue()


def tarred(contents: Contents) -> bytes:
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w", format=tarfile.USTAR_FORMAT) as archive:
        for name, data in contents.items():
            entry = tarfile.TarInfo(name)
            entry.size, entry.mtime = len(data), TAR_TIME
            archive.addfile(entry, io.BytesIO(data))
    return gzip.compress(packed.getvalue(), mtime=0)


def make(version: str, built: Mapping[str, Path], out: Path) -> list[Path]:
    """Makes all packages in the folder `out`."""
    made = []
    for package in PACKAGES:
        file = out / package.name.format(version=version)
        pack = zipped if file.suffix in (".zip", ".whl") else tarred
        file.write_bytes(pack(contents_of(package, version, built)))
        made.append(file)
    return made


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--version", required=True)
    for name in ("--dll", "--addon", "--out"):
        parser.add_argument(name, type=Path, required=True)
    options = parser.parse_args()
    wrong = other_versions(options.version)
    if wrong:
        print("\n".join(wrong), file=sys.stderr)
        return 1
    for file in make(options.version, {"dll": options.dll, "addon": options.addon}, options.out):
        print(file)
    return 0


if __name__ == "__main__":
    sys.exit(main())
