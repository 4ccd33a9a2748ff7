"""Runs scenarios, one line of report each, and leaves nothing running whatever happens."""

from __future__ import annotations

import argparse
import contextlib
import difflib
import fcntl
import queue
import shutil
import signal
import socket
import subprocess
import time
from collections.abc import Iterator, Mapping, Sequence
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, replace
from pathlib import Path

from harness.catalogue import Catalogue
from harness.certificates import der_of
from harness.processes import Interrupted, Processes
from harness.scenario import Scenario, complaints, script_section, transcript
from harness.servers import Server
from harness.wine import ToolResult, WineUser, program_text, stage_tool

EXPECTED = Path(__file__).resolve().parent.parent / "expected"
RECORDED = EXPECTED.parent / "recorded"


class Bench:
    """One user and one set of servers: what runs one scenario at a time."""

    def __init__(self, folder: Path, tool: Path, processes: Processes) -> None:
        folder.mkdir(parents=True, exist_ok=True)
        self.user = WineUser(folder, processes)
        self.catalogue = Catalogue(folder / "servers", processes)
        self.folder = folder
        self.processes = processes
        self._tool = tool

    def prepare(self, scenario: Scenario) -> dict[str, Server]:
        """Starts the servers, writes settings and script; returns the servers that take part."""
        names = sorted({*self.catalogue.named_in(*scenario.texts), *scenario.servers, *scenario.installed_roots,
                        *scenario.public_roots})
        servers = self.catalogue.begin(names)
        script = self.catalogue.fill_in(scenario.script)
        self.catalogue.odd_web.script = script
        self.user.write_file("script.pac", script)
        self.user.write_file("old.pac", self.catalogue.fill_in(scenario.old_script))
        if "web" in servers:
            (self.catalogue.lighttpd.root / "script.pac").write_text(script)
        settings = scenario.settings and scenario.settings.filled(self.catalogue.fill_in)
        self.user.write_settings(settings)
        self.user.write_registry(scenario.registry, self.catalogue.fill_in)
        for name in scenario.recorded:
            shutil.copy(RECORDED / name, self.user.file(name))
        # Windows trusts those that it distributes because they are in both stores.
        public = [der_of(self.catalogue.certificate(name)) for name in scenario.public_roots]
        installed = [der_of(self.catalogue.certificate(name)) for name in scenario.installed_roots]
        self.user.write_roots({"Root": public + installed, "AuthRoot": public})
        for name in scenario.files:
            self.user.file(name).unlink(missing_ok=True)
        return servers

    def run(self, scenario: Scenario) -> ToolResult:
        """Runs the tool as a prepared scenario says."""
        fill_in = self.catalogue.fill_in
        arguments = [fill_in(argument) for argument in scenario.arguments]
        environment = {name: fill_in(text) for name, text in scenario.environment.items()}
        result = self.user.run_tool(self._tool, arguments, environment, scenario.timeout,
                                    fill_in(scenario.stdin))
        written = {name: self.user.file(name) for name in scenario.files}
        return replace(result, files={name: program_text(file) for name, file in written.items() if file.exists()})

    def stop(self) -> None:
        try:
            self.catalogue.stop()
        finally:
            self.user.stop()


@dataclass(frozen=True)
class Report:
    """What became of one scenario."""

    scenario: Scenario
    seconds: float
    problem: str = ""

    @property
    def text(self) -> str:
        verdict = "FAIL" if self.problem else "ok"
        line = f"{verdict:4}  {self.scenario.name}  ({self.seconds:.1f} s)"
        return f"{line}\n{self.problem}" if self.problem else line


def settled_transcript(bench: Bench, scenario: Scenario, result: ToolResult, servers: Mapping[str, Server],
                       expected: str | None) -> str:
    """The transcript once the servers have written their logs: as soon as it is the expected one, or stands still."""
    deadline = time.monotonic() + 5
    previous, since = "", time.monotonic()
    while True:
        actual = transcript(scenario, result, servers, bench.catalogue.ports())
        if actual != previous:
            previous, since = actual, time.monotonic()
        if actual == expected or time.monotonic() - since > 0.7 or time.monotonic() > deadline:
            return actual
        time.sleep(0.02)


def recorded_transcript(scenario: Scenario) -> str | None:
    """What a scenario's transcript must be; nothing if none is recorded."""
    file = EXPECTED / f"{(scenario.like or scenario).name}.txt"
    if not file.exists():
        return None
    text = file.read_text()
    if scenario.like is not None:
        text = text.replace("\n".join(script_section(scenario.like)), "\n".join(script_section(scenario)))
    return text


