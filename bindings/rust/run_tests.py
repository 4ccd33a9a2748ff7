#!/usr/bin/env python3
"""Tests the Rust crate with Debian's compiler: natively what needs no DLL, and in Wine all of it with the shipped
kiv-session.dll against real proxies; runs the program of its README and its example.

Ends with 77 where that compiler is not installed.
"""

from __future__ import annotations

import json
import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

BINDINGS = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(BINDINGS))

# These are found by the line above, and the harness through them.
import stubs  # noqa: E402
from shared import SERVERS, SKIPPED, Counts, readme_program, server_variables  # noqa: E402
from harness.results import report  # noqa: E402
from harness.runner import Bench, benches, command_line  # noqa: E402
from harness.servers import PROXY_PASSWORD, PROXY_USER  # noqa: E402
from harness.wine import Settings  # noqa: E402

CRATE = BINDINGS / "rust"
COMPILER = Path("/usr/bin")
TARGET = "x86_64-pc-windows-gnu"
LINKER = "x86_64-w64-mingw32-gcc-win32"


class RustCounts(Counts):
    """Counts what a test program tells, too."""

    def rust_tests(self, where: str, output: str, said: str, code: int) -> None:
        """Counts what the test program printed; one that ends badly without a failed test is one."""
        results = re.findall(r"^test (\S.*) \.\.\. (ok|FAILED)$", output, re.M)
        for name, result in results:
            self.check(f"{where} {name}", result == "ok", output + said)
        if not results or (code != 0 and all(result == "ok" for _, result in results)):
            self.check(where, False, output + said)


class Cargo:
    """Cargo with Debian's compiler, which keeps its files below the build folder and fetches nothing."""

    def __init__(self, work: Path) -> None:
        self._work = work
        self._environment = {**os.environ, "PATH": f"{COMPILER}:{os.environ['PATH']}", "CARGO_HOME": str(work / "home"),
                             "CARGO_TARGET_DIR": str(work / "target"), "CARGO_NET_OFFLINE": "true", "CARGO_INCREMENTAL": "0",
                             "CARGO_PROFILE_DEV_DEBUG": "0",
                             "CARGO_TARGET_X86_64_PC_WINDOWS_GNU_LINKER": LINKER, "RUSTFLAGS": "-D warnings",
                             "RUSTDOCFLAGS": "-D warnings"}

    def run(self, *arguments: str, windows: bool = False, folder: Path = CRATE) -> subprocess.CompletedProcess[str]:
        target = ["--target", TARGET] if windows else []
        return subprocess.run([COMPILER / "cargo", *arguments, *target], cwd=folder, env=self._environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)

    def build(self, name: str, *arguments: str, folder: Path = CRATE) -> Path:
        """Makes a program for Windows, and lays it beside the library."""
        done = self.run(*arguments, "--message-format=json", windows=True, folder=folder)
        if done.returncode:
            raise RuntimeError(f"{name} cannot be built:\n{done.stdout}{done.stderr}")
        made = [message["executable"] for message in map(json.loads, done.stdout.splitlines()) if message.get("executable")]
        return Path(shutil.copy2(made[-1], self._work / "stage" / f"{name}.exe"))


def check_sources(cargo: Cargo, counts: RustCounts) -> None:
    """What the sources show by themselves."""
    counts.command("rustfmt", COMPILER / "rustfmt", "--check", "--edition=2021", "src/lib.rs", "examples/fetch.rs", folder=CRATE)
    for system, windows in (("Windows", True), ("this system", False)):
        checked = cargo.run("clippy", "--locked", "--all-targets", windows=windows)
        counts.check(f"clippy for {system}", checked.returncode == 0, checked.stderr)
    documented = cargo.run("doc", "--locked", "--no-deps")
    counts.check("the reference", documented.returncode == 0, documented.stderr)
    counts.declarations("rust")
    tested = cargo.run("test", "--locked")
    counts.rust_tests("native", tested.stdout, tested.stderr, tested.returncode)


def lay_out(binaries: Path, stage: Path) -> None:
    """Lays the library beside the programs, and libraries that cannot be used into a folder."""
    shutil.rmtree(stage, ignore_errors=True)
    libraries = stage / "libraries"
    libraries.mkdir(parents=True)
    shutil.copy2(binaries / "kiv-session.dll", stage)
    shutil.copy2(binaries / "kiv-session.dll", libraries / "renamed.dll")
    shutil.copy2(binaries / "kiv.dll", libraries / "other.dll")
    stubs.make(libraries, binaries / "kiv-session.dll")


def build_readme(cargo: Cargo, work: Path) -> Path:
    """Builds the program that README shows, in a package of its own that follows README."""
    folder = work / "readme"
    (folder / "src").mkdir(parents=True, exist_ok=True)
    (folder / "src/main.rs").write_text(readme_program(CRATE / "README.md", "rust"), encoding="utf-8")
    dependencies = readme_program(CRATE / "README.md", "toml").replace("PATH/bindings/rust", str(CRATE))
    (folder / "Cargo.toml").write_text(f'[package]\nname = "readme"\nversion = "0.0.0"\nedition = "2021"\n\n{dependencies}',
                                       encoding="utf-8")
    return cargo.build("readme", "build", folder=folder)


