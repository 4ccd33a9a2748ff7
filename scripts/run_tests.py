#!/usr/bin/env python3
"""Builds each preset that has tests, runs these with CTest, and prints how many checks passed and failed.

    run_tests.py [OPTION OF CTEST...]    such as -L unit, or -LE 'fuzz|lint'

What runs in Wine mostly waits: meanwhile the presets that follow are built, and give way to it. (A build's line shows how
long it was waited for.) Each test has a line as it ends; what one that fails has printed stands before that. A test
counts its checks in a file below the preset's folder: {"passed": N, "failed": N}, or the JSON of GoogleTest. One that
fails without a failed check, that counts none or leaves no file, such as a program that crashes, is one failed check. One
that a machine cannot run writes why: {"passed": 0, "failed": 0, "skipped": "REASON"}.
"""

from __future__ import annotations

import json
import subprocess
import sys
import time
from collections.abc import Callable, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
PRESETS = ("windows-x64", "native-asan", "native-tsan", "fuzz")

Counts = tuple[int, int]


class Skipped(Exception):
    """A test cannot run on this machine."""


def failure_of(command: Sequence[str]) -> str | None:
    """Runs a command; returns what it said if it failed."""
    done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                          text=True, errors="replace", check=False)
    return done.stdout if done.returncode else None


def succeeds(failure: str | None) -> bool:
    """Whether a command did; says what it said only if it failed."""
    print(failure or "", end="")
    return failure is None


def read_counts(results: Path) -> Counts:
    """The checks that passed and failed, by the file that a test has written."""
    counts = json.loads(results.read_text(encoding="utf-8"))
    if "testsuites" in counts:
        failed = counts["failures"] + counts["errors"]
        return counts["tests"] - counts["disabled"] - failed, failed
    if "skipped" in counts:
        raise Skipped(counts["skipped"])
    return counts["passed"], counts["failed"]


def run_test(preset: str, name: str) -> Counts:
    """Runs one test and returns what it counts."""
    results = ROOT / "build" / preset / "results" / f"{name}.json"
    results.unlink(missing_ok=True)
    ended_well = succeeds(failure_of(["ctest", "--preset", preset, "-R", f"^{name}$"]))
    try:
        passed, failed = read_counts(results)
    except Skipped as reason:
        print(f"{name} was skipped: {reason}")
        return 0, 0 if ended_well else 1
    except (OSError, ValueError, KeyError) as error:
        print(f"{name} has not told how many checks passed: {error!r}")
        return 0, 1
    return passed, failed if failed or (ended_well and passed) else 1


def tests_of(preset: str, options: Sequence[str]) -> list[tuple[str, str]]:
    """The names and labels of the tests of a preset that the options choose."""
    found = subprocess.run(["ctest", "--preset", preset, *options, "--show-only=json-v1"], cwd=ROOT, check=True,
                           stdout=subprocess.PIPE, text=True)
    return [(test["name"], label) for test in json.loads(found.stdout)["tests"] for property_ in test["properties"]
            if property_["name"] == "LABELS" for label in property_["value"]]


def step(title: str, run: Callable[[], Counts]) -> Counts:
    """Runs one step and prints its line."""
    began = time.monotonic()
    counts = run()
    print(f"{title:58} {time.monotonic() - began:4.0f} s  {'FAILED' if counts[1] else 'ok'}", flush=True)
    return counts


def main() -> int:
    options = sys.argv[1:]
    counted: list[Counts] = []
    tests: dict[str, list[tuple[str, str]]] = {}
    for preset in PRESETS:
        if not succeeds(failure_of(["cmake", "--preset", preset])):
            counted.append(step(f"{preset:16} configure", lambda: (0, 1)))
        elif chosen := tests_of(preset, options):
            tests[preset] = chosen
    with ThreadPoolExecutor(max_workers=1) as in_turn:
        builds = {preset: in_turn.submit(failure_of, ["nice", "-n", "19", "cmake", "--build", "--preset", preset])
                  for preset in tests}
        for preset, chosen in tests.items():
            counted.append(step(f"{preset:16} build", lambda: (0, 0 if succeeds(builds[preset].result()) else 1)))
            if counted[-1][1]:
                continue
            for name, label in chosen:
                counted.append(step(f"{preset:16} {label:9} {name}", lambda: run_test(preset, name)))
    passed, failed = (sum(counts[which] for counts in counted) for which in (0, 1))
    print(f"{passed} passed, {failed} failed")
    return 0 if passed and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
