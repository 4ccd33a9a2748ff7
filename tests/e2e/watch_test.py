#!/usr/bin/env python3
"""Runs `kiv-resolve watch` on a console while the user's settings change, until Ctrl-C."""

from __future__ import annotations

import json
import re
import shutil
import sys
import threading
import time
from collections.abc import Callable, Sequence
from pathlib import Path

import jsonschema

from harness.console import run_on_console
from harness.results import report
from harness.runner import Bench, benches, command_line
from harness.scenario import SCHEMA, Scenario
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
PATIENCE = 30.0
RECORD_SCHEMA = {"$ref": "#/definitions/watchRecord", "definitions": SCHEMA["definitions"]}


class Watching:
    """The tool at work. What it has resolved is counted in its trace, what it prints is there when it has ended."""

    def __init__(self, bench: Bench, command: Sequence[str]) -> None:
        self._bench = bench
        self._trace = bench.user.file("watch.jsonl")
        self._stop = bench.user.file("stop")
        for left in (self._trace, self._stop):
            left.unlink(missing_ok=True)
        self._written = ""
        self._thread = threading.Thread(target=self._run, args=(list(command),))
        self._thread.start()

    def _run(self, command: list[str]) -> None:
        # Wide, so that no line is broken.
        self._written = run_on_console(command, self._bench.user.environment(TERM="xterm-256color"), 2000, 2 * PATIENCE)

    def await_trace(self, text: str, count: int = 1) -> None:
        """Waits until the trace has a text so many times."""
        deadline = time.monotonic() + PATIENCE
        while not self._trace.exists() or self._trace.read_text(errors="replace").count(text) < count:
            if time.monotonic() > deadline or not self._thread.is_alive():
                raise AssertionError(f"{text!r} was not traced {count} times")
            time.sleep(0.02)

    def await_resolutions(self, count: int) -> None:
        self.await_trace("END: ProxyResolver", count)

    def end(self) -> str:
        """Presses Ctrl-C; returns what was printed, with the line of the parent."""
        self._stop.touch()
        self._thread.join()
        return re.sub(r"\x1b\[[?\d;]*[A-Za-z]|\r", "", self._written)


class Scene:
    def __init__(self, bench: Bench, tool: Path, parent: Path) -> None:
        self.bench = bench
        self.tool = tool
        self._parent = parent

    def prepare(self, settings: Settings) -> None:
        named = Scenario("watch", URL, "*", settings, servers=("web", "tinyproxy", "dead", "silent"))
        self.bench.prepare(named)

    def fill_in(self, text: str) -> str:
        return self.bench.catalogue.fill_in(text)

    def command(self, options: str) -> list[str]:
        return self.fill_in(f"{URL} {options}").split()

    def watch(self, options: str = "") -> Watching:
        parent = ["wine", str(self._parent), "--interrupt-when", "C:/e2e/stop"]
        return Watching(self.bench, [*parent, str(self.tool), "watch", *self.command(options),
                                     "--trace", "C:/e2e/watch.jsonl"])

    def change(self, manual: str) -> None:
        self.bench.user.write_settings(Settings(manual=self.fill_in(manual)))


def lines_of(written: str) -> list[str]:
    """What was printed, without times and spans, which differ from run to run."""
    lines = [line.rstrip() for line in written.splitlines() if line.strip()]
    assert lines[-1].startswith("exit=0,"), written
    return [re.sub(r"\d{4}-\d\d-\d\dT[\d:.]+Z|\b\d+ (?:s|min|h)\b", "*", line) for line in lines[:-1]]


def each_change_of_settings_is_a_line(scene: Scene) -> None:
    dead, living = scene_proxies(scene)
    watching = scene.watch()
    watching.await_resolutions(1)
    scene.change("127.0.0.1:{tinyproxy}")
    watching.await_resolutions(2)
    scene.change("127.0.0.1:{dead}")
    watching.await_resolutions(3)
    failed = f"NONE (http://{dead} cannot connect: ERROR_WINHTTP_CANNOT_CONNECT (12029))"
    assert lines_of(watching.end()) == [
        f"*  start     {failed}",
        f"*  settings  http://{living}  before: NONE for *; manual proxy list: {dead} -> {living}; "
        f"outcome: NONE -> http://{living}; candidates: http://{dead} -> http://{living}",
        f"*  settings  {failed}  before: http://{living} for *; manual proxy list: {living} -> {dead}; "
        f"outcome: http://{living} -> NONE; candidates: http://{living} -> http://{dead}"]


