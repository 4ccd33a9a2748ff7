#!/usr/bin/env python3
"""Makes the files of a release and opens each; runs the recipes of packaging/ and uses what they install.

    packaging_test.py --built FOLDER --work FOLDER [--filter TEXT | --rebuild]

With --rebuild it builds all once more instead, and compares the files.

vcpkg and Conan are not in Debian: their recipes run with stand-ins for both.
"""

from __future__ import annotations

import argparse
import re
import sys
import traceback
from collections.abc import Callable, Iterator
from hashlib import sha256
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / folder) for folder in ("tests/e2e", "bindings", "packaging", "tests/package")]

# The modules of the harness, of the packaging and of these checks, which stand where Python does not look by itself.
import packages  # noqa: E402
from harness.results import report  # noqa: E402
from checks import conan_standin  # noqa: E402
from checks.contents import sbom  # noqa: E402
from checks.formats import nuget, winget  # noqa: E402
from checks.recipes import conan, prepared_recipe, vcpkg  # noqa: E402
from checks.workshop import TOOLCHAIN, Check, Workshop, in_lib, run, run_in_wine  # noqa: E402

RELEASING = ROOT / "docs/releasing.md"


def whole(shop: Workshop) -> Iterator[Check]:
    """What a release consists of, and what all its files say."""
    table = {name.replace("<version>", shop.version) for name in
             re.findall(r"^\| `([^`]+)` \|", RELEASING.read_text(encoding="utf-8").partition("## Packages")[0], re.M)}
    made = {file.name + "/" * file.is_dir() for file in shop.release.iterdir()}
    yield "the files are those of docs/releasing.md", table ^ made
    expected = {file.name: sha256(file.read_bytes()).hexdigest() for file in shop.release.iterdir()
                if file.is_file() and file.name != "SHA256SUMS"}
    sums = (shop.release / "SHA256SUMS").read_text(encoding="ascii").splitlines()
    yield "SHA256SUMS has the sum of each file", {*sums} ^ {f"{value}  {name}" for name, value in expected.items()}
    said = in_lib(f"cd '{shop.release}' && sha256sum --strict -c SHA256SUMS")
    yield "sha256sum takes it", "" if said.count(": OK") == len(expected) else said
    yield "each file has the version in its name", [name for name in expected if shop.version not in name]
    yield "each recipe and binding has the version", packages.other_versions(shop.version)
    yield "another version is refused", len(packages.other_versions("0.0.0")) != len(packages.VERSIONS)


def reproducible(shop: Workshop) -> Iterator[Check]:
    """The sources that the Conan recipe takes give the same files, byte for byte, in a folder of another name."""
    source = shop.folder / "another/folder/of-a-longer-name"
    recipe = prepared_recipe(source)
    recipe.export_sources()
    sources = Path(recipe.source_folder)
    built = source / "build"
    cmake = sources / "cmake"
    run("cmake", "-S", sources, "-B", built, "-G", "Ninja", "--toolchain", cmake / "mingw-w64-x86_64.cmake",
        f"-DKIV_DLL_TOOLCHAIN={cmake / 'mingw-w64-x86_64-win32.cmake'}", "-DCMAKE_BUILD_TYPE=Release",
        "-DKIV_TESTS=OFF", f"-DKIV_BEARSSL_SOURCES={ROOT / 'build/bearssl/sources'}")
    run("cmake", "--build", built, "--target", *in_lib('echo "${RELEASED[@]}"').split())
    again = shop.make(built, "again")
    different = [file.name for file in shop.release.iterdir()
                 if file.is_file() and file.read_bytes() != (again / file.name).read_bytes()]
    yield "built again in another folder, all files are the same", different


def placeholders(_: Workshop) -> Iterator[Check]:
    """What the publisher has to fill in is in one table."""
    table = RELEASING.read_text(encoding="utf-8").partition("## Placeholders")[2]
    rows = dict(re.findall(r"^\| `(<?[\w ]+>?)` \| (.+?) \| .+ \|$", table, re.M))
    files = [ROOT / "SECURITY.md", *(file for file in (ROOT / "packaging").rglob("*") if file.suffix != ".pyc")]
    texts = {str(file.relative_to(ROOT)): file.read_text(encoding="utf-8").replace("&lt;", "<").replace("&gt;", ">")
             for file in files if file.is_file()}
    used = {(name, place) for place, text in texts.items()
            for name in re.findall(r"<(?:owner|repository|security contact)>|\bOWNER\b", text)}
    listed = {(name, place) for name, places in rows.items() for place in re.findall(r"`([^`]+)`", places)}
    yield "docs/releasing.md lists each placeholder, and where it stands", used ^ listed


PARTS = (whole, placeholders, vcpkg, conan, nuget, winget, sbom)


def checks(part: Callable[[Workshop], Iterator[Check]], shop: Workshop) -> Iterator[Check]:
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
    parser.add_argument("--rebuild", action="store_true", help="only compare with a second build")
    options = parser.parse_args()
    shop = Workshop(options.built.resolve(), options.work.resolve())
    conan_standin.install(conan_standin.Ground(TOOLCHAIN, shop.built, run_in_wine))
    failed = passed = 0
    for part in (reproducible,) if options.rebuild else PARTS:
        if options.filter not in part.__name__:
            continue
        for name, problem in checks(part, shop):
            print(f"FAIL  {name}\n{problem}" if problem else f"ok    {name}", flush=True)
            failed += bool(problem)
            passed += not problem
    return report(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
