#!/usr/bin/env python3
"""Runs the end-to-end scenarios: the shipped tool and DLL in Wine, against real servers on loopback."""

from __future__ import annotations

import argparse
import shutil
import sys

from harness.differences import wine_version, with_differences
from harness.results import report
from harness.runner import EXPECTED, benches, command_line, run_all
from scenarios import SCENARIOS


def arguments() -> argparse.Namespace:
    parser = command_line(__doc__)
    parser.add_argument("--filter", default="", help="run only the scenarios whose name contains this text")
    parser.add_argument("--jobs", type=int, default=2, help="how many scenarios run at once (default: 2)")
    parser.add_argument("--accept", action="store_true", help="record the transcripts as the expected ones")
    parser.add_argument("--keep", action="store_true", help="keep the servers' files for a look at them")
    parser.add_argument("--list", action="store_true", help="only list the scenarios")
    return parser.parse_args()


def stale_transcripts() -> list[str]:
    """Recorded transcripts that no scenario has."""
    names = {scenario.name for scenario in SCENARIOS}
    return sorted(file.name for file in EXPECTED.glob("*.txt") if file.stem not in names)


def main() -> int:
    options = arguments()
    scenarios = with_differences(SCENARIOS, wine_version())
    chosen = [scenario for scenario in scenarios if options.filter in scenario.name]
    if options.list:
        print("\n".join(scenario.name for scenario in chosen))
        return 0
    if not chosen:
        print(f"no scenario's name contains {options.filter!r}", file=sys.stderr)
        return 1
    if stale := stale_transcripts():
        print(f"no scenario has the recorded transcripts {', '.join(stale)}", file=sys.stderr)
        return 1
    count = max(1, min(options.jobs, len(chosen)))
    with benches(count, options.bin, options.bridge, options.work) as ready:
        failed = run_all(chosen, ready, options.accept)
    if not options.keep:
        for folder in options.work.glob("bench-*/servers"):
            shutil.rmtree(folder)
    return report(len(chosen) - failed, failed)


if __name__ == "__main__":
    sys.exit(main())