def scene_proxies(scene: Scene) -> tuple[str, str]:
    scene.prepare(Settings())
    scene.change("127.0.0.1:{dead}")
    return scene.fill_in("127.0.0.1:{dead}"), scene.fill_in("127.0.0.1:{tinyproxy}")


def time_alone_is_a_reason_if_it_is_asked_for(scene: Scene) -> None:
    scene.prepare(Settings())
    watching = scene.watch("--every 1 --prefer 127.0.0.1:{tinyproxy}")
    watching.await_resolutions(3)
    lines = lines_of(watching.end())
    proxy = scene.fill_in("http://127.0.0.1:{tinyproxy}")
    assert lines[0] == f"*  start     {proxy}", lines
    assert len(lines) >= 3 and set(lines[1:]) == {f"*  time      {proxy}  same as before, since * (*)"}, lines


def json_lines_are_as_described(scene: Scene) -> None:
    scene_proxies(scene)
    watching = scene.watch("--json")
    watching.await_resolutions(1)
    scene.change("127.0.0.1:{tinyproxy}")
    watching.await_resolutions(2)
    records = [json.loads(line) for line in watching.end().splitlines() if line.startswith("{")]
    for record in records:
        jsonschema.validate(record, RECORD_SCHEMA)
    assert [(record["change"], record["outcome"]["kind"]) for record in records] == [
        ("start", "none"), ("settings", "proxy")], records
    assert records[1]["before"]["text"] == "NONE" and records[1]["since"] == records[1]["time"], records


def ctrl_c_ends_also_while_nobody_answers(scene: Scene) -> None:
    scene.prepare(Settings())
    watching = scene.watch("--prefer 127.0.0.1:{silent}")
    watching.await_trace("Test connection to")
    assert lines_of(watching.end()) == []


def without_the_session_it_says_so(scene: Scene) -> None:
    scene.prepare(Settings())
    alone = scene.tool.parent / "alone"
    alone.mkdir(exist_ok=True)
    for file in scene.tool.parent.glob("*.*"):
        if file.name != "kiv-session.dll":
            shutil.copy2(file, alone)
    result = scene.bench.user.run_tool(alone / scene.tool.name, ["watch", *scene.command("")], {}, PATIENCE)
    assert result.exit_code == 2 and result.stdout == "", result
    assert re.fullmatch(r"kiv-resolve: cannot load \S+\\alone\\kiv-session\.dll: .+\n", result.stderr), result
    resolved = scene.bench.user.run_tool(alone / scene.tool.name, scene.command("--quiet"), {}, PATIENCE)
    assert resolved.exit_code == 0, "everything else works without it"


CHECKS: Sequence[Callable[[Scene], None]] = (
    each_change_of_settings_is_a_line, time_alone_is_a_reason_if_it_is_asked_for, json_lines_are_as_described,
    ctrl_c_ends_also_while_nobody_answers, without_the_session_it_says_so)


def main() -> int:
    options = command_line(__doc__).parse_args()
    failed = 0
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        stage = options.work.resolve() / "stage"
        shutil.copy2(options.bin / "kiv-session.dll", stage)
        scene = Scene(bench, stage / "kiv-resolve.exe", options.bin.resolve() / "console_parent.exe")
        for check in CHECKS:
            try:
                check(scene)
                print(f"ok    {check.__name__}", flush=True)
            except AssertionError as error:
                failed += 1
                print(f"FAIL  {check.__name__}\n{error}", flush=True)
    return report(len(CHECKS) - failed, failed)


if __name__ == "__main__":
    sys.exit(main())
