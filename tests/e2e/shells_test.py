#!/usr/bin/env python3
"""Gives the lines of kiv-resolve env to real shells: bash, and Wine's cmd. A hostile proxy's name must arrive as it is,
or be refused, and nothing in it may run."""

from __future__ import annotations

import re
import subprocess
import sys

from harness.results import report
from harness.runner import Bench, benches, command_line

HOSTILE = (
    "gate.test", "a b", "a&echo ran>ran.txt&b", "a|b", "a>ran.txt", "<a", "a^b", "^&^", "%PATH%", "%%PATH%%", "100%",
    "!PATH!", "'", "''", "'a'b'", '"', 'a"&echo ran>ran.txt&"b', "$(touch ran.txt)", "`touch ran.txt`", "$HOME", "a\\",
    "a\\\\", "\\'", "(a)", ";a", "#a", "~", "*", "?", "{a,b}", "a=b", "-a", "@a")
REFUSED = {
    "cmd": set('"%!'),
    "batch": set('"!'),
    "bash": set(),
}


END = "--\n"
"""Ends the lines, and what came of them, of each name."""


def lines_for(bench: Bench, program: str, shell: str) -> list[str]:
    """The lines for each of the names; empty for one that is refused."""
    result = bench.user.run_tool(program, [shell, *HOSTILE], {}, 60)
    assert result.exit_code == 0, result
    return result.stdout.split(END)[:-1]


def in_bash(lines: list[str], bench: Bench) -> str:
    typed = "".join(f"{text}printenv http_proxy\nunset http_proxy\necho --\n" for text in lines)
    return subprocess.run(["bash", "--norc"], input=typed, cwd=bench.folder, text=True, capture_output=True,
                          env={"PATH": "/usr/bin:/bin"}, check=False).stdout


def for_cmd(lines: list[str]) -> str:
    return "".join(f"{text}set http_proxy\nset http_proxy=\necho --\n" for text in lines)


def shown(bench: Bench, arguments: list[str], typed: str) -> str:
    """What cmd says, without its prompts."""
    result = bench.user.run_tool("cmd", arguments, {}, 120, typed)
    return re.sub(r"(?m)^(?:[A-Z]:\\[^>]*>)?(?:http_proxy=)?", "", result.stdout)


def in_batch(lines: list[str], bench: Bench) -> str:
    bench.user.write_file("lines.bat", "@echo off\r\n" + for_cmd(lines).replace("\n", "\r\n"))
    return shown(bench, ["/d", "/c", "C:\\e2e\\lines.bat"], "")


def in_cmd(lines: list[str], bench: Bench) -> str:
    # It begins with its own name.
    return shown(bench, ["/d", "/q"], f"echo --\n{for_cmd(lines)}exit\n").partition(END)[2]


SHELLS = {"bash": in_bash, "batch": in_batch, "cmd": in_cmd}


def arrive(bench: Bench, program: str, shell: str) -> list[bool]:
    """Whether each name arrives in a shell, or is refused where it must be."""
    lines = lines_for(bench, program, shell)
    said = SHELLS[shell](lines, bench).split(END)
    results = []
    for number, host in enumerate(HOSTILE):
        refused = bool(REFUSED[shell] & set(host))
        expected = "" if refused else f"http://{host}:80\n"
        arrived = said[number].lstrip("\n") if number < len(said) else "nothing"
        results.append(arrived == expected and refused == (not lines[number]))
        if not results[-1]:
            print(f"{shell}: {host!r} FAILED\n  lines {lines[number]!r}\n  said {arrived!r}")
    return results


def nothing_ran(bench: Bench) -> bool:
    ran = list(bench.folder.rglob("ran.txt"))
    for file in ran:
        file.unlink()
    if ran:
        print(f"something ran: {ran}")
    return not ran


def main() -> int:
    options = command_line(__doc__).parse_args()
    program = str(options.bin.resolve() / "quoted_lines.exe")
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        results = [result for shell in SHELLS for result in arrive(bench, program, shell)]
        results.append(nothing_ran(bench))
    return report(results.count(True), results.count(False))


if __name__ == "__main__":
    sys.exit(main())
