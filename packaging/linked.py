"""Tells what of other libraries is in kiv's binaries, by what the linker has listed, as a document of SPDX 2.3."""

from __future__ import annotations

import hashlib
import json
import os
import re
import subprocess
import uuid
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"


class Unknown(Exception):
    """Something is linked in of which this file does not tell whose it is."""


@dataclass(frozen=True)
class Component:
    """A library that is linked in statically, or compiled in as headers."""

    name: str
    licence: str
    files: str
    """An expression for the archives and objects that the linker takes of it, or for its headers."""
    notices: tuple[str, ...] = ()
    """The headings of its texts in NOTICES.txt; none where the text at the top speaks of it."""
    headers_in: tuple[str, ...] = ()
    """The binaries that its headers are compiled into; the linker does not list these."""


# Archives that the build makes of kiv itself.
OURS = re.compile(r"(^|/)lib(kiv[\w-]*(\.dll)?|\w+_delay)\.a$")
LIBRARIES = r"/x86_64-w64-mingw32/lib/"
PROGRAMS = ("kiv-resolve.exe", "kiv-selfcheck.exe")
COMPONENTS = (
    Component("libgcc", GCC_LICENCE, r"/lib/gcc/.+/(libgcc(_eh)?\.a|crt(begin|end)\.o)$"),
    Component("libstdc++", GCC_LICENCE, r"/lib/gcc/.+/libstdc\+\+\.a$"),
    Component("winpthreads", "MIT AND BSD-3-Clause", LIBRARIES + r"lib(win)?pthread\.a$",
              ("winpthreads", "pthread.h of winpthreads")),
    Component("MinGW-w64 run-time library", "LicenseRef-MinGW-w64", LIBRARIES + r"((dll)?crt2u?\.o|lib\w+\.a)$",
              ("MinGW-w64 run-time library", "gdtoa, in the MinGW-w64 run-time library",
               "qnan.c and strtodnrp.c, in gdtoa", "strtok_r.c and dll_math.c, in MinGW-w64")),
    Component("BearSSL", "MIT", r"(^|/)libbearssl\.a$", ("BearSSL",)),
    Component("CLI11", "BSD-3-Clause", "/usr/include/CLI/CLI.hpp", ("CLI11",), PROGRAMS),
    Component("JSON for Modern C++", "MIT", "/usr/include/nlohmann/json.hpp", ("JSON for Modern C++",), PROGRAMS),
)


def linked_files(map_file: Path) -> set[str]:
    """The archives and start-up objects of other libraries that a binary has parts of, by the linker's list."""
    listed = map_file.read_text(encoding="utf-8")
    # A line that begins with "archive(member)" says why that was taken; of objects the whole is.
    members = re.findall(r"^(\S+\.a)\(\S+\)", listed, re.M)
    objects = re.findall(r"^LOAD (/usr/\S+\.o)$", listed, re.M)
    return {os.path.normpath(file) for file in members + objects if not OURS.search(file)}


def component_of(file: str) -> Component:
    for component in COMPONENTS:
        if re.search(component.files, file):
            return component
    raise Unknown(f"{file} is linked in, and packaging/linked.py does not know it")


def contents_of(maps: Mapping[str, Path]) -> dict[str, dict[Component, set[str]]]:
    """The components of each binary, with their files, by the binaries' names and the linker's lists."""
    found: dict[str, dict[Component, set[str]]] = {}
    for binary, map_file in maps.items():
        of_binary = found.setdefault(binary, {})
        for file in linked_files(map_file):
            of_binary.setdefault(component_of(file), set()).add(file)
        if not of_binary:
            raise Unknown(f"{map_file} lists no library")
        for component in COMPONENTS:
            if binary in component.headers_in:
                of_binary[component] = {component.files}
    return found


