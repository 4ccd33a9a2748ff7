"""Opens the NuGet package and the manifests for winget, and reads them as NuGet, MSBuild and winget do."""

from __future__ import annotations

import re
import shutil
import subprocess
import zipfile
from collections.abc import Iterator
from hashlib import sha256
from pathlib import Path
from xml.etree import ElementTree

import release
import yaml

from .workshop import CONSUMERS, ROOT, Check, Workshop, run

MSBUILD = "{http://schemas.microsoft.com/developer/msbuild/2003}"
# By what follows the identifier in the name of a manifest: its type, and the fields that only it must have.
WINGET_FIELDS = (
    ("", "version", "DefaultLocale"),
    (".locale.en-US", "defaultLocale", "PackageLocale Publisher PackageName License ShortDescription"),
    (".installer", "installer",
     "Installers InstallerType NestedInstallerType NestedInstallerFiles ArchiveBinariesDependOnPath Commands"),
)
WINGET_NAME = re.compile(r'[^.\s\\/:*?"<>|]{1,32}')


def msbuild_paths(targets: ElementTree.Element, folder: Path, *names: str) -> list[Path]:
    """The files and folders that elements of a .targets file name below its own."""
    texts = [value for name in names for element in targets.iter(MSBUILD + name)
             for value in (element.text or "", element.get("Include", ""))]
    return [folder / part.removeprefix("$(MSBuildThisFileDirectory)").replace("\\", "/") for text in texts
            for part in text.strip().split(";") if part.startswith("$(MSBuildThisFileDirectory)")]


def nuget(shop: Workshop) -> Iterator[Check]:
    """The NuGet package: its parts, and a program that is built as its .targets says."""
    folder = shop.unzip(f"kiv.{shop.version}.nupkg")
    names = {str(file.relative_to(folder)) for file in folder.rglob("*") if file.is_file()}
    malformed = []
    for name in names:
        if name.endswith((".nuspec", ".targets", ".rels", ".xml", ".psmdcp")):
            try:
                ElementTree.parse(folder / name)
            except ElementTree.ParseError as error:
                malformed.append(f"{name}: {error}")
    yield "each XML part is well-formed", malformed
    relationships = ElementTree.parse(folder / "_rels/.rels").getroot()
    yield "each relationship names a part", {element.get("Target", "").lstrip("/") for element in relationships} - names
    kinds = {element.get("Extension") for element in ElementTree.parse(folder / "[Content_Types].xml").getroot()}
    unknown = {name for name in names if name.rpartition(".")[2] not in kinds}
    yield "each part has a kind", unknown - {"[Content_Types].xml"}
    namespace = "{http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd}"
    metadata = ElementTree.parse(folder / "kiv.nuspec").getroot()[0]
    said = {element.tag.removeprefix(namespace): element.text or "" for element in metadata}
    wanted = ("id", "version", "authors", "description", "license", "readme", "tags", "repository")
    yield "the manifest says what NuGet asks for", [name for name in wanted if name not in said]
    yield "it has the version", "" if said["version"] == shop.version else said["version"]
    yield "the files it names are there", {said["readme"], "LICENSE.txt", "NOTICES.txt"} - names
    yield "it is for native projects", "" if "native" in said["tags"].split() else said["tags"]
    targets = ElementTree.parse(folder / "build/native/kiv.targets").getroot()
    native = folder / "build/native"
    includes = msbuild_paths(targets, native, "AdditionalIncludeDirectories")
    libraries = msbuild_paths(targets, native, "AdditionalDependencies")
    dlls = msbuild_paths(targets, native, "ReferenceCopyLocalPaths")
    yield "each path of kiv.targets is there", [path for path in (*includes, *libraries, *dlls) if not path.exists()]
    yield "it names headers, libraries and DLLs", (len(includes), len(libraries), len(dlls)) != (1, 2, 2)
    program = shop.folder / "nuget" / "main.exe"
    program.parent.mkdir()
    consumer = CONSUMERS / "consumer-visual-c"
    run("clang", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-isystem", consumer / "include",
        *(f"-I{path}" for path in includes), consumer / "main.c", *libraries, "-fuse-ld=lld", "-nostdlib",
        "-Wl,/entry:start", "-Wl,/subsystem:console", "-o", program)
    for dll in dlls:
        shutil.copy2(dll, program.parent)
    ended = subprocess.run([ROOT / "scripts/in_wine.sh", program], check=False).returncode
    yield "a program that is built as it says runs", "" if ended == 42 else ended


def winget(shop: Workshop) -> Iterator[Check]:
    """The manifests: the fields that winget requires, by its documentation."""
    manifests = {file.name: yaml.safe_load(file.read_text(encoding="utf-8"))
                 for file in (shop.release / "winget").iterdir()}
    required = {part: (kind, {*fields.split()}) for part, kind, fields in WINGET_FIELDS}
    identifier = release.WINGET_IDENTIFIER
    yield "there are three manifests", manifests.keys() ^ {f"{identifier}{part}.yaml" for part in required}
    names = identifier.split(".")
    yield "winget takes the identifier", len(names) < 2 or [name for name in names if not WINGET_NAME.fullmatch(name)]
    for part, (kind, fields) in required.items():
        manifest = manifests[f"{identifier}{part}.yaml"]
        common = {"PackageIdentifier": identifier, "PackageVersion": shop.version, "ManifestType": kind,
                  "ManifestVersion": "1.12.0"}
        wrong = [name for name, value in common.items() if manifest.get(name) != value]
        yield f"the {kind} manifest has the fields that are required", wrong + sorted(fields - manifest.keys())
    installer = manifests[f"{identifier}.installer.yaml"]
    (of_system,) = installer["Installers"]
    archive = shop.release / of_system["InstallerUrl"].rpartition("/")[2]
    yield "it has the sum of the zip", of_system["InstallerSha256"] != sha256(archive.read_bytes()).hexdigest().upper()
    yield "it is for 64-bit Windows", of_system["Architecture"] != "x64"
    with zipfile.ZipFile(archive) as opened:
        names = opened.namelist()
    programs = [file["RelativeFilePath"].replace("\\", "/") for file in installer["NestedInstallerFiles"]]
    yield "each program of the zip is named", {*programs} ^ {name for name in names if name.endswith(".exe")}
    yield "each has a command", [Path(program).stem for program in programs] != installer["Commands"]
    folders = {str(Path(program).parent) for program in programs}
    yield "they stand beside the DLLs", [folder for folder in folders if f"{folder}/kiv.dll" not in names]
