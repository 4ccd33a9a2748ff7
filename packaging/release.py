#!/usr/bin/env python3
"""Makes what a release has besides the packages of the bindings, and the check sums of all:

    release.py --version VERSION --installed FOLDER --addon kiv_session.node --maps FOLDER --out FOLDER

the zip of what was installed, the NuGet package, the SPDX document of what is linked in, SHA256SUMS, and in winget/ the
manifests for winget. The same files give the same files.
"""

from __future__ import annotations

import argparse
import hashlib
import string
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
sys.path.insert(0, str(ROOT / "bindings"))

import linked  # noqa: E402
import packages  # noqa: E402

# The name that winget knows kiv by: who publishes it, and what it is.
WINGET_IDENTIFIER = "OWNER.kiv"


def template(name: str, **values: str) -> bytes:
    """A file of this folder, with what changes from release to release."""
    return string.Template((HERE / name).read_text(encoding="utf-8")).substitute(values).encode()


def archive(version: str, installed: Path) -> packages.Contents:
    top = f"kiv-{version}-windows-x64/"
    return {top + str(file.relative_to(installed)): file.read_bytes() for file in sorted(installed.rglob("*"))
            if file.is_file()}


def nuget(version: str, installed: Path) -> packages.Contents:
    """The package, with the parts that describe it as the Open Packaging Conventions ask for."""
    contents = {"kiv.nuspec": template("nuget/kiv.nuspec", version=version),
                "README.md": (HERE / "nuget" / "README.md").read_bytes(),
                "build/native/kiv.targets": (HERE / "nuget" / "kiv.targets").read_bytes()}
    for name in ("LICENSE", "NOTICES.txt"):
        contents[name.removesuffix(".txt") + ".txt"] = (ROOT / name).read_bytes()
    for file in sorted((installed / "include").rglob("*.h*")):
        contents[f"build/native/{file.relative_to(installed)}"] = file.read_bytes()
    for name in ("kiv", "kiv-session"):
        for kind, folder in (("dll", "bin"), ("lib", "lib")):
            contents[f"build/native/x64/{name}.{kind}"] = (installed / folder / f"{name}.{kind}").read_bytes()
    number = hashlib.sha256(contents["kiv.nuspec"]).hexdigest()[:32]
    properties = f"package/services/metadata/core-properties/{number}.psmdcp"
    contents[properties] = template("nuget/core-properties.xml", version=version)
    contents["_rels/.rels"] = template("nuget/relationships.xml", properties=properties)
    kinds = {"rels": "application/vnd.openxmlformats-package.relationships+xml",
             "psmdcp": "application/vnd.openxmlformats-package.core-properties+xml"}
    endings = {**{name.rpartition(".")[2]: "application/octet" for name in contents}, **kinds}
    defaults = [f'  <Default Extension="{ending}" ContentType="{kind}" />' for ending, kind in sorted(endings.items())]
    contents["[Content_Types].xml"] = template("nuget/content-types.xml", defaults="\n".join(defaults))
    return dict(sorted(contents.items()))


def winget(version: str, zip_file: Path, installed: Path) -> packages.Contents:
    """The three manifests of the programs in the zip, by their names in winget's repository."""
    programs = sorted(file.stem for file in (installed / "bin").glob("*.exe"))
    values = {"identifier": WINGET_IDENTIFIER, "version": version, "archive": zip_file.name,
              "sha256": hashlib.sha256(zip_file.read_bytes()).hexdigest().upper(),
              "programs": "\n".join(f"- RelativeFilePath: {zip_file.stem}\\bin\\{program}.exe" for program in programs),
              "commands": "\n".join(f"- {program}" for program in programs)}
    return {f"{WINGET_IDENTIFIER}{kind}.yaml": template(f"winget/{name}.yaml", **values)
            for kind, name in (("", "version"), (".locale.en-US", "locale.en-US"), (".installer", "installer"))}


def binaries_of(installed: Path, addon: Path) -> dict[str, Path]:
    """All that was linked, by name."""
    found = [file for file in (installed / "bin").iterdir() if file.suffix in (".dll", ".exe")]
    return {file.name: file for file in (*found, addon)}


def make(version: str, installed: Path, addon: Path, maps: Path, out: Path) -> None:
    """Makes all in the folder `out`, where the packages of the bindings are."""
    zip_file = out / f"kiv-{version}-windows-x64.zip"
    zip_file.write_bytes(packages.zipped(archive(version, installed)))
    (out / f"kiv.{version}.nupkg").write_bytes(packages.zipped(nuget(version, installed)))
    binaries = binaries_of(installed, addon)
    listed = {name: (file.parent if file == addon else maps) / f"{name}.map" for name, file in binaries.items()}
    (out / f"kiv-{version}.spdx.json").write_bytes(
        linked.spdx(version, {name: file.read_bytes() for name, file in binaries.items()}, listed))
    sums = "".join(f"{hashlib.sha256(file.read_bytes()).hexdigest()}  {file.name}\n" for file in sorted(out.iterdir())
                   if file.is_file() and file.name != "SHA256SUMS")
    (out / "SHA256SUMS").write_text(sums, encoding="ascii")
    manifests = out / "winget"
    manifests.mkdir(exist_ok=True)
    for name, data in winget(version, zip_file, installed).items():
        (manifests / name).write_bytes(data)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--version", required=True)
    for name in ("--installed", "--addon", "--maps", "--out"):
        parser.add_argument(name, type=Path, required=True)
    options = parser.parse_args()
    try:
        make(options.version, options.installed, options.addon, options.maps, options.out)
    except linked.Unknown as unknown:
        print(f"release.py: {unknown}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