def run_readme(bench: Bench, program: Path, counts: RustCounts, ports: dict[str, int]) -> None:
    """The program of README: with the right password, without an answer, and without the library."""
    proxy = f"http://127.0.0.1:{ports['squid_ntlm']}"
    bench.user.write_settings(Settings(manual=proxy.removeprefix("http://")))
    target = f"http://localhost:{ports['web']}/ok"
    for name, given, code, said in (("answered", f"{PROXY_USER} {PROXY_PASSWORD}\n", 0, f"{proxy}\n"), ("declined", "", 1, "")):
        result = bench.user.run_tool(program, [target], {}, 60, given)
        counts.check(f"README, {name}", (result.exit_code, result.stdout) == (code, said), f"{result}")
    alone = program.parent / "alone" / program.name
    alone.parent.mkdir()
    shutil.copy2(program, alone)
    result = bench.user.run_tool(alone, [target], {}, 60)
    counts.check("README, without the library", result.exit_code == 1 and "kiv-session.dll" in result.stderr
                 and "ship the DLL beside your program" in result.stderr, f"{result}")


def run_example(bench: Bench, program: Path, counts: RustCounts, ports: dict[str, int]) -> None:
    """The example, through each proxy, and what its target was asked."""
    web = bench.catalogue.begin(SERVERS)["web"]
    web.mark()
    bench.user.write_file("password", PROXY_PASSWORD)
    bench.user.write_file("wrong", "wrong")
    asked = []

    def fetch(name: str, proxy: str, file: str, code: int, said: str = "", page: str = "ok") -> None:
        bench.user.write_settings(Settings(manual=f"127.0.0.1:{ports[proxy]}" if proxy else ""))
        login = ["--login", PROXY_USER, f"C:/e2e/{file}"] if file else []
        path = f"/{page}?{len(asked)}"
        asked.append(path if code == 0 or page != "ok" else "")
        result = bench.user.run_tool(program, [*login, f"http://localhost:{ports['web']}{path}"], {}, 90)
        counts.check(f"fetch, {name}", (result.exit_code, result.stdout) == (code, "" if code else "ok\n")
                     and said in result.stderr, f"{result}")

    for scheme in ("Basic", "NTLM", "Digest"):
        proxy = f"squid_{scheme.lower()}"
        unsupported = f"proxy authentication unsupported: http://127.0.0.1:{ports[proxy]} offers {scheme}\n"
        for name, file in (("right password", "password"), ("wrong password", "wrong"), ("no password", "")):
            works = file == "password" and scheme != "Digest"
            fetch(f"{scheme}, {name}", proxy, file, 0 if works else 1, "" if works else unsupported)
    fetch("a page that does not exist", "", "", 1, "the server answered 404", "missing")
    fetch("direct", "", "", 0)
    # The server writes its log late, but in order.
    deadline = time.monotonic() + 10
    while asked[-1] not in (paths := re.findall(r"GET (\S+)", "\n".join(web.accesses()))) and time.monotonic() < deadline:
        time.sleep(0.1)
    counts.check("nothing else was asked of the target", paths == [path for path in asked if path], f"{paths}, {asked}")


def run_in_wine(bench: Bench, cargo: Cargo, work: Path, counts: RustCounts, only: str) -> None:
    """The tests, then the programs, each as a user with settings of its own."""
    bench.catalogue.begin(SERVERS)
    ports = bench.catalogue.ports()
    bench.user.write_settings(Settings())
    tests = cargo.build("kiv_test", "test", "--no-run", "--lib", "--locked")
    result = bench.user.run_tool(tests, ["--test-threads=1", *only.split()], server_variables(ports), 900)
    # One of them changes the settings.
    bench.user.forget_settings()
    counts.rust_tests("Wine", result.stdout, result.stderr, result.exit_code)
    run_readme(bench, build_readme(cargo, work), counts, ports)
    run_example(bench, cargo.build("fetch", "build", "--example=fetch", "--locked"), counts, ports)


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--filter", default="", help="run only the tests in Wine whose name contains this text")
    options = parser.parse_args()
    if not (COMPILER / "cargo").exists() or not Path(f"/usr/lib/rustlib/{TARGET}").exists():
        print("skipped: Debian's Rust is not installed (./scripts/setup.sh rust)")
        return SKIPPED
    work = options.work.resolve() / "rust"
    cargo = Cargo(work)
    counts = RustCounts()
    check_sources(cargo, counts)
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        lay_out(options.bin, work / "stage")
        run_in_wine(bench, cargo, work, counts, options.filter)
    return report(counts.passed, counts.failed)


if __name__ == "__main__":
    sys.exit(main())
