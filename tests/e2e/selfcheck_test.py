#!/usr/bin/env python3
"""Runs kiv-selfcheck in Wine, without the bridge: its results against their baseline, the forms that they have, what is
not in them, and its page in a real browser."""

from __future__ import annotations

import argparse
import json
import re
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any

import jsonschema
from harness.browser import Browser
from harness.processes import Processes
from harness.results import passes, report
from harness.wine import RegistryValue, ToolResult, WineUser

ROOT = Path(__file__).resolve().parents[2]
SCHEMA = json.loads((ROOT / "docs/kiv-selfcheck.schema.json").read_text())
BASELINES = ROOT / "selfcheck/baselines"
COMPUTER = "PLANTEDMACHINE"
TIMEOUT = 600
"""Of one run, in seconds: on a busy machine it takes minutes."""


def own_baseline() -> Path | None:
    """That of this Wine. Results of a Wine that nobody has looked at yet are compared with nothing."""
    version = subprocess.run(["wine", "--version"], capture_output=True, text=True, check=True).stdout
    match = re.match(r"wine-(\d+)", version)
    baseline = BASELINES / f"wine-{match[1]}.json" if match else None
    return baseline if baseline and baseline.exists() else None


class Look:
    """One whole run, and what can be asked about it."""

    def __init__(self, tool: Path, user: WineUser, browser: Browser, pictures: Path) -> None:
        self.tool, self.user, self.browser, self.pictures = tool, user, browser, pictures
        self.baseline = own_baseline()
        compared = self.given(self.baseline) if self.baseline else []
        self.result = self.run("--json", "C:/e2e/result.json", "--report", "C:/e2e/result.html", *compared)
        self.text = user.file("result.json").read_text()
        self.document: dict[str, Any] = json.loads(self.text)
        self.page = pictures / "result.html"
        self.page.write_bytes(user.file("result.html").read_bytes())

    def run(self, *arguments: str) -> ToolResult:
        return self.user.run_tool(self.tool, arguments, {}, TIMEOUT)

    def given(self, baseline: Path) -> list[str]:
        self.user.write_file("baseline.json", baseline.read_text())
        return ["--baseline", "C:/e2e/baseline.json"]

    def checks(self) -> list[dict[str, Any]]:
        return [check for group in self.document["groups"] for check in group["checks"]]

    def only(self, name: str, baseline: dict[str, Any]) -> ToolResult:
        """One check, compared with a baseline."""
        self.user.write_file("doctored.json", json.dumps(baseline))
        return self.run("--only", name, "--baseline", "C:/e2e/doctored.json")


def results_are_as_in_the_baseline(look: Look) -> None:
    if look.baseline is None:
        assert look.result.exit_code in (0, 1)
        return
    unexpected = [check for check in look.checks() if check["unexpected"]]
    assert unexpected == [], unexpected
    assert look.document["notChecked"] == []
    assert look.result.exit_code == 0, look.result


def document_keeps_to_its_schema(look: Look) -> None:
    jsonschema.Draft7Validator(SCHEMA).validate(look.document)
    for baseline in BASELINES.glob("*.json"):
        jsonschema.Draft7Validator(SCHEMA).validate(json.loads(baseline.read_text()))


def each_check_has_a_name_of_its_own(look: Look) -> None:
    names = [check["name"] for check in look.checks()]
    assert len(set(names)) == len(names) > 15
    assert look.run("--list").stdout.split() == names


def table_says_the_same(look: Look) -> None:
    for check in look.checks():
        assert f"{check['verdict']:<10}{check['question']}\n" in look.result.stdout, check
        assert check["text"] in look.result.stdout, check


def another_verdict_is_unexpected(look: Look) -> None:
    name = "protected-memory"
    assert look.only(name, look.document).exit_code == 0
    doctored = json.loads(look.text)
    [check] = [check for group in doctored["groups"] for check in group["checks"] if check["name"] == name]
    check["verdict"] = "skipped"
    result = look.only(name, doctored)
    assert result.exit_code == 1 and "UNEXPECTED: the baseline says skipped" in result.stdout, result


def another_text_is_unexpected(look: Look) -> None:
    doctored = json.loads(look.text)
    for group in doctored["groups"]:
        for check in group["checks"]:
            check["text"] += " Or not."
    assert look.only("protected-memory", doctored).exit_code == 1


def a_check_that_the_baseline_lacks_is_unexpected(look: Look) -> None:
    result = look.only("protected-memory", {"groups": []})
    assert result.exit_code == 1 and "the baseline does not have this check" in result.stdout, result


def without_a_baseline_a_failure_is_one(look: Look) -> None:
    for name, verdict in (("protected-memory", "fail"), ("ignored-certificate-errors", "pass")):
        [check] = [check for check in look.checks() if check["name"] == name]
        assert check["verdict"] == verdict, check
        assert look.run("--only", name).exit_code == (1 if verdict == "fail" else 0)


