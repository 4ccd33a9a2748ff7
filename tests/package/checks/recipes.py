"""Runs the recipes for vcpkg and Conan with stand-ins for both, and programs that are built with what these install."""

from __future__ import annotations

import json
import shutil
from collections.abc import Iterator
from pathlib import Path

from . import conan_standin
from .workshop import ROOT, TOOLCHAIN, Check, Workshop, run, run_in_wine

PORT = ROOT / "packaging/vcpkg/kiv"
RECIPE = ROOT / "packaging/conan/conanfile.py"
PROXY = "http://proxy.test:8080"
"""What the program of test_package says."""


def port_run(shop: Workshop, work: Path) -> Path:
    """Runs the vcpkg port, with the tool; returns the folder of what it has installed. (It has no tool in debug/.)"""
    run("cmake", f"-DPORT={PORT}", f"-DSOURCE={ROOT}", f"-DBUILT={shop.built}", f"-DWORK={work}",
        f"-DTOOLCHAIN={TOOLCHAIN}", "-DFEATURES=tool", "-P", Path(__file__).with_name("vcpkg_standin.cmake"))
    return work / "packages/kiv"


def port_faults(installed: Path) -> list[str]:
    """What vcpkg would reject of what a port has installed, by its documentation."""
    misplaced = ("debug/include", "debug/share", "**/lib/cmake", "**/bin/*.exe", "**/lib/*.dll", "share/doc")
    wanted = ("include/kiv/kiv.h", "share/kiv/copyright", "share/kiv/usage", "share/kiv/kivConfig.cmake",
              "lib/pkgconfig/kiv.pc", "bin/kiv.dll", "debug/bin/kiv.dll", "tools/kiv/kiv-resolve.exe", "tools/kiv/kiv.dll")
    faults = [str(file) for pattern in misplaced for file in installed.glob(pattern)]
    faults += [f"no {name}" for name in wanted if not (installed / name).is_file()]
    faults += [f"{folder} is empty" for folder in installed.rglob("*") if folder.is_dir() and not any(folder.iterdir())]
    faults += [f"{file} has a path of this machine" for file in installed.rglob("*")
               if file.is_file() and str(ROOT).encode() in file.read_bytes()]
    return faults


def vcpkg(shop: Workshop) -> Iterator[Check]:
    """The port, and a program that finds what it installs."""
    manifest = json.loads((PORT / "vcpkg.json").read_text(encoding="utf-8"))
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
    usage = (installed / "share/kiv/usage").read_text(encoding="utf-8")
    find, *link = [line.strip() for line in usage.splitlines() if line.startswith("    ")]
    lines = ["cmake_minimum_required(VERSION 3.16)", "project(main CXX)", "set(CMAKE_CXX_STANDARD 17)", find,
             "add_executable(main main.cpp)", *link, "target_link_options(main PRIVATE -static)"]
    (consumer / "CMakeLists.txt").write_text("\n".join(lines), encoding="utf-8")
    shutil.copy2(RECIPE.parent / "test_package/main.cpp", consumer)
    run("cmake", "-S", consumer, "-B", consumer / "build", "-G", "Ninja", "--toolchain", TOOLCHAIN,
        f"-Dkiv_DIR={installed / 'share/kiv'}")
    run("cmake", "--build", consumer / "build")
    for dll in (installed / "bin").glob("*.dll"):
        shutil.copy2(dll, consumer / "build")
    said = run_in_wine(consumer / "build/main.exe")
    yield "a program that does what its usage says runs", "" if said == PROXY else said


def prepared_recipe(folder: Path, system: tuple[str, str] = ("Windows", "x86_64")) -> conan_standin.ConanFile:
    """The recipe for Conan, that works in this folder."""
    recipe = conan_standin.load(RECIPE)
    recipe.prepare(RECIPE, folder, system)
    return recipe


def conan(shop: Workshop) -> Iterator[Check]:
    """The recipe, and the program of its test_package."""
    folder = shop.folder / "conan"
    recipe = prepared_recipe(folder)
    for method in ("export_sources", "layout", "validate", "generate", "build", "package", "package_info"):
        getattr(recipe, method)()
    package = Path(recipe.package_folder)
    found = {str(file.relative_to(package)) for file in package.rglob("*") if file.is_file() and file.suffix != ".h"}
    expected = {"bin/kiv.dll", "bin/kiv-session.dll", "include/kiv/kiv.hpp", "include/kiv/session.hpp",
                "licenses/LICENSE", "licenses/NOTICES.txt"}
    for name in ("kiv", "kiv-session"):
        expected |= {f"lib/{library}" for library in (f"{name}.def", f"{name}.lib", f"lib{name}.a", f"lib{name}.dll.a")}
    yield "the recipe packages the DLLs, their libraries and headers", found ^ expected
    for system in (("Linux", "x86_64"), ("Windows", "x86")):
        try:
            prepared_recipe(folder, system).validate()
            yield f"it refuses {' '.join(system)}", "it does not"
        except conan_standin.InvalidConfiguration:
            yield f"it refuses {' '.join(system)}", ""
    program = RECIPE.parent / "test_package/conanfile.py"
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