def debian_packages(files: Iterable[str]) -> set[tuple[str, str]]:
    """The Debian packages that these files are of, with their versions: built here from sources, or installed."""
    sources = {(name, version) for name, _, version in (file.stem.partition("_") for file in ROOT.glob("build/*/*.dsc"))
               if any(Path(archive).name == f"lib{name}.a" for archive in files)}
    return sources or installed_packages(files)


def installed_packages(files: Iterable[str]) -> set[tuple[str, str]]:
    """Those that dpkg tells of."""
    owners = subprocess.run(["dpkg-query", "-S", *sorted(files)], stdout=subprocess.PIPE, text=True, check=True).stdout
    names = sorted({line.partition(":")[0] for line in owners.splitlines()})
    shown = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *names], stdout=subprocess.PIPE,
                           text=True, check=True).stdout
    return {(name, version) for name, _, version in (line.partition(" ") for line in shown.splitlines())}


def notices(text: str) -> dict[str, tuple[set[str], str]]:
    """The sections of NOTICES.txt: the binaries that each speaks of, and its licence."""
    sections: dict[str, tuple[set[str], str]] = {}
    binaries: set[str] = set()
    for heading, where, licence in re.findall(r"^(.+)\n-+\nIn (.+)\.\n\n((?:(?!.+\n--).*\n)+)", text, re.M):
        binaries = binaries if where == "the same files" else {*where.split(", ")}
        sections[heading] = binaries, licence.strip()
    return sections


def spdx_id(name: str) -> str:
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", name)


def spdx(version: str, binaries: Mapping[str, bytes], maps: Mapping[str, Path]) -> bytes:
    """The document: each binary, and what it has of each component, by the Debian package that this was taken from."""
    packages: list[dict[str, object]] = []
    relationships: list[tuple[str, str, str]] = []
    taken: dict[str, dict[str, object]] = {}
    for name, data in sorted(binaries.items()):
        packages.append({"name": name, "SPDXID": spdx_id(name), "versionInfo": version, "packageFileName": name,
                         "checksums": [{"algorithm": "SHA256", "checksumValue": hashlib.sha256(data).hexdigest()}],
                         "licenseDeclared": "MIT"})
        relationships.append(("SPDXRef-DOCUMENT", "DESCRIBES", spdx_id(name)))
    for binary, components in sorted(contents_of(maps).items()):
        for component, files in components.items():
            for package, debian_version in debian_packages(files):
                identifier = spdx_id(f"{component.name}-{package}")
                url = f"pkg:deb/debian/{package}@{debian_version.replace('+', '%2B')}"
                taken[identifier] = {"name": component.name, "SPDXID": identifier, "versionInfo": debian_version,
                                     "licenseDeclared": component.licence,
                                     "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                                       "referenceLocator": url}]}
                relationships.append((spdx_id(binary), "STATIC_LINK", identifier))
    packages += [taken[identifier] for identifier in sorted(taken)]
    unsaid = {"downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": "NOASSERTION",
              "copyrightText": "NOASSERTION"}
    texts = notices((ROOT / "NOTICES.txt").read_text(encoding="utf-8"))
    document: dict[str, object] = {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": f"kiv-{version}",
        # A name of its own for each set of binaries.
        "documentNamespace": uuid.uuid5(uuid.NAMESPACE_OID, json.dumps(packages)).urn,
        # The day of all that kiv packs.
        "creationInfo": {"created": "1980-01-02T00:00:00Z", "creators": [f"Tool: kiv-packaging-{version}"]},
        "packages": [{**package, **unsaid} for package in packages],
        "hasExtractedLicensingInfos": [
            {"licenseId": component.licence, "name": component.name,
             "extractedText": "\n\n\n".join(texts[heading][1] for heading in component.notices)}
            for component in COMPONENTS if component.licence.startswith("LicenseRef-")],
        "relationships": [{"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}
                          for one, kind, other in sorted(relationships)],
    }
    return (json.dumps(document, indent=2) + "\n").encode()
