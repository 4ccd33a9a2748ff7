#!/usr/bin/env python3
"""Compares the documents with the sources: log lines, the tool's advice, and the links, paths and tests that they name.

What is promised of security names the tests that keep it.
"""

from __future__ import annotations

import json
import os
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LOG_PAGE = "docs/reference/log.md"
ADVICE_PAGE = "docs/guide/troubleshooting.md"
ADVICE_SOURCE = "tools/resolve/advice.cpp"
# The tables of the page by what the source calls them.
ADVICE_HEADINGS = {"Discovery": "Discovery and candidates", "Requests": "Requests", "Authentication": "Authentication",
                   "Probe": "Probe"}
DOCUMENTS = [*ROOT.glob("*.md"), *ROOT.glob("docs/**/*.md"), *ROOT.glob("tests/*/README.md")]
# Where log lines are written, and what a text there looks like that is one, or the name of a call that fails.
WRITERS = ["src/resolver/resolve.cpp", "src/resolver/system_candidates.cpp", "src/http/http_client.cpp",
           "src/http/request_cycle.cpp"]
LINE = re.compile(r'L"((?:BEGIN|END|No|Proxy|Candidates|Invalid|ERROR_|Response|WinHttp|lorv|%d |%ls is)[^"]*)"')
FAILURE = re.compile(r"WinHttp\w+\(.*\)")
LINK = re.compile(r"\]\(([^)#:]*)(?:#([^)]*))?\)")
# In backticks: a path that begins with a folder of the project, and the full name of a unit test.
PATH = re.compile(r"`(?:\./)?((?:bench|cmake|docs|examples|include|packaging|scripts|session|src|tests|tools)/[\w./-]*)")
TEST = re.compile(r"`(\w+Test)\.(\w+)`")
# A test by its file: `tests/unit/cred_test.cpp:CredTest.Name`, a function's name, or that of a scenario.
TEST_IN_FILE = re.compile(r"`((?:scripts|tests)/[\w./-]+):([\w.]+)`")
# Where security is promised, and how a promise's line begins; each names a test, or all targets of the fuzzer.
PROMISES = (("SECURITY.md", "What counts", "- "), ("docs/reference/security.md", "Tests that keep these promises", "| "))
KEPT = re.compile(rf"{TEST_IN_FILE.pattern}|`tests/fuzz/`")
TABLE_HEAD = {"| promise | tests |", "| --- | --- |"}
TEST_DEFINITION = re.compile(r"^TEST(?:_[FP])?\((\w+), (\w+)\)", re.M)


def written_lines() -> set[str]:
    """The lines of the sources, without what is filled in, and without blanks, which differ around it."""
    lines = set()
    for name in WRITERS:
        for text in LINE.findall((ROOT / name).read_text()):
            lines.add(text + " failed. ErrorCode = " if FAILURE.fullmatch(text) else re.sub(r"%\w+", "", text))
    return {re.sub(r"\s", "", line) for line in lines}


def documented_lines() -> set[str]:
    """The lines of the document, likewise. The client's description is no fixed text."""
    cells = re.findall(r"^\| `([^`]+)` \| (?:Error|Warn|Info|Debug) \|", (ROOT / LOG_PAGE).read_text(), re.M)
    lines = (re.sub(r"\bN\b|\b(?:URL|LIST|PROXY)\b|…", "", cell) for cell in cells if not cell.startswith("{"))
    return {re.sub(r"\s", "", line).rstrip(",") for line in lines}


def advice_of_source() -> list[str]:
    """The rows of the tool's table, as the page must have them, each after its heading."""
    table = (ROOT / ADVICE_SOURCE).read_text().partition("kAdvice[] = {")[2]
    # A long text is written as several literals in a row.
    text = r'((?:L"(?:[^"\\]|\\.)*"\s*)+),\s*'
    rows = re.findall(r'\{"[\w-]+",\s*Topic::(\w+),\s*' + 3 * text, table)
    return [f"{ADVICE_HEADINGS[topic]}: | {' | '.join(map(joined, cells))} |" for topic, *cells in rows]


def joined(literals: str) -> str:
    """The text of string literals in a row."""
    return "".join(re.findall(r'L"((?:[^"\\]|\\.)*)"', literals))


