#!/usr/bin/env python3
"""Makes the tables of docs/internals/performance.md: table.py FOLDER, with the measured figures of each program.

library-*.json  what bench_library measured, a file for each round
scale.txt       what bench_scale measured: "<family> <size> <nanoseconds> <bytes>"
growth.*        what callgrind counted of bench_scale, a file for each family and size
session.txt     what session_bench measured of kiv-session.dll: "<what> <figure>"
load.json       what load_time.py measured: milliseconds by name of the library that was loaded
"""

from __future__ import annotations

import json
import math
import re
import statistics
import sys
from dataclasses import dataclass
from pathlib import Path

DLL = Path("build/windows-x64/bin/kiv.dll")


@dataclass(frozen=True)
class Ratio:
    """At a size, this library's time should be at most 1/`least` of the other's; 0 for no goal."""

    what: str
    other: str
    least: float
    sizes: tuple[int, ...] = ()


RATIOS = [
    Ratio("address", "curl", 3), Ratio("address", "glib", 0), Ratio("address", "wregex", 20),
    Ratio("bypass", "glib", 5, (10, 100, 1000, 10000)), Ratio("bypass", "wregex", 50, (10, 100, 1000)),
]
# Of instructions, which are the same in each run. Times are not fitted: theirs tell how large the caches are.
MOST_INSTRUCTION_EXPONENT = 1.02
MOST_MEMORY_EXPONENT = 1.05
TYPICAL = "resolution/keeping/3/50"
# A block for each line, and beyond that for copies of the candidates, which the application's callbacks are given, and texts.
MOST_MICROSECONDS, MOST_OTHER_ALLOCATIONS = 30, 40
MOST_DLL_BYTES = 185_000
MOST_LOAD_RATIO = 1.10


@dataclass(frozen=True)
class SessionGoal:
    """A figure of session.txt, and what it should be at most, or at least."""

    name: str
    what: str
    most: float = math.inf
    least: float = -math.inf

    def is_met(self, figure: float) -> bool:
        return self.least <= figure <= self.most


SESSION_GOALS = [
    SessionGoal("lookup-ns", "kept decision, 60-character URL, ns", most=1000),
    SessionGoal("lookup-allocations", "its allocations", most=0),
    SessionGoal("two-threads", "two threads on different origins, against one", least=1.7),
    SessionGoal("lookup-of-10000-ns", "kept decision, one of 10,000, ns", most=1000),
    SessionGoal("bytes-per-origin", "memory for each kept origin, bytes", most=1024),
    SessionGoal("first-beyond-kiv-ms", "first decision, beyond kiv.dll's, ms", most=1.0),
]


@dataclass(frozen=True)
class Run:
    """A benchmark, of which each round has its figures."""

    nanoseconds: list[float]
    counters: dict[str, float]

    @property
    def median(self) -> float:
        return statistics.median(self.nanoseconds)


def read_rounds(folder: Path) -> dict[str, Run]:
    """The benchmarks by name."""
    units = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    runs: dict[str, Run] = {}
    for path in sorted(folder.glob("library-*.json")):
        for figures in json.loads(path.read_text())["benchmarks"]:
            counters = {name: figures[name] for name in ("lines", "allocations") if name in figures}
            run = runs.setdefault(figures["name"], Run([], counters))
            run.nanoseconds.append(figures["cpu_time"] * units[figures["time_unit"]])
    return runs


def read_instructions(folder: Path) -> dict[tuple[str, int], int]:
    """What callgrind counted, by family and size."""
    counted = {}
    for path in folder.glob("growth.*"):
        text = path.read_text()
        if trigger := re.search(r"^desc: Trigger: Client Request: (\w+) (\d+)$", text, re.M):
            counted[trigger[1], int(trigger[2])] = int(re.search(r"^totals: (\d+)$", text, re.M)[1])
    return counted


def ratio(other: Run, own: Run) -> float:
    """The median of the rounds' ratios: what else the machine does hits both sides of each."""
    return statistics.median(a / b for a, b in zip(other.nanoseconds, own.nanoseconds))


def exponent(points: list[tuple[float, float]]) -> float:
    """The slope of a figure over the size, both as logarithms, by least squares."""
    logarithms = [(math.log(size), math.log(figure)) for size, figure in points]
    mean_x, mean_y = (sum(values) / len(points) for values in zip(*logarithms))
    return sum((x - mean_x) * (y - mean_y) for x, y in logarithms) / sum((x - mean_x) ** 2 for x, _ in logarithms)


def row(*cells: object) -> None:
    print("| " + " | ".join(str(cell) for cell in cells) + " |")


def head(*cells: str) -> None:
    print()
    row(*cells)
    row("---", *["--:"] * (len(cells) - 1))


