#!/usr/bin/env python3
"""Builds each preset that has tests, runs these with CTest, and prints how many checks passed and failed.

    run_tests.py [OPTION OF CTEST...]    such as -L unit, or -LE 'fuzz|lint'

Two things are done at a time: what runs in Wine mostly waits, and beside it runs what keeps processors busy, which gives
way: the builds, and the tests with the label "busy". Each has a line as it ends; what one that fails has printed stands
before that.

A test counts its checks in a file below the preset's folder: {"passed": N, "failed": N}, or the JSON of GoogleTest. One
that fails without a failed check, that counts none or leaves no file, such as a program that crashes, is one failed check.
One that a machine cannot run writes why: {"passed": 0, "failed": 0, "skipped": "REASON"}.
"""

from __future__ import annotations

import json
import subprocess
import sys
import time
from collections.abc import Callable, Sequence
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parents[1]
PRESETS = ("windows-x64", "native-asan", "native-tsan", "fuzz")

Counts = tuple[int, int]
# And what there is to read.
Outcome = tuple[int, int, str]


class Test(NamedTuple):
    preset: str
    name: str
    labels: list[str]


class Skipped(Exception):
    """A test cannot run on this machine."""


def failure_of(command: Sequence[str]) -> str | None:
    """Runs a command; returns what it said if it failed."""
    done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                          text=True, errors="replace", check=False)
    return done.stdout if done.returncode else None


def read_counts(results: Path) -> Counts:
    """The checks that passed and failed, by the file that a test has written."""
    counts = json.loads(results.read_text(encoding="utf-8"))
    if "testsuites" in counts:
        failed = counts["failures"] + counts["errors"]
        return counts["tests"] - counts["disabled"] - failed, failed
    if "skipped" in counts:
        raise Skipped(counts["skipped"])
    return counts["passed"], counts["failed"]


def build(preset: str) -> Outcome:
    """Builds a preset; a build that fails is a failed check."""
    failure = failure_of(["nice", "-n", "19", "cmake", "--build", "--preset", preset])
    return 0, 0 if failure is None else 1, failure or ""


def run(test: Test) -> Outcome:
    """Runs one test and returns what it counts."""
    results = ROOT / "build" / test.preset / "results" / f"{test.name}.json"
    results.unlink(missing_ok=True)
    niceness = "10" if "busy" in test.labels else "0"
    failure = failure_of(["nice", "-n", niceness, "ctest", "--preset", test.preset, "-R", f"^{test.name}$"])
    said = failure or ""
    try:
        passed, failed = read_counts(results)
    except Skipped as reason:
        return 0, 0 if failure is None else 1, f"{said}{test.name} was skipped: {reason}\n"
    except (OSError, ValueError, KeyError) as error:
        return 0, 1, f"{said}{test.name} has not told how many checks passed: {error!r}\n"
    return passed, failed if failed or (failure is None and passed) else 1, said


def tests_of(preset: str, options: Sequence[str]) -> list[Test]:
    """The tests of a preset that the options choose."""
    found = subprocess.run(["ctest", "--preset", preset, *options, "--show-only=json-v1"], cwd=ROOT, check=True,
                           stdout=subprocess.PIPE, text=True)
    return [Test(preset, test["name"], property_["value"]) for test in json.loads(found.stdout)["tests"]
            for property_ in test["properties"] if property_["name"] == "LABELS"]


def step(title: str, act: Callable[[], Outcome]) -> Counts:
    """Does something and prints its line."""
    began = time.monotonic()
    passed, failed, said = act()
    line = f"{title:58} {time.monotonic() - began:4.0f} s  {'FAILED' if failed else 'ok'}\n"
    sys.stdout.write(said + line)
    sys.stdout.flush()
    return passed, failed


def run_built(built: Future[Counts], test: Test) -> Counts:
    """Runs a test unless its preset could not be built."""
    if built.result()[1]:
        return 0, 0
    return step(f"{test.preset:16} {test.labels[0]:9} {test.name}", lambda: run(test))


def main() -> int:
    options = sys.argv[1:]
    counted: list[Counts] = []
    tests: list[Test] = []
    for preset in PRESETS:
        failure = failure_of(["cmake", "--preset", preset])
        if failure is None:
            tests += tests_of(preset, options)
        else:
            counted.append(step(f"{preset:16} configure", lambda said=failure: (0, 1, said)))
    with ThreadPoolExecutor(max_workers=1) as beside:
        built = {preset: beside.submit(step, f"{preset:16} build", lambda preset=preset: build(preset))
                 for preset in dict.fromkeys(test.preset for test in tests)}
        busy = [beside.submit(run_built, built[test.preset], test) for test in tests if "busy" in test.labels]
        counted += [run_built(built[test.preset], test) for test in tests if "busy" not in test.labels]
        counted += [future.result() for future in (*built.values(), *busy)]
    passed, failed = (sum(counts[which] for counts in counted) for which in (0, 1))
    print(f"{passed} passed, {failed} failed")
    return 0 if passed and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
