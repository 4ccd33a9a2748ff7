#!/usr/bin/env python3
"""Tests the Go module: natively what needs no DLL, and in Wine all of it with the shipped kiv-session.dll against real
proxies and servers; runs the program of its README and its example.

Ends with 77 where Go is not installed.
"""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
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

MODULE = BINDINGS / "go"


class GoCounts(Counts):
    """Counts what `go test` tells, too."""

    def go_tests(self, where: str, output: str, code: int) -> None:
        """Counts what `go test -v` tells; a program that ends badly without a failed test is one."""
        results = re.findall(r"^ *--- (PASS|FAIL|SKIP): (\S+)", output, re.M)
        for result, name in results:
            told = re.search(rf"^=== RUN   {re.escape(name)}\n(.*?)^ *---", output, re.M | re.S)
            self.check(f"{where} {name}", result == "PASS", told[1] if told else output)
        if not results or (code != 0 and all(result == "PASS" for result, _ in results)):
            self.check(where, False, output)


class Go:
    """The compiler, which keeps its files below the build folder and fetches nothing."""

    def __init__(self, work: Path) -> None:
        self._work = work
        self._environment = {**os.environ, "GOCACHE": str(work / "cache"), "GOPATH": str(work / "path"),
                             "GOENV": "off", "GOPROXY": "off", "GOFLAGS": "", "GOTOOLCHAIN": "local", "CGO_ENABLED": "0"}

    def run(self, *arguments: str, system: str = "", folder: Path = MODULE,
            **variables: str) -> subprocess.CompletedProcess[str]:
        target = {"GOOS": system, "GOARCH": "amd64"} if system else {}
        return subprocess.run(["go", *arguments], cwd=folder, env={**self._environment, **target, **variables}, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)

    def build(self, name: str, *arguments: str, folder: Path = MODULE) -> Path:
        """Makes a program for Windows."""
        program = self._work / "stage" / f"{name}.exe"
        done = self.run(*arguments, "-o", str(program), system="windows", folder=folder)
        if done.returncode:
            raise RuntimeError(f"{name} cannot be built:\n{done.stdout}")
        return program


def check_sources(go: Go, counts: GoCounts) -> None:
    """What the sources show by themselves."""
    layout = subprocess.run(["gofmt", "-l", "."], cwd=MODULE, capture_output=True, text=True, check=False)
    counts.check("gofmt", layout.returncode == 0 and not layout.stdout, layout.stdout + layout.stderr)
    for system in ("windows", "linux"):
        vetted = go.run("vet", "./...", system=system)
        counts.check(f"go vet for {system}", vetted.returncode == 0, vetted.stdout)
    counts.declarations("go")
    # The race detector is C.
    tested = go.run("test", "-count=1", "-v", "-race", ".", CGO_ENABLED="1")
    counts.go_tests("native", tested.stdout, tested.returncode)


def build_readme(go: Go, work: Path) -> Path:
    """Builds the program that README shows, in a module of its own that follows README."""
    folder = work / "readme"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    (folder / "main.go").write_text(readme_program(MODULE / "README.md", "go"), encoding="utf-8")
    for arguments in (("init", "readme"), ("edit", "-require=kiv@v0.0.0", f"-replace=kiv={MODULE}")):
        go.run("mod", *arguments, folder=folder)
    return go.build("readme", "build", folder=folder)


