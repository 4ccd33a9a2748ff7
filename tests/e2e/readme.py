#!/usr/bin/env python3
"""Builds the programs that README, the quick start and the session's guide show, and runs README's against a real proxy and
a real server, so that they stay true."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path

from harness.results import report
from harness.runner import Bench, benches, command_line
from harness.wine import Settings

ROOT = Path(__file__).resolve().parents[2]
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
# By the language that a block of README names; a block without a main function is no program.
COMPILERS = {
    "c": ["x86_64-w64-mingw32-gcc-posix", "-std=c11", *WARNINGS],
    "cpp": ["x86_64-w64-mingw32-g++-posix", "-std=c++17", *WARNINGS],
}


def shown_programs(page: str) -> list[tuple[str, str]]:
    """The programs of a page, each with its language."""
    blocks = re.findall(r"^```(\w+)\n(.*?)^```", (ROOT / page).read_text(), re.M | re.S)
    return [(language, code) for language, code in blocks if language in COMPILERS and "main(" in code]


def built(language: str, code: str, folder: Path, library: Path) -> Path:
    """Compiles a program as a stranger would who follows the page."""
    source = folder / f"readme.{language}"
    source.write_text(code)
    program = folder / f"readme_{language}.exe"
    wide = ["-municode"] if "wmain(" in code else []
    subprocess.run([*COMPILERS[language], *wide, "-static", f"-I{ROOT / 'include'}", str(source), str(library),
                    "-o", str(program)], check=True)
    return program


def runs_well(bench: Bench, program: Path) -> bool:
    """Runs a program as a user with a manual proxy; tells whether it found that, and said how."""
    ports = bench.catalogue.ports()
    result = bench.user.run_tool(program, [f"http://localhost:{ports['web']}/ok"], {}, 60)
    lines = result.stdout.splitlines()
    well = (result.exit_code == 0 and lines[:1] == ["BEGIN: ProxyResolver"] and "END: ProxyResolver" in lines
            and "127.0.0.1" in lines[-1])
    print(f"{program.name}: {'ok' if well else 'FAILED'}\n{'' if well else result.stdout + result.stderr}", end="")
    return well


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--library", type=Path, required=True, help="the import library of kiv.dll")
    options = parser.parse_args()
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        bench.catalogue.begin(["tinyproxy", "web"])
        bench.user.write_settings(Settings(manual=f"127.0.0.1:{bench.catalogue.ports()['tinyproxy']}"))
        stage = options.work.resolve() / "stage"
        good = [runs_well(bench, built(language, code, stage, options.library)) for language, code in shown_programs("README.md")]
        for language, code in shown_programs("docs/quick-start.md"):
            built(language, code, stage, options.library)
        for language, code in shown_programs("docs/guide/session.md"):
            built(language, code, stage, options.library.with_name("libkiv-session.dll.a"))
    return report(sum(good), len(good) - sum(good))


if __name__ == "__main__":
    sys.exit(main())
