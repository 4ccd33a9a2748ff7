#!/usr/bin/env python3
"""Runs the tool on a console: what a person sees while it works and afterwards, and what it reads from there."""

from __future__ import annotations

import re
import sys
from collections.abc import Sequence
from pathlib import Path

from harness.console import Cell, Screen, as_svg, run_on_console
from harness.results import report
from harness.runner import Bench, benches, command_line
from harness.scenario import Scenario
from harness.servers import PROXY_PASSWORD, PROXY_USER
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
PROXIES = ("dead", "silent", "bad_gateway", "tinyproxy_basic", "tinyproxy")
SETTINGS = Settings(manual=";".join(f"127.0.0.1:{{{proxy}}}" for proxy in PROXIES), bypass="*.corp.example;10.*")
PATIENCE = {"KIV_E2E_RESPONSE_TIMEOUT": "1200"}
UNTOUCHED = "exit=0,mode=unchanged,then=restored"
LIVE = re.compile(r"[|/\\-] Testing No\. 1: \S+  (\d+\.\d) s")


class Console:
    """The tool on a console of some width."""

    def __init__(self, bench: Bench, tool: Path, parent: Path) -> None:
        self._bench = bench
        self.tool = tool
        self.parent = parent

    def run(self, options: str, columns: int = 120, **environment: str) -> str:
        command = f"{URL} --proxy-cred {PROXY_USER}:{PROXY_PASSWORD} {options}"
        return self._run(Scenario("console", command, "*", SETTINGS, environment=environment), (), columns)

    def run_under_parent(self, command: str, settings: Settings, *parent_options: str) -> str:
        """Runs the tool as the child of a program that types, sends Ctrl-C and tells what became of the console."""
        return self._run(Scenario("console", command, "*", settings), (str(self.parent), *parent_options), 120)

    def _run(self, scenario: Scenario, parent: Sequence[str], columns: int) -> str:
        self._bench.prepare(scenario)
        arguments = [self._bench.catalogue.fill_in(argument) for argument in scenario.arguments]
        environment = self._bench.user.environment(TERM="xterm-256color", **PATIENCE, **scenario.environment)
        return run_on_console(["wine", *parent, str(self.tool), *arguments], environment, columns)


def screen_of(written: str) -> Screen:
    screen = Screen()
    screen.feed(written)
    return screen


def brief_shows_time_passing(console: Console) -> Screen:
    written = console.run("--brief")
    times = [float(time) for time in LIVE.findall(written)]
    assert len(times) > 5 and times == sorted(times) and times[-1] >= 0.9, written
    screen = screen_of(written)
    lines = screen.text.splitlines()
    assert len(lines) == 8, screen.text
    assert lines[0].startswith("Finding a route to http://localhost:")
    assert lines[1].split() == ["No.", "candidate", "responses", "time", "verdict"]
    assert [re.split(r"  +", line.strip())[4] for line in lines[2:7]] == [
        "cannot connect: ERROR_WINHTTP_CANNOT_CONNECT (12029)", "timed out: WSAETIMEDOUT (10060)", "status is not 2xx",
        "works", "not tested"]
    assert lines[7] == lines[5].split()[1], "the outcome is the proxy that works"
    assert {cell.style for cell in screen.lines[5] if cell.character != " "} == {"32"}, "what works is green"
    return screen


def live_line_never_wraps(console: Console) -> None:
    written = console.run("--brief", columns=40)
    shown = re.findall(r"\r([|/\\-] [^\r\x1b]*)", written)
    assert shown and all(len(line) < 40 for line in shown), shown


def log_keeps_its_lines_whole(console: Console) -> None:
    written = console.run("")
    assert LIVE.search(written), written
    text = screen_of(written).text
    assert not LIVE.search(text), "nothing is left of the live line"
    assert re.search(r"(?m)^info: No\. 1: Test connection to http://localhost:\d+/ok\.$", text), text
    assert re.search(r"(?m)^warn: WinHttpReceiveResponse\(\) failed\. ErrorCode = 10060$", text), text


def quiet_is_quiet(console: Console) -> None:
    written = console.run("--quiet")
    assert re.fullmatch(r"http://127\.0\.0\.1:\d+\n", screen_of(written).text), written
    assert not LIVE.search(written)


