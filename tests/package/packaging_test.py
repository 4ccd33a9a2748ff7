#!/usr/bin/env python3
"""Makes the files of a release and opens each; runs the recipes of packaging/ and uses what they install.

    packaging_test.py --built FOLDER --work FOLDER [--filter TEXT]

Where vcpkg and Conan are not to be had, their recipes run with stand-ins for both (standins/).
"""

from __future__ import annotations

import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import traceback
import zipfile
from collections.abc import Iterator
from hashlib import sha256
from pathlib import Path
from xml.etree import ElementTree

import yaml

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
sys.path[:0] = [str(ROOT / "tests/e2e"), str(ROOT / "bindings"), str(ROOT / "packaging"), str(HERE / "standins")]

# The modules of the harness, of the packaging and of the stand-ins, which stand where Python does not look by itself.
import conan_standin  # noqa: E402
import linked  # noqa: E402
import packages  # noqa: E402
import release  # noqa: E402
from harness.results import report  # noqa: E402

TOOLCHAIN = ROOT / "cmake/mingw-w64-x86_64.cmake"
RELEASING = ROOT / "docs/internals/releasing.md"
PROXY = "http://proxy.test:8080"
MSBUILD = "{http://schemas.microsoft.com/developer/msbuild/2003}"

Check = tuple[str, object]
"""A name, and what is wrong; nothing if all is well."""


