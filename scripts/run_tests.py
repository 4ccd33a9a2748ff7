#!/usr/bin/env python3
"""Builds each preset that has tests, runs these with CTest, and prints how many checks passed and failed.

    run_tests.py [OPTION OF CTEST...]    such as -L unit, or -LE 'fuzz|lint'

What runs in Wine mostly waits. Beside it, and giving way to it, run the builds and the tests with the label "busy": one
after another what uses all processors, and beside that what uses one. Each has a line as it ends; what one that fails has
printed stands before that.

A test counts its checks in a file below the preset's folder: {"passed": N, "failed": N}, or the JSON of GoogleTest. One
that fails without a failed check, that counts none or leaves no file, such as a program that crashes, is one failed
check. One that a machine cannot run writes why: {"passed": 0, "failed": 0, "skipped": "REASON"}.
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
BUSY = "busy"
# The busy tests of the first use all processors; those of the others, one each.
PRESETS = ("windows-x64", "native-asan", "native-tsan", "fuzz")

Counts = tuple[int, int]
# And what there is to read.
Outcome = tuple[int, int, str]


class Test(NamedTuple):
    preset: str
    name: str
    label: str
    is_busy: bool


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


def total(counted: Sequence[Counts]) -> Counts:
    return sum(passed for passed, _ in counted), sum(failed for _, failed in counted)


def build(preset: str) -> Outcome:
    """Builds a preset; a build that fails is a failed check."""
    failure = failure_of(["nice", "-n", "19", "cmake", "--build", "--preset", preset])
    return 0, 0 if failure is None else 1, failure or ""


def run(test: Test) -> Outcome:
    """Runs one test and returns what it counts."""
    results = ROOT / "build" / test.preset / "results" / f"{test.name}.json"
    results.unlink(missing_ok=True)
    niceness = "15" if test.is_busy else "0"
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
    labels = {test["name"]: property_["value"] for test in json.loads(found.stdout)["tests"]
              for property_ in test["properties"] if property_["name"] == "LABELS"}
    return [Test(preset, name, " ".join(label for label in its if label != BUSY), BUSY in its)
            for name, its in labels.items()]


def step(title: str, act: Callable[[], Outcome]) -> Counts:
    """Does something and prints its line."""
    began = time.monotonic()
    passed, failed, said = act()
    line = f"{title:58} {time.monotonic() - began:4.0f} s  {'FAILED' if failed else 'ok'}\n"
    sys.stdout.write(said + line)
    sys.stdout.flush()
    return passed, failed


def run_built(built: Future[Counts], tests: Sequence[Test]) -> Counts:
    """Runs tests of a preset in turn, unless it could not be built."""
    failed_to_build = built.result()[1]
    counted = [step(f"{test.preset:16} {test.label:9} {test.name}", lambda test=test: run(test))
               for test in tests if not failed_to_build]
    return total(counted)


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
    with ThreadPoolExecutor(max_workers=1) as many_processors, ThreadPoolExecutor(max_workers=1) as one_processor:
        built = {preset: many_processors.submit(step, f"{preset:16} build", lambda preset=preset: build(preset))
                 for preset in dict.fromkeys(test.preset for test in tests)}
        busy = [(many_processors if preset == PRESETS[0] else one_processor).submit(
                    run_built, done, [test for test in tests if test.preset == preset and test.is_busy])
                for preset, done in built.items()]
        counted += [run_built(done, [test for test in tests if test.preset == preset and not test.is_busy])
                    for preset, done in built.items()]
        counted += [future.result() for future in (*built.values(), *busy)]
    passed, failed = total(counted)
    print(f"{passed} passed, {failed} failed")
    return 0 if passed and not failed else 1


if __name__ == "__main__":
    sys.exit(main())
