"""Stands in for Conan 2: what recipes import of it, as far as kiv's recipe uses it.

Recipes run as they are. CMake is really configured, and really installs; what it would build is taken from a build that
is there. A name that Conan does not have, and a file that is missing, is an error.
"""

from __future__ import annotations

import importlib.util
import shutil
import subprocess
import sys
import types
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

ATTRIBUTES = {"name", "version", "license", "author", "url", "description", "topics", "package_type", "settings",
              "generators", "export_sources", "requirements", "layout", "validate", "generate", "build", "package",
              "package_info", "test"}
"""What Conan reads of a recipe, as far as it is known here."""
PROPERTIES = {"cmake_file_name", "cmake_target_name", "pkg_config_name"}


class InvalidConfiguration(Exception):
    """What a recipe raises for a system that it is not for."""


@dataclass(frozen=True)
class Ground:
    """Where recipes work, and with what."""

    toolchain: Path
    built: Path
    """A build whose bin/ and lib/ are taken for what a recipe builds."""
    run: Callable[[Path], str]
    """Runs a program for Windows, and gives what it printed."""


@dataclass
class Info:
    libs: list[str] = field(default_factory=list)
    properties: dict[str, str] = field(default_factory=dict)

    def set_property(self, name: str, value: str) -> None:
        if name not in PROPERTIES:
            raise NameError(f"Conan has no property {name}")
        self.properties[name] = value


class Components(dict[str, Info]):
    def __missing__(self, name: str) -> Info:
        return self.setdefault(name, Info())


class RecipeInfo(Info):
    def __init__(self) -> None:
        super().__init__()
        self.components = Components()


class ConanFile:
    ground: Ground
    tested_reference_str = ""

    def prepare(self, recipe: Path, folder: Path, system: tuple[str, str] = ("Windows", "x86_64")) -> None:
        """Sets what Conan sets before it calls the methods."""
        unknown = {name for name in vars(type(self)) if not name.startswith("_")} - ATTRIBUTES
        if unknown:
            raise NameError(f"Conan reads no {', '.join(sorted(unknown))}")
        self.recipe_folder = str(recipe.parent)
        self.export_sources_folder = self.source_folder = str(folder / "source")
        self.build_folder = str(folder / "build")
        self.package_folder = str(folder / "package")
        self.settings = types.SimpleNamespace(os=system[0], arch=system[1], compiler="gcc", build_type="Release")
        self.cpp = types.SimpleNamespace(build=types.SimpleNamespace(bindir=self.build_folder))
        self.cpp_info = RecipeInfo()
        self.required: list[str] = []
        self.cache_variables: dict[str, object] = {}
        self.output = ""

    def requires(self, reference: str) -> None:
        self.required.append(reference)

    def run(self, command: str, env: str) -> None:
        if env != "conanrun":
            raise NameError(f"{env} is no environment to run in")
        self.output = self.ground.run(Path(command + ".exe"))


class CMakeToolchain:
    def __init__(self, recipe: ConanFile) -> None:
        self.recipe = recipe
        self.cache_variables: dict[str, object] = {}

    def generate(self) -> None:
        self.recipe.cache_variables = self.cache_variables


class CMake:
    def __init__(self, recipe: ConanFile) -> None:
        self.recipe = recipe

    def configure(self) -> None:
        values = {name: ("ON" if value else "OFF") if isinstance(value, bool) else value
                  for name, value in self.recipe.cache_variables.items()}
        said = cmake("-S", self.recipe.source_folder, "-B", self.recipe.build_folder, "-G", "Ninja", "--toolchain",
                     self.recipe.ground.toolchain, "-DCMAKE_BUILD_TYPE=Release",
                     *(f"-D{name}={value}" for name, value in values.items()))
        if "not used by the project" in said:
            raise NameError(said)

    def build(self) -> None:
        if self.recipe.required:
            cmake("--build", self.recipe.build_folder)
            return
        # Tells of inputs that are missing.
        subprocess.run(["ninja", "-C", self.recipe.build_folder, "-n"], stdout=subprocess.DEVNULL, check=True)
        for folder in ("bin", "lib"):
            shutil.copytree(self.recipe.ground.built / folder, Path(self.recipe.build_folder, folder),
                            ignore=shutil.ignore_patterns("*.exe"), dirs_exist_ok=True)

    def install(self) -> None:
        cmake("--install", self.recipe.build_folder, "--prefix", self.recipe.package_folder)


def cmake(*arguments: object) -> str:
    done = subprocess.run(["cmake", *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    if done.returncode:
        raise RuntimeError(done.stdout)
    return done.stdout


def copy(_: ConanFile, pattern: str, src: str, dst: str) -> None:
    """Copies a file, or a whole folder where the pattern ends with a star, which stands for slashes too."""
    source = Path(src)
    top = source / pattern.removesuffix("/*")
    if "*" in str(top):
        raise ValueError(f"{pattern} also takes files of folders like build/")
    found = [file for file in top.rglob("*") if file.is_file()] if pattern.endswith("/*") else [top]
    if not found:
        raise FileNotFoundError(f"nothing is {pattern} in {source}")
    for file in found:
        place = Path(dst) / file.relative_to(source)
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(file, place)


def rmdir(_: ConanFile, path: str) -> None:
    # (Conan itself does not mind one that is missing.)
    shutil.rmtree(path)


def install(ground: Ground) -> None:
    """Makes the modules that recipes import."""
    ConanFile.ground = ground
    modules = {
        "conan": {"ConanFile": ConanFile},
        "conan.errors": {"ConanInvalidConfiguration": InvalidConfiguration},
        "conan.tools": {},
        "conan.tools.build": {"can_run": lambda _: True},
        "conan.tools.cmake": {"CMake": CMake, "CMakeToolchain": CMakeToolchain, "cmake_layout": lambda _: None},
        "conan.tools.files": {"copy": copy, "rmdir": rmdir},
    }
    for name, names in modules.items():
        module = types.ModuleType(name)
        vars(module).update(names)
        sys.modules[name] = module


def load(recipe: Path) -> ConanFile:
    """The recipe of a file."""
    spec = importlib.util.spec_from_file_location(recipe.parent.name, recipe)
    assert spec and spec.loader
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    (kind,) = [value for value in vars(module).values() if isinstance(value, type) and issubclass(value, ConanFile)
               and value is not ConanFile]
    return kind()


def write_config(recipe: ConanFile, folder: Path) -> None:
    """Writes what find_package reads for a package, from what its recipe tells of it."""
    lines = []
    for info in recipe.cpp_info.components.values():
        target = info.properties["cmake_target_name"]
        libraries = [f"{recipe.package_folder}/lib/lib{name}.dll.a" for name in info.libs]
        missing = [library for library in libraries if not Path(library).exists()]
        if missing:
            raise FileNotFoundError(", ".join(missing))
        lines += [f"add_library({target} INTERFACE IMPORTED)",
                  f"target_link_libraries({target} INTERFACE {' '.join(libraries)})",
                  f"target_include_directories({target} INTERFACE {recipe.package_folder}/include)"]
    config = folder / f"{recipe.cpp_info.properties['cmake_file_name']}-config.cmake"
    config.write_text("\n".join(lines), encoding="utf-8")