def run_in_wine(bench: Bench, go: Go, work: Path, counts: GoCounts, only: str) -> None:
    """The tests, then the programs, each as a user with settings of its own."""
    bench.catalogue.begin(SERVERS)
    ports = bench.catalogue.ports()
    bench.user.write_settings(Settings())
    tests = go.build("kiv_test", "test", "-c")
    result = bench.user.run_tool(tests, ["-test.v", "-test.timeout=10m", f"-test.run={only}"],
                                 server_variables(ports), 900)
    # One of them changes the settings.
    bench.user.forget_settings()
    counts.go_tests("Wine", result.stdout + result.stderr, result.exit_code)

    target = f"http://localhost:{ports['web']}/ok"
    bench.user.write_settings(Settings(manual=f"127.0.0.1:{ports['squid_ntlm']}"))
    result = bench.user.run_tool(build_readme(go, work), [target], {}, 60, f"{PROXY_USER} {PROXY_PASSWORD}\n")
    counts.check("README", (result.exit_code, result.stdout) == (0, "ok\n"), f"{result.exit_code} {result.stdout}{result.stderr}")

    bench.user.write_file("password", PROXY_PASSWORD)
    download = go.build("download", "build", folder=MODULE / "examples/download")
    login = ["-user", PROXY_USER, "-password-file", "C:/e2e/password"]
    for name, arguments, expected in (("ok", login, "ok\n"), ("missing", login, None), ("ok", [], None)):
        got = bench.user.file("downloaded")
        got.unlink(missing_ok=True)
        result = bench.user.run_tool(download, [*arguments, target.replace("/ok", f"/{name}"), "C:/e2e/downloaded"], {}, 90)
        text = got.read_text(encoding="utf-8") if got.exists() else None
        counts.check(f"download of {name} with {len(arguments)} options",
                     (result.exit_code == 0, text) == (expected is not None, expected)
                     and not list(got.parent.glob("*.part*")), f"{result.exit_code} {text!r}\n{result.stderr}")


REFERENCES = [f"{digit * 40} refs/heads/{name}" for digit, name in (("1", "main"), ("2", "next"))]


def advertised() -> str:
    """What a server of Git says of these references."""
    first, *others = REFERENCES
    lines = ["# service=git-upload-pack\n", "", f"{first}\0agent=test\n", *(f"{line}\n" for line in others), ""]
    return "".join(f"{len(line) + 4:04x}{line}" if line else "0000" for line in lines)


def run_lsremote(bench: Bench, go: Go, counts: GoCounts) -> None:
    """The example of a fetch, whose passwords stand on its standard input."""
    program = go.build("lsremote", "build", folder=MODULE / "examples/lsremote")
    served = bench.catalogue.lighttpd.root / "repository" / "info"
    served.mkdir(parents=True, exist_ok=True)
    (served / "refs").write_text(advertised(), encoding="ascii")
    ports = bench.catalogue.ports()
    listed = "".join(line.replace(" ", "\t") + "\n" for line in REFERENCES)
    login = f"{PROXY_USER}\n{PROXY_PASSWORD}\n"
    for name, proxy, given, path, expected in (
            ("no proxy", "", "", "repository", (0, listed)), ("NTLM", "squid_ntlm", login, "repository", (0, listed)),
            ("a wrong password first", "squid_basic", f"{PROXY_USER}\nwrong\n{login}", "repository", (0, listed)),
            ("no password", "squid_basic", "", "repository", (128, "")), ("no repository", "", "", "ok", (128, ""))):
        bench.user.write_settings(Settings(manual=f"127.0.0.1:{ports[proxy]}" if proxy else ""))
        result = bench.user.run_tool(program, [f"http://localhost:{ports['web']}/{path}"], {}, 90, given)
        counts.check(f"lsremote, {name}", (result.exit_code, result.stdout) == expected
                     and result.stderr.count("Password") == given.count("\n") // 2, f"{result}")


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--filter", default="", help="run only the tests in Wine whose name this expression matches")
    options = parser.parse_args()
    if shutil.which("go") is None:
        print("skipped: Go is not installed (./scripts/setup.sh go)")
        return SKIPPED
    work = options.work.resolve() / "go"
    go = Go(work)
    counts = GoCounts()
    check_sources(go, counts)
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        stage = work / "stage"
        shutil.rmtree(stage, ignore_errors=True)
        stage.mkdir(parents=True)
        shutil.copy2(options.bin / "kiv-session.dll", stage)
        stubs.make(stage / "stubs", options.bin / "kiv-session.dll")
        run_in_wine(bench, go, work, counts, options.filter)
        run_lsremote(bench, go, counts)
    return report(counts.passed, counts.failed)


if __name__ == "__main__":
    sys.exit(main())
