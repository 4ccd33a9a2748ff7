"""Compares the SPDX document with the binaries and with NOTICES.txt."""

from __future__ import annotations

import json
import os
import re
import zipfile
from collections.abc import Iterator
from hashlib import sha256
from pathlib import Path
from typing import Any

import linked

from .workshop import ROOT, Check, Workshop, run


def sbom(shop: Workshop) -> Iterator[Check]:
    """The SPDX document, and the notices for what it lists."""
    document = json.loads((shop.release / f"kiv-{shop.version}.spdx.json").read_text(encoding="utf-8"))
    required = "spdxVersion dataLicense SPDXID name documentNamespace creationInfo packages relationships"
    yield "the document has what SPDX 2.3 requires", {*required.split()} - document.keys()
    parts = {part["SPDXID"]: part for part in document["packages"]}
    yield "so has each of its packages", [identifier for identifier, part in parts.items()
                                          if not {"name", "downloadLocation"} <= part.keys() or part["filesAnalyzed"]
                                          or not re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", identifier)]
    relationships = document["relationships"]
    named = {one[side] for one in relationships for side in ("spdxElementId", "relatedSpdxElement")}
    yield "relationships are between what it describes", named ^ {*parts, "SPDXRef-DOCUMENT"}
    declared = " ".join(part["licenseDeclared"] for part in parts.values())
    texts = {info["licenseId"]: info["extractedText"] for info in document["hasExtractedLicensingInfos"]}
    unnamed = {*re.findall(r"LicenseRef-[\w.-]+", declared)}
    yield "licences without a name at SPDX have their text", texts.keys() ^ unnamed
    yield "which is whole", [name for name, text in texts.items() if len(text) < 1000]
    described = {one["relatedSpdxElement"] for one in relationships if one["relationshipType"] == "DESCRIBES"}
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
    yield "its licences are those of Debian's copyright files", otherwise_licensed(document, notices)
    yield "a library that nobody has described is refused", "" if refused(shop) else "it is not"
    yield "so is a header of such a library", undescribed_headers(shop)


def unnoticed(document: dict[str, Any], parts: dict[str, Any], text: str) -> list[str]:
    """What the notices say of binaries otherwise than the document does."""
    linked_in: dict[str, set[str]] = {}
    for one in document["relationships"]:
        if one["relationshipType"] == "STATIC_LINK":
            library, binary = parts[one["relatedSpdxElement"]], parts[one["spdxElementId"]]
            linked_in.setdefault(library["name"], set()).add(binary["name"])
    sections = linked.notices(text)
    wrong = []
    for component in linked.COMPONENTS:
        users = linked_in.get(component.name, set())
        for heading in component.notices:
            said = sections[heading][0] if heading in sections else set()
            wrong += [f"{heading}: {name}" for name in said ^ users]
        if not component.notices and component.name not in text.partition("\n\n\n")[0]:
            wrong.append(component.name)
    known = {heading for component in linked.COMPONENTS for heading in component.notices}
    return wrong + sorted(sections.keys() - known)


def letters(text: str) -> str:
    """A text without what differs by where it stands."""
    return re.sub(r"[^a-z0-9]+", "", text.lower())


def otherwise_licensed(document: dict[str, Any], text: str) -> list[str]:
    """The paragraphs of the notices, but for the names of the authors, that Debian's copyright files do not have."""
    sections = linked.notices(text)
    wrong = []
    for part in document["packages"]:
        for package in re.findall(r"pkg:deb/debian/(.+)@", str(part.get("externalRefs"))):
            copyright_file = Path("/usr/share/doc", package, "copyright")
            (component,) = [one for one in linked.COMPONENTS if one.name == part["name"]]
            if copyright_file.exists():
                said = letters(copyright_file.read_text(encoding="utf-8"))
                wrong += [f"{heading}: {paragraph}" for heading in component.notices
                          for paragraph in sections[heading][1].split("\n\n")
                          if not paragraph.startswith("Copyright (c)") and letters(paragraph) not in said]
    return wrong


def refused(shop: Workshop) -> bool:
    """Whether a list of the linker with an unknown library is refused."""
    map_file = shop.folder / "unknown.map"
    map_file.write_text("lib/libkiv_parts.a(a.obj)\n  main.obj (a)\n../other/libother.a(b.o)\n  a.obj (b)\n",
                        encoding="utf-8")
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
