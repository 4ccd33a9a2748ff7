#!/usr/bin/env python3
"""Makes the table of ratios from what bench_library measured: medians of repetitions that were run in turns."""

from __future__ import annotations

import json
import math
import sys
from dataclasses import dataclass


@dataclass(frozen=True)
class Goal:
    """At a size, this library's time at most 1/`least` of the other's."""

    what: str
    other: str
    least: float
    sizes: tuple[int, ...] = ()


GOALS = [
    Goal("address", "curl", 3), Goal("address", "glib", 0), Goal("address", "wregex", 20),
    Goal("bypass", "glib", 5, (1, 10, 100, 1000, 10000)), Goal("bypass", "wregex", 50, (1, 10, 100, 1000)),
    Goal("bypass-answer", "glib", 1, (1, 10, 100, 1000, 10000)),
]
# What should grow no faster than its size, and how much faster counts as that.
LINEAR = ["bypass/kiv", "bypass-answer/kiv", "pac-list/kiv", "winhttp-list/kiv"]
MOST_EXPONENT = 1.05
# Below, what does not depend on the size is most of the time.
LEAST_SIZE_FITTED = 100


def medians(document: dict) -> dict[str, dict]:
    """By name, the median of each benchmark's repetitions, with its counters."""
    return {run["run_name"]: run for run in document["benchmarks"] if run.get("aggregate_name") == "median"}


def nanoseconds(run: dict) -> float:
    return run["cpu_time"] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[run["time_unit"]]


def exponent(runs: dict[str, dict], name: str) -> float:
    """The slope of time over size, both as logarithms, by least squares."""
    points = [(math.log(int(key.rsplit("/", 1)[1])), math.log(nanoseconds(run))) for key, run in runs.items()
              if key.startswith(name + "/") and int(key.rsplit("/", 1)[1]) >= LEAST_SIZE_FITTED]
    mean_x, mean_y = (sum(values) / len(points) for values in zip(*points))
    return sum((x - mean_x) * (y - mean_y) for x, y in points) / sum((x - mean_x) ** 2 for x, _ in points)


def verdict(good: bool) -> str:
    return "pass" if good else "miss"


def print_ratios(runs: dict[str, dict]) -> None:
    print("| what | size | kiv | other | ratio | goal | |\n| --- | --: | --: | --: | --: | --: | --- |")
    for goal in GOALS:
        for size in goal.sizes or (None,):
            suffix = "" if size is None else f"/{size}"
            own, other = (nanoseconds(runs[f"{goal.what}/{who}{suffix}"]) for who in ("kiv", goal.other))
            # The goals for lists begin where there is something to look up.
            counts = goal.least > 0 and (size is None or size >= 10 or goal.what == "bypass-answer")
            print(f"| {goal.what} against {goal.other} | {size or ''} | {own:,.0f} ns | {other:,.0f} ns "
                  f"| {other / own:.1f} | {goal.least if counts else ''} "
                  f"| {verdict(other / own >= goal.least) if counts else ''} |")


def print_growth(runs: dict[str, dict]) -> None:
    print("\n| what | exponent | goal | |\n| --- | --: | --: | --- |")
    for name in LINEAR:
        fitted = exponent(runs, name)
        print(f"| {name.split('/')[0]} | {fitted:.2f} | {MOST_EXPONENT} | {verdict(fitted <= MOST_EXPONENT)} |")


def print_resolutions(runs: dict[str, dict]) -> None:
    print("\n| resolution: candidates / rules, log | time | lines | allocations |\n| --- | --: | --: | --: |")
    for name, run in runs.items():
        if not name.startswith("resolution/"):
            continue
        _, log, candidates, rules = name.split("/")
        print(f"| {candidates} / {rules}, {log} | {nanoseconds(run) / 1000:,.1f} µs | {run['lines']:.0f} "
              f"| {run['allocations']:,.0f} |")
    for name in ("log-line/kiv", "credential/created/0", "credential/created/1", "credential/read/0",
                 "credential/read/1"):
        print(f"| {name} | {nanoseconds(runs[name]):,.0f} ns | | |")


def main() -> int:
    runs = medians(json.load(sys.stdin))
    print_ratios(runs)
    print_growth(runs)
    print_resolutions(runs)
    return 0


if __name__ == "__main__":
    sys.exit(main())