def advice_of_page() -> list[str]:
    """The rows of the page's tables, each after its heading."""
    sections = re.findall(r"^## (.*)\n((?:(?!## ).*\n?)*)", (ROOT / ADVICE_PAGE).read_text(), re.M)
    return [f"{heading}: {row}" for heading, body in sections if heading in ADVICE_HEADINGS.values()
            for row in re.findall(r"^\| .*$", body, re.M)[2:]]


def differing_advice() -> list[str]:
    """Rows that only the tool or only the page has, or that stand in another order."""
    source, page = advice_of_source(), advice_of_page()
    missing = [f"{ADVICE_PAGE} lacks: {row}" for row in source if row not in page]
    unknown = [f"{ADVICE_SOURCE} lacks: {row}" for row in page if row not in source]
    if not missing and not unknown and source != page:
        return [f"{ADVICE_PAGE} and {ADVICE_SOURCE} have the same rows in another order"]
    return missing + unknown if source else [f"{ADVICE_SOURCE} cannot be read"]


def anchors_of(document: Path) -> set[str]:
    """What a link can name after #: the headings, as the usual viewers of Markdown write them."""
    headings = re.findall(r"^#+ (.*)$", document.read_text(), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def broken_links(document: Path) -> list[str]:
    """Links whose file or heading does not exist."""
    broken = []
    for path, anchor in LINK.findall(document.read_text()):
        target = document.parent / path if path else document
        if not target.exists():
            broken.append(f"the link {path} leads nowhere")
        elif anchor and anchor not in anchors_of(target):
            broken.append(f"the link {path}#{anchor} names no heading")
    return broken


def missing_paths(document: Path) -> list[str]:
    """Files and folders of the project that are named and do not exist."""
    return [f"{path} does not exist" for path in PATH.findall(document.read_text()) if not (ROOT / path).exists()]


def is_test(file: str, name: str) -> bool:
    """Whether a file has this test: one of GoogleTest by its full name, else a function or a scenario."""
    source = (ROOT / file).read_text() if (ROOT / file).is_file() else ""
    if "." in name:
        return tuple(name.split(".")) in TEST_DEFINITION.findall(source)
    return bool(re.search(rf'^(?:\w+ )*{name}\(|Scenario\("{name}"', source, re.M))


def missing_tests(document: Path) -> list[str]:
    """Tests that are named and do not exist."""
    text = document.read_text()
    missing = [f"{file} has no test {name}" for file, name in TEST_IN_FILE.findall(text) if not is_test(file, name)]
    if named := set(TEST.findall(text)):
        sources = ROOT.glob("tests/unit/**/*.cpp")
        defined = {test for source in sources for test in TEST_DEFINITION.findall(source.read_text())}
        missing += [f"there is no test {suite}.{name}" for suite, name in sorted(named - defined)]
    return missing


def promises_without_a_test() -> list[str]:
    """Lines that promise something of security and name no test."""
    without = []
    for page, heading, beginning in PROMISES:
        section = (ROOT / page).read_text().partition(f"## {heading}\n")[2].partition("\n## ")[0]
        promises = [line for line in section.splitlines() if line.startswith(beginning) and line not in TABLE_HEAD]
        without += [f"{page} names no test: {line}" for line in promises or [heading] if not KEPT.search(line)]
    return without


def main() -> int:
    written, documented = written_lines(), documented_lines()
    findings = [[f"{LOG_PAGE} lacks: {line}" for line in sorted(written - documented)],
                [f"{LOG_PAGE} has, and nothing writes: {line}" for line in sorted(documented - written)],
                differing_advice(), promises_without_a_test()]
    for check in (broken_links, missing_paths, missing_tests):
        findings.append([f"{document.relative_to(ROOT)}: {problem}" for document in DOCUMENTS
                         for problem in check(document)])
    failed = sum(map(bool, findings))
    for finding in findings:
        print("".join(f"{line}\n" for line in finding), end="")
    passed = len(findings) - failed
    print(f"{passed} passed, {failed} failed")
    if name := os.environ.get("KIV_RESULTS"):
        Path(name).write_text(json.dumps({"passed": passed, "failed": failed}), encoding="utf-8")
    return 1 if failed or not written else 0


if __name__ == "__main__":
    sys.exit(main())