def verdict(good: bool) -> str:
    return "pass" if good else "**miss**"


def print_ratios(runs: dict[str, Run]) -> None:
    head("what, against", "size", "kiv, ns", "other, ns", "ratio", "goal", "")
    for goal in RATIOS:
        for size in goal.sizes or (None,):
            suffix = "" if size is None else f"/{size}"
            own, other = (runs[f"{goal.what}/{who}{suffix}"] for who in ("kiv", goal.other))
            times = ratio(other, own)
            row(f"{goal.what}, {goal.other}", size or "", f"{own.median:,.0f}", f"{other.median:,.0f}", f"{times:.1f}",
                goal.least or "", verdict(times >= goal.least) if goal.least else "")


def print_growth(instructions: dict[tuple[str, int], int], scale: list[list[str]]) -> None:
    head("growth of", "sizes", "exponent", "goal", "")
    for family in dict.fromkeys(fields[0] for fields in scale):
        bytes_used = [(int(size), int(most)) for name, size, _, most in scale if name == family]
        counted = [(size, instructions[family, size]) for size, _ in bytes_used]
        for what, points, goal in (("instructions", counted, MOST_INSTRUCTION_EXPONENT),
                                   ("memory", bytes_used, MOST_MEMORY_EXPONENT)):
            fitted = exponent(points)
            row(f"{what} by {family}", f"{points[0][0]:,} to {points[-1][0]:,}", f"{fitted:.2f}", goal,
                verdict(round(fitted, 2) <= goal))


def print_whole(runs: dict[str, Run], load: dict[str, float]) -> None:
    head("whole", "figure", "goal", "")
    typical = runs[TYPICAL]
    microseconds, lines = typical.median / 1000, typical.counters["lines"]
    dropping = runs[TYPICAL.replace("keeping", "discarding")].counters["allocations"]
    row("3 candidates, 50 rules, all lines kept, µs", f"{microseconds:.1f}", MOST_MICROSECONDS,
        verdict(microseconds < MOST_MICROSECONDS))
    row("its allocations beside one for each line", f"{dropping - lines:.0f}", MOST_OTHER_ALLOCATIONS,
        verdict(dropping - lines <= MOST_OTHER_ALLOCATIONS))
    size = DLL.stat().st_size
    row("kiv.dll, bytes", f"{size:,}", f"{MOST_DLL_BYTES:,}", verdict(size < MOST_DLL_BYTES))
    longer = load["kiv.dll"] / load["winhttp.dll"]
    row("process that loads kiv.dll, against winhttp.dll", f"{longer:.2f}", MOST_LOAD_RATIO,
        verdict(longer <= MOST_LOAD_RATIO))


def print_session(figures: dict[str, float]) -> None:
    head("session", "figure", "goal", "")
    for goal in SESSION_GOALS:
        figure = figures[goal.name]
        bound = f"at most {goal.most:,g}" if goal.most != math.inf else f"at least {goal.least:,g}"
        row(goal.what, f"{figure:,g}", bound, verdict(goal.is_met(figure)))


def print_costs(runs: dict[str, Run]) -> None:
    head("resolution: candidates, rules", "log", "time, µs", "lines", "allocations")
    resolutions = [(int(candidates), int(rules), log) for _, log, candidates, rules in
                   (name.split("/") for name in runs if name.startswith("resolution/"))]
    for candidates, rules, log in sorted(resolutions):
        run = runs[f"resolution/{log}/{candidates}/{rules}"]
        row(f"{candidates:,}, {rules:,}", {"discarding": "dropped", "keeping": "kept"}[log],
            f"{run.median / 1000:,.1f}", f"{run.counters['lines']:,.0f}", f"{run.counters['allocations']:,.0f}")
    head("each", "time, ns")
    for name, title in (("log-line/kiv", "log line"), ("credential/created/0", "credential, created"),
                        ("credential/created/1", "the same, with its password protected"),
                        ("credential/read/0", "password, read"), ("credential/read/1", "the same, protected"),
                        ("pac-list/kiv/1000", "1,000 entries of a PAC script's answer"),
                        ("winhttp-list/kiv/1000", "1,000 entries of the system's proxy list")):
        row(title, f"{runs[name].median:,.0f}")


def main(folder: str) -> int:
    runs = read_rounds(Path(folder))
    print_ratios(runs)
    print_growth(read_instructions(Path(folder)), [line.split() for line in Path(folder, "scale.txt").read_text().splitlines()])
    print_whole(runs, json.loads(Path(folder, "load.json").read_text()))
    print_session({name: float(figure) for name, figure in
                   (line.split() for line in Path(folder, "session.txt").read_text().splitlines())})
    print_costs(runs)
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
