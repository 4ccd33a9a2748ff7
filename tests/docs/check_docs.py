#!/usr/bin/env python3
"""Holds the documents against the sources: each line of the log is listed, nothing else is, and no link leads nowhere."""

from __future__ import annotations

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# Where lines of the log are written, and what a text there looks like that is one, or the name of a call that fails.
WRITERS = ["src/resolver/resolve.cpp", "src/resolver/system_candidates.cpp", "src/http/http_client.cpp",
           "src/http/request_cycle.cpp"]
LINE = re.compile(r'L"((?:BEGIN|END|No|Proxy|Candidates|Invalid|ERROR_|Response|WinHttp|lorv|%d |%ls is)[^"]*)"')
FAILURE = re.compile(r"WinHttp\w+\(.*\)")


def written_lines() -> set[str]:
    """The lines of the sources, without what is filled in, and without blanks, which differ around it."""
    lines = set()
    for name in WRITERS:
        for text in LINE.findall((ROOT / name).read_text()):
            lines.add(text + " failed. ErrorCode = " if FAILURE.fullmatch(text) else re.sub(r"%\w+", "", text))
    return {re.sub(r"\s", "", line) for line in lines}


def documented_lines() -> set[str]:
    """The lines of the document, likewise. The client's description is no fixed text."""
    cells = re.findall(r"^\| `([^`]+)` \| (?:Error|Warn|Info|Debug) \|", (ROOT / "docs/log.md").read_text(), re.M)
    lines = (re.sub(r"\bN\b|\b(?:URL|LIST|PROXY)\b|…", "", cell) for cell in cells if not cell.startswith("{"))
    return {re.sub(r"\s", "", line).rstrip(",") for line in lines}


def broken_links() -> list[str]:
    """Links between the documents that lead nowhere."""
    broken = []
    for document in [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md"), *ROOT.glob("tests/*/README.md")]:
        for target in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", document.read_text()):
            if not (document.parent / target).exists():
                broken.append(f"{document.relative_to(ROOT)}: {target} is not there")
    return broken


def main() -> int:
    written, documented = written_lines(), documented_lines()
    wrong = [f"docs/log.md lacks: {line}" for line in sorted(written - documented)]
    wrong += [f"docs/log.md has, and nothing writes: {line}" for line in sorted(documented - written)]
    wrong += broken_links()
    print("\n".join(wrong))
    print(f"{3 - min(len(wrong), 3)} passed, {len(wrong)} failed")
    return 1 if wrong or not written else 0


if __name__ == "__main__":
    sys.exit(main())