def wrong_usage_is_told(look: Look) -> None:
    look.user.write_file("empty.json", "{}")
    for arguments, text in (
            (["--only", "nothing-like-it"], "no check has this name"),
            (["--baseline", "C:/e2e/absent.json"], "cannot read C:/e2e/absent.json"),
            (["--baseline", "C:/e2e/empty.json"], "it is no result of kiv-selfcheck --json"),
            (["--report", "C:/e2e/page.txt"], "must name a file that ends with .html"),
            (["--nonsense"], "unknown option --nonsense")):
        result = look.run(*arguments)
        assert (result.exit_code, result.stdout) == (64, "") and text in result.stderr, (arguments, result)
    result = look.run("--json", "C:/absent/result.json", "--only", "protected-memory")
    assert (result.exit_code, result.stdout) == (74, ""), result


def output_can_be_the_document(look: Look) -> None:
    result = look.run("--only", "protected-memory", "--json", "-")
    document = json.loads(result.stdout)
    jsonschema.Draft7Validator(SCHEMA).validate(document)
    assert document["counts"]["fail"] == 1 and "protected-memory" in result.stderr


def nobody_is_named(look: Look) -> None:
    seen = look.user.run_tool(Path("cmd"), ["/c", "echo %USERNAME% %COMPUTERNAME%"], {}, 60).stdout
    user, computer = seen.split()
    assert computer == COMPUTER, seen
    # Wine's user is the machine's, whose name cannot be planted. This one's is a word of the texts.
    names = {user, computer} - {"root"}
    for text in (*look.result.texts, look.text, look.page.read_text()):
        for name in names:
            assert name.lower() not in text.lower(), name
        assert not re.search(r"127\.0\.0\.1:\d|\[::1\]:\d|[A-Z]:\\", text), "no port, and no path"


def page_shows_each_check(look: Look) -> None:
    browser = look.browser
    browser.view("light", 1100)
    browser.open(look.page)
    shown = list(zip(browser.texts(".candidate .name"), browser.texts(".candidate .note:nth-child(2)"),
                     browser.texts(".candidate .chip"), strict=True))
    assert shown == [(check["question"], check["text"], check["verdict"]) for check in look.checks()]
    assert browser.texts("section > h2") == [group["title"] for group in look.document["groups"]]
    if look.baseline:
        assert browser.texts(".badge") == ["As in the baseline"]
    assert "Wine" in browser.one("h1").text
    browser.screenshot(look.pictures / "selfcheck_light_wide.png")


def page_fetches_nothing(look: Look) -> None:
    look.browser.open(look.page)
    assert look.browser.requested() == [look.page.as_uri()]
    assert look.browser.complaints() == []


def page_is_dark_in_the_dark(look: Look) -> None:
    browser = look.browser

    def lightness(what: str) -> int:
        colour = browser.evaluate(f"getComputedStyle(document.querySelector('section')).{what}")
        return sum(int(part) for part in re.findall(r"\d+", colour)[:3])

    browser.open(look.page)
    for scheme, page_is_lighter in (("light", True), ("dark", False)):
        browser.view(scheme, 1100)
        assert (lightness("backgroundColor") > lightness("color")) == page_is_lighter, scheme
    browser.screenshot(look.pictures / "selfcheck_dark_wide.png")


def narrow_page_does_not_scroll_sideways(look: Look) -> None:
    browser = look.browser
    browser.view("light", 390)
    browser.open(look.page)
    assert browser.evaluate("document.documentElement.scrollWidth") <= 390
    browser.screenshot(look.pictures / "selfcheck_light_narrow.png")


CHECKS: list[Callable[[Look], None]] = [
    results_are_as_in_the_baseline, document_keeps_to_its_schema, each_check_has_a_name_of_its_own, table_says_the_same,
    another_verdict_is_unexpected, another_text_is_unexpected, a_check_that_the_baseline_lacks_is_unexpected,
    without_a_baseline_a_failure_is_one, wrong_usage_is_told, output_can_be_the_document, nobody_is_named,
    page_shows_each_check, page_fetches_nothing, page_is_dark_in_the_dark, narrow_page_does_not_scroll_sideways]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=Path, required=True, help="the folder of kiv-selfcheck.exe and the DLLs")
    parser.add_argument("--work", type=Path, required=True, help="a folder for what is written")
    options = parser.parse_args()
    folder = options.work.resolve() / "selfcheck"
    folder.mkdir(parents=True, exist_ok=True)
    processes = Processes()
    user = WineUser(folder, processes)
    try:
        user.create()
        user.start()
        active = r"HKLM\System\CurrentControlSet\Control\ComputerName\ActiveComputerName"
        user.write_registry([RegistryValue(active, "ComputerName", COMPUTER)], str)
        with Browser(folder) as browser:
            look = Look(options.bin.resolve() / "kiv-selfcheck.exe", user, browser, folder)
            good = [passes(check, look) for check in CHECKS]
        user.write_registry([], str)
    finally:
        user.stop()
        processes.stop_all()
    return report(sum(good), len(good) - sum(good))


if __name__ == "__main__":
    sys.exit(main())