def no_color_shows_no_colours(console: Console) -> None:
    plain = console.run("--brief", NO_COLOR="1")
    assert LIVE.search(plain), f"the live line is no matter of colour: {plain}"
    assert {cell.style for line in screen_of(plain).lines for cell in line} == {""}
    assert "32" in {cell.style for line in screen_of(console.run("--brief", NO_COLOR="")).lines for cell in line}


def mode_is_restored(console: Console) -> None:
    written = console.run_under_parent(f"{URL} --brief --prefer 127.0.0.1:{{silent}}", Settings())
    assert "exit=2,mode=changed,then=restored" in screen_of(written).text, written


def mode_is_restored_after_ctrl_c(console: Console) -> None:
    command = f"{URL} --brief --prefer 127.0.0.1:{{silent}} --fallback 127.0.0.1:{{silent}}"
    text = screen_of(console.run_under_parent(command, Settings(), "--interrupt")).text
    assert ",mode=changed,then=restored" in text, text
    assert "verdict" not in text, "it ended before its end"
    assert not re.search(r"[|/\\-] (Finding|Testing)", text), "nothing is left of the live line"


def ctrl_c_is_for_the_program_that_exec_runs(console: Console) -> None:
    # The program is one that goes on after Ctrl-C, until the one that it runs has ended.
    inner = f"{console.parent} {console.tool} {URL} --brief --prefer 127.0.0.1:{{silent}}"
    text = screen_of(console.run_under_parent(f"exec {URL} -- {inner}", Settings(), "--interrupt")).text
    # The inner parent may look too late to see the mode that Ctrl-C has already ended.
    assert re.search(r"exit=\w+,mode=\w+.*\s+exit=7,mode=changed", text), text
    assert "verdict" not in text, "the innermost program ended before its end"


def quiet_leaves_the_mode_alone(console: Console) -> None:
    assert UNTOUCHED in screen_of(console.run_under_parent(f"{URL} --quiet", Settings())).text


def typed_urls_may_have_any_characters(console: Console) -> None:
    text = screen_of(console.run_under_parent("- --quiet", Settings(), "--type", "http://日本.example/ü")).text
    assert re.search(r"(?m)^http://日本\.example/ü +DIRECT$", text), text
    assert UNTOUCHED in text, text


def typed_password_is_used_and_not_shown(console: Console) -> None:
    command = f"{URL} --quiet --proxy-cred {PROXY_USER}"
    settings = Settings(manual="127.0.0.1:{tinyproxy_basic}")
    written = console.run_under_parent(command, settings, "--type", PROXY_PASSWORD)
    text = screen_of(written).text
    assert f"Password of {PROXY_USER}:" in text, text
    assert re.search(r"(?m)^http://127\.0\.0\.1:\d+$", text), text
    assert PROXY_PASSWORD not in written, text
    assert "then=restored" in text, text


def with_prompt(screen: Screen, command: str) -> Screen:
    """The screen as it was, below the command that was typed."""
    prompted = Screen()
    prompted.lines = [[Cell(character, "1") for character in f"C:\\> {command}"], *screen.lines]
    return prompted


def main() -> int:
    options = command_line(__doc__).parse_args()
    failed = 0
    checks = [brief_shows_time_passing, live_line_never_wraps, log_keeps_its_lines_whole, quiet_is_quiet,
              no_color_shows_no_colours, mode_is_restored, mode_is_restored_after_ctrl_c,
              ctrl_c_is_for_the_program_that_exec_runs, quiet_leaves_the_mode_alone,
              typed_urls_may_have_any_characters, typed_password_is_used_and_not_shown]
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        console = Console(bench, options.work.resolve() / "stage" / "kiv-resolve.exe",
                          options.bin.resolve() / "console_parent.exe")
        for check in checks:
            try:
                if screen := check(console):
                    url = bench.catalogue.fill_in(URL)
                    picture = with_prompt(screen, f"kiv-resolve {url} --brief --proxy-cred {PROXY_USER}:****")
                    (options.work / "terminal.svg").write_text(as_svg(picture))
                print(f"ok    {check.__name__}", flush=True)
            except AssertionError as error:
                failed += 1
                print(f"FAIL  {check.__name__}\n{error}", flush=True)
    return report(len(checks) - failed, failed)


if __name__ == "__main__":
    sys.exit(main())