def run_scenario(bench: Bench, scenario: Scenario, accept: bool) -> str:
    """Runs one scenario and says what is wrong; an empty text if nothing is."""
    servers = bench.prepare(scenario)
    result = bench.run(scenario)
    # What only a newer Wine does is not recorded.
    accept = accept and scenario.like is None
    expected = None if accept else recorded_transcript(scenario)
    actual = settled_transcript(bench, scenario, result, servers, expected)
    wrong = complaints(scenario, result, bench.catalogue.fill_in(scenario.outcome))
    if accept:
        (EXPECTED / f"{scenario.name}.txt").write_text(actual)
    elif expected is None:
        wrong.append(f"no transcript is recorded (run with --accept); it is:\n{actual}")
    elif actual != expected:
        name = f"expected/{(scenario.like or scenario).name}.txt"
        wrong.append("".join(difflib.unified_diff(
            expected.splitlines(keepends=True), actual.splitlines(keepends=True), name, "this run")))
    return "\n".join(wrong)


def reported(free: queue.SimpleQueue[Bench], scenario: Scenario, accept: bool) -> Report:
    """Runs one scenario on a bench that is free; a scenario that breaks is a failed one."""
    bench = free.get()
    began = time.monotonic()
    try:
        problem = run_scenario(bench, scenario, accept)
    except Interrupted:
        problem = "interrupted"
    except subprocess.TimeoutExpired:
        problem = f"the tool did not end within {scenario.timeout:.0f} s"
    except (OSError, RuntimeError) as error:
        problem = f"{type(error).__name__}: {error}"
    finally:
        free.put(bench)
    return Report(scenario, time.monotonic() - began, problem)


def require_localhost() -> None:
    """Ends the run if localhost, the targets' name (proxies have another, for Wine's sake), leads nowhere."""
    try:
        addresses = {address[0] for *_, address in socket.getaddrinfo("localhost", None)}
    except OSError:
        addresses = set()
    if "127.0.0.1" not in addresses:
        raise SystemExit("the name localhost does not lead to 127.0.0.1 (the package libnss-myhostname lets it)")


def _end(number: int, _: object) -> None:
    raise SystemExit(128 + number)


def command_line(description: str | None) -> argparse.ArgumentParser:
    """A parser for what every program needs that sets up benches."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--bin", type=Path, required=True, help="the folder that holds kiv.dll and programs for it")
    parser.add_argument("--bridge", type=Path, required=True, help="the folder that holds the bridging winhttp.dll")
    parser.add_argument("--work", type=Path, required=True, help="a folder for all that the run writes")
    return parser


@contextlib.contextmanager
def supervised(work: Path) -> Iterator[tuple[Processes, contextlib.ExitStack]]:
    """Processes for a run below `work`, the only one there, and steps that end it: however it ends, by a signal too."""
    work.mkdir(parents=True, exist_ok=True)
    ending_signals = (signal.SIGTERM, signal.SIGHUP, signal.SIGINT)
    former = {number: signal.signal(number, _end) for number in ending_signals}
    processes = Processes()
    # Each step is taken even if another one fails.
    with open(work / "lock", "w", encoding="ascii") as lock, contextlib.ExitStack() as cleaning:
        fcntl.flock(lock, fcntl.LOCK_EX)
        cleaning.callback(lambda: [signal.signal(number, handler) for number, handler in former.items()])
        cleaning.callback(processes.stop_all)
        try:
            yield processes, cleaning
        finally:
            for number in ending_signals:
                signal.signal(number, signal.SIG_IGN)
            processes.refuse_more()


@contextlib.contextmanager
def benches(count: int, binaries: Path, bridge: Path, work: Path) -> Iterator[list[Bench]]:
    """Sets up benches below `work`, and takes them down however the run ends, by a signal too."""
    require_localhost()
    work = work.resolve()
    with supervised(work) as (processes, cleaning):
        tool = stage_tool(binaries, bridge, work / "stage")
        made: list[Bench] = []
        for number in range(count):
            bench = Bench(work / f"bench-{number}", tool, processes)
            cleaning.callback(bench.stop)
            bench.user.create(made[0].user.prefix if number else None)
            made.append(bench)
        for bench in made:
            bench.user.start()
        yield made


def run_all(scenarios: Sequence[Scenario], ready: Sequence[Bench], accept: bool) -> int:
    """Runs scenarios, reports in their order, and returns how many failed."""
    free: queue.SimpleQueue[Bench] = queue.SimpleQueue()
    for bench in ready:
        free.put(bench)
    failed = 0
    executor = ThreadPoolExecutor(len(ready))
    try:
        for future in [executor.submit(reported, free, scenario, accept) for scenario in scenarios]:
            report = future.result()
            failed += bool(report.problem)
            print(report.text, flush=True)
    finally:
        executor.shutdown(wait=False, cancel_futures=True)
    return failed