def run(*command: object, **variables: str) -> str:
    """What a command printed, which must succeed."""
    done = subprocess.run([str(part) for part in command], cwd=ROOT, env={**os.environ, **variables}, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
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


def whole(shop: Workshop) -> Iterator[Check]:
    """What a release consists of, and what all its files say."""
    table = {name.replace("<version>", shop.version) for name in
             re.findall(r"^\| `([^`]+)` \|", RELEASING.read_text(encoding="utf-8").partition("## Packages")[0], re.M)}
    made = {file.name + "/" * file.is_dir() for file in shop.release.iterdir()}
    yield "the files are those of docs/internals/releasing.md", table ^ made
    sums = dict(reversed(line.split("  ")) for line in (shop.release / "SHA256SUMS").read_text().splitlines())
    expected = {file.name: sha256(file.read_bytes()).hexdigest() for file in shop.release.iterdir()
                if file.is_file() and file.name != "SHA256SUMS"}
    yield "SHA256SUMS has the sum of each file", set(sums.items()) ^ set(expected.items())
    yield "sha256sum takes it", "" if "FAILED" not in in_lib(f"cd '{shop.release}'; sha256sum -c SHA256SUMS") else "FAILED"
    # The names of the files, and what is in them.
    unversioned = [name for name in expected if shop.version not in name]
    yield "each file has the version in its name", unversioned
    yield "each recipe and binding has the version", packages.other_versions(shop.version)
    yield "another version is refused", "" if len(packages.other_versions("0.0.0")) == len(packages.VERSIONS) else "not each"


def reproducible(shop: Workshop) -> Iterator[Check]:
    """The sources that the Conan recipe takes give the same files, byte for byte, in a folder of another name."""
    source = shop.folder / "another/folder/of-a-longer-name"
    recipe = prepared_recipe(source)
    recipe.export_sources()
    sources = Path(recipe.source_folder)
    built = source / "build"
    cmake = sources / "cmake"
    run("cmake", "-S", sources, "-B", built, "-G", "Ninja", "--toolchain", cmake / "mingw-w64-x86_64.cmake",
        f"-DKIV_DLL_TOOLCHAIN={cmake / 'mingw-w64-x86_64-win32.cmake'}", "-DCMAKE_BUILD_TYPE=Release", "-DKIV_TESTS=OFF")
    run("cmake", "--build", built, "--target", *in_lib('echo "${RELEASED[@]}"').split())
    again = shop.make(built, "again")
    different = [file.name for file in shop.release.iterdir()
                 if file.is_file() and file.read_bytes() != (again / file.name).read_bytes()]
    yield "built again in another folder, all files are the same", different
    held = [str(file.relative_to(shop.folder)) for file in (again.parent / "again-installed").rglob("*")
            if file.is_file() and str(ROOT).encode() in file.read_bytes()]
    yield "nothing that is installed holds a path of this machine", held


def port_run(shop: Workshop, work: Path) -> Path:
    """Runs the vcpkg port, with the tool; returns the folder of what it has installed. (It has no tool in debug/.)"""
    run("cmake", f"-DPORT={ROOT / 'packaging/vcpkg/kiv'}", f"-DSOURCE={ROOT}", f"-DBUILT={shop.built}", f"-DWORK={work}",
        f"-DTOOLCHAIN={TOOLCHAIN}", "-DFEATURES=tool", "-P", HERE / "standins/vcpkg.cmake")
    return work / "packages/kiv"


def port_faults(installed: Path) -> list[str]:
    """What vcpkg would reject of what a port has installed, by its documentation."""
    faults = [str(file) for pattern in ("debug/include", "debug/share", "**/lib/cmake", "**/bin/*.exe", "**/lib/*.dll", "share/doc")
              for file in installed.glob(pattern)]
    faults += [f"no {name}" for name in ("include/kiv/kiv.h", "share/kiv/copyright", "share/kiv/usage", "share/kiv/kivConfig.cmake",
                                         "lib/pkgconfig/kiv.pc", "bin/kiv.dll", "debug/bin/kiv.dll",
                                         "tools/kiv/kiv-resolve.exe", "tools/kiv/kiv.dll")
               if not (installed / name).is_file()]
    faults += [f"{folder} is empty" for folder in installed.rglob("*") if folder.is_dir() and not any(folder.iterdir())]
    faults += [f"{file} has a path of this machine" for file in installed.rglob("*")
               if file.is_file() and str(ROOT).encode() in file.read_bytes()]
    return faults


def vcpkg(shop: Workshop) -> Iterator[Check]:
    """The port, and a program that finds what it installs."""
    manifest = json.loads((ROOT / "packaging/vcpkg/kiv/vcpkg.json").read_text(encoding="utf-8"))
    order = ["name", "version", "description", "homepage", "license", "supports", "dependencies", "features"]
    yield "vcpkg.json has the keys that vcpkg knows, in its order", "" if [*manifest] == order else [*manifest]
    names = [dependency["name"] for dependency in manifest["dependencies"]]
    unsorted = names != sorted(names) or any(feature["dependencies"] != sorted(feature["dependencies"])
                                             for feature in manifest["features"].values())
    yield "its dependencies are sorted", unsorted
    installed = port_run(shop, shop.folder / "vcpkg")
    yield "the port installs what vcpkg takes", port_faults(installed)
    consumer = shop.folder / "vcpkg-consumer"
    consumer.mkdir()
    # As the usage says it.
    lines = [line.strip() for line in (installed / "share/kiv/usage").read_text(encoding="utf-8").splitlines() if line.startswith("    ")]
    (consumer / "CMakeLists.txt").write_text("cmake_minimum_required(VERSION 3.16)\nproject(main CXX)\nset(CMAKE_CXX_STANDARD 17)\n"
                                             + lines[0] + "\nadd_executable(main main.cpp)\n" + "\n".join(lines[1:])
                                             + "\ntarget_link_options(main PRIVATE -static)\n", encoding="utf-8")
    shutil.copy2(ROOT / "packaging/conan/test_package/main.cpp", consumer)
    run("cmake", "-S", consumer, "-B", consumer / "build", "-G", "Ninja", "--toolchain", TOOLCHAIN, f"-Dkiv_DIR={installed / 'share/kiv'}")
    run("cmake", "--build", consumer / "build")
    for dll in (installed / "bin").glob("*.dll"):
        shutil.copy2(dll, consumer / "build")
    said = run_in_wine(consumer / "build/main.exe")
    yield "a program that does what its usage says runs", "" if said == PROXY else said


def prepared_recipe(folder: Path, system: tuple[str, str] = ("Windows", "x86_64")) -> conan_standin.ConanFile:
    """The recipe for Conan, that works in this folder."""
    file = ROOT / "packaging/conan/conanfile.py"
    recipe = conan_standin.load(file)
    recipe.prepare(file, folder, system)
    return recipe


def conan(shop: Workshop) -> Iterator[Check]:
    """The recipe, and the program of its test_package."""
    folder = shop.folder / "conan"
    recipe = prepared_recipe(folder)
    for method in ("export_sources", "layout", "validate", "generate", "build", "package", "package_info"):
        getattr(recipe, method)()
    package = Path(recipe.package_folder)
    found = {str(file.relative_to(package)) for file in package.rglob("*") if file.is_file() and file.suffix != ".h"}
    expected = {"bin/kiv.dll", "bin/kiv-session.dll", "include/kiv/kiv.hpp", "include/kiv/session.hpp", "licenses/LICENSE",
                "licenses/NOTICES.txt", *(f"lib/{name}" for stem in ("kiv", "kiv-session") for name in
                                          (f"{stem}.def", f"{stem}.lib", f"lib{stem}.a", f"lib{stem}.dll.a"))}
    yield "the recipe packages the DLLs, their libraries and headers", found ^ expected
    for system in (("Linux", "x86_64"), ("Windows", "x86")):
        try:
            prepared_recipe(folder, system).validate()
            yield f"it refuses {' '.join(system)}", "it does not"
        except conan_standin.InvalidConfiguration:
            yield f"it refuses {' '.join(system)}", ""
    program = ROOT / "packaging/conan/test_package/conanfile.py"
    test = conan_standin.load(program)
    test.prepare(program, folder / "test")
    test.source_folder = test.recipe_folder
    test.tested_reference_str = f"kiv/{recipe.version}"
    test.requirements()
    conan_standin.write_config(recipe, Path(recipe.package_folder))
    test.cache_variables = {"kiv_DIR": recipe.package_folder}
    test.build()
    for dll in (package / "bin").glob("*.dll"):
        shutil.copy2(dll, test.build_folder)
    test.test()
    yield "the program of test_package runs", "" if test.output == PROXY else test.output


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
    yield "each part has a kind", {name for name in names if name.rpartition(".")[2] not in kinds} - {"[Content_Types].xml"}
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
    run("clang", "--target=x86_64-pc-windows-msvc", "-ffreestanding", "-isystem", HERE / "consumer-visual-c/include",
        *(f"-I{path}" for path in includes), HERE / "consumer-visual-c/main.c", *libraries, "-fuse-ld=lld", "-nostdlib",
        "-Wl,/entry:start", "-Wl,/subsystem:console", "-o", program)
    for dll in dlls:
        shutil.copy2(dll, program.parent)
    ended = subprocess.run([ROOT / "scripts/in_wine.sh", program], check=False).returncode
    yield "a program that is built as it says runs", "" if ended == 42 else ended


def winget(shop: Workshop) -> Iterator[Check]:
    """The manifests: the fields that winget requires, by its documentation."""
    manifests = {file.name: yaml.safe_load(file.read_text(encoding="utf-8")) for file in (shop.release / "winget").iterdir()}
    required = {
        "": ("version", {"DefaultLocale"}),
        ".locale.en-US": ("defaultLocale", {"PackageLocale", "Publisher", "PackageName", "License", "ShortDescription"}),
        ".installer": ("installer", {"Installers", "InstallerType", "NestedInstallerType", "NestedInstallerFiles", "Commands",
                                     "ArchiveBinariesDependOnPath"}),
    }
    identifier = release.WINGET_IDENTIFIER
    yield "there are three manifests", manifests.keys() ^ {f"{identifier}{part}.yaml" for part in required}
    yield "winget takes the identifier", "" if re.fullmatch(r"[^.\s\\/:*?\"<>|]{1,32}(\.[^.\s\\/:*?\"<>|]{1,32}){1,7}", identifier) else identifier
    for part, (kind, fields) in required.items():
        manifest = manifests[f"{identifier}{part}.yaml"]
        common = {"PackageIdentifier": identifier, "PackageVersion": shop.version, "ManifestType": kind, "ManifestVersion": "1.12.0"}
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


def sbom(shop: Workshop) -> Iterator[Check]:
    """The SPDX document, and the notices for what it lists."""
    document = json.loads((shop.release / f"kiv-{shop.version}.spdx.json").read_text(encoding="utf-8"))
    required = {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo", "packages", "relationships"}
    yield "the document has what SPDX 2.3 requires", required - document.keys()
    parts = {part["SPDXID"]: part for part in document["packages"]}
    yield "so has each of its packages", [identifier for identifier, part in parts.items()
                                          if not {"name", "downloadLocation"} <= part.keys() or part["filesAnalyzed"]
                                          or not re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", identifier)]
    named = {identifier for one in document["relationships"] for identifier in (one["spdxElementId"], one["relatedSpdxElement"])}
    yield "relationships are between what it describes", named ^ {*parts, "SPDXRef-DOCUMENT"}
    said = {licence for part in parts.values() for licence in re.findall(r"LicenseRef-[\w.-]+", part["licenseDeclared"])}
    own = {info["licenseId"]: info["extractedText"] for info in document["hasExtractedLicensingInfos"]}
    yield "licences without a name at SPDX have their text", said ^ own.keys() or [name for name, text in own.items() if len(text) < 1000]
    described = {one["relatedSpdxElement"] for one in document["relationships"] if one["relationshipType"] == "DESCRIBES"}
    binaries = {parts[identifier]["name"]: identifier for identifier in described}
    with zipfile.ZipFile(shop.release / f"kiv-{shop.version}-windows-x64.zip") as opened:
        data = {Path(name).name: opened.read(name) for name in opened.namelist() if name.endswith((".dll", ".exe"))}
    yield "it describes each binary", binaries.keys() ^ {*data, "kiv_session.node"}
    sums = {name: sha256(content).hexdigest() for name, content in data.items()}
    yield "as it is released", [name for name, value in sums.items()
                                if parts[binaries[name]]["checksums"][0]["checksumValue"] != value]
    yield "each part has a version", [part["name"] for part in parts.values() if not part.get("versionInfo")]
    notices = (ROOT / "NOTICES.txt").read_text(encoding="utf-8")
    yield "NOTICES.txt has the text for each binary", unnoticed(document, parts, notices)
    yield "a library that nobody has described is refused", "" if refused(shop) else "it is not"
    yield "so is a header of such a library", undescribed_headers(shop)


def unnoticed(document: dict, parts: dict, text: str) -> list[str]:
    """What the notices say of binaries otherwise than the document does."""
    linked_in: dict[str, set[str]] = {}
    for one in document["relationships"]:
        if one["relationshipType"] == "STATIC_LINK":
            linked_in.setdefault(parts[one["relatedSpdxElement"]]["name"], set()).add(parts[one["spdxElementId"]]["name"])
    sections = linked.notices(text)
    wrong = []
    for component in linked.COMPONENTS:
        users = linked_in.get(component.name, set())
        for heading in component.notices:
            said, _ = sections.get(heading, (set(), ""))
            wrong += [f"{heading}: {name}" for name in said ^ users]
        if not component.notices and component.name not in text.partition("\n\n\n")[0]:
            wrong.append(component.name)
    return wrong + sorted(sections.keys() - {heading for component in linked.COMPONENTS for heading in component.notices})


def refused(shop: Workshop) -> bool:
    """Whether a list of the linker with an unknown library is refused."""
    map_file = shop.folder / "unknown.map"
    map_file.write_text("lib/libkiv_parts.a(a.obj)\n  main.obj (a)\n../other/libother.a(b.o)\n  a.obj (b)\n", encoding="utf-8")
    try:
        linked.contents_of({"kiv.dll": map_file})
    except linked.Unknown as unknown:
        return "libother.a" in str(unknown)
    return False


def undescribed_headers(shop: Workshop) -> set[str]:
    """Headers of the machine, other than the compilers', that something is compiled with which is no test."""
    found = set()
    released = False
    for line in run("ninja", "-C", shop.built, "-t", "deps").splitlines():
        if not line.startswith(" "):
            released = not line.startswith(("bench/", "examples/", "googletest/", "tests/"))
        elif released:
            found.add(os.path.realpath(shop.built / line.strip()))
    headers = {header for header in found if header.startswith("/usr/include/")}
    known = [str(Path(component.files).parent) for component in linked.COMPONENTS if component.headers_in]
    if not headers:
        return {"ninja tells of no header"}
    return {header for header in headers if not header.startswith(tuple(known))}


def placeholders(_: Workshop) -> Iterator[Check]:
    """What the publisher has to fill in is in one table."""
    rows = dict(re.findall(r"^\| `(<?[\w. ]+>?)` \| (.+?) \| .+ \|$", RELEASING.read_text(encoding="utf-8").partition("## Placeholders")[2],
                           re.M))
    files = [ROOT / "SECURITY.md", ROOT / "docs/internals/releasing.md",
             *(file for file in (ROOT / "packaging").rglob("*") if file.is_file() and "__pycache__" not in file.parts)]
    used = {name for file in files if file != RELEASING for name in
            re.findall(r"(?<!#include )(?:<|&lt;)(?:owner|repository|security contact)(?:>|&gt;)|OWNER", file.read_text(encoding="utf-8"))}
    used = {name.replace("&lt;", "<").replace("&gt;", ">") for name in used}
    yield "each placeholder is in the table of docs/internals/releasing.md", used ^ rows.keys()
    misplaced = [f"{name}: {place}" for name, places in rows.items() for place in re.findall(r"`([^`]+)`", places)
                 if name.strip("<>") not in (ROOT / place).read_text(encoding="utf-8")]
    yield "each stands where the table says", misplaced


PARTS = (whole, placeholders, vcpkg, conan, nuget, winget, sbom, reproducible)


def checks(part, shop: Workshop) -> Iterator[Check]:
    """The checks of a part; what stops it is one that failed."""
    try:
        yield from part(shop)
    except Exception:  # Whatever a recipe may raise.
        yield f"{part.__name__} goes to its end", traceback.format_exc()


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--built", type=Path, required=True, help="the build for Windows, with bin/ and lib/")
    parser.add_argument("--work", type=Path, required=True, help="a folder for all that the run writes")
    parser.add_argument("--filter", default="", help="only the parts whose name contains this text")
    options = parser.parse_args()
    shop = Workshop(options.built.resolve(), options.work.resolve())
    conan_standin.install(conan_standin.Ground(TOOLCHAIN, shop.built, run_in_wine))
    failed = passed = 0
    for part in PARTS:
        if options.filter not in part.__name__:
            continue
        for name, problem in checks(part, shop):
            print(f"FAIL  {name}\n{problem}" if problem else f"ok    {name}", flush=True)
            failed += bool(problem)
            passed += not problem
    return report(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
