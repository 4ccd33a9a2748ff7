#!/usr/bin/env python3
"""Resolves again and again on several threads through two real proxies; fails if anything fails, or anything grows."""

from __future__ import annotations

import argparse
import shutil
import sys
from pathlib import Path

from harness.results import report
from harness.runner import Bench, benches, command_line
from harness.wine import Settings

PROXIES = ("tinyproxy", "tinyproxy2")


def run_load(bench: Bench, program: Path, options: argparse.Namespace) -> bool:
    """Runs the load program as a user without settings; tells whether it was content."""
    bench.catalogue.begin([*PROXIES, "web"])
    bench.user.write_settings(Settings())
    ports = bench.catalogue.ports()
    arguments = [f"http://localhost:{ports['web']}/ok", *(f"http://127.0.0.1:{ports[proxy]}" for proxy in PROXIES),
                 str(options.threads), str(options.resolutions), str(options.seconds)]
    result = bench.user.run_tool(program, arguments, {}, options.seconds + 600)
    sys.stdout.write(result.stdout + result.stderr)
    return result.exit_code == 0


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--threads", type=int, default=8)
    parser.add_argument("--resolutions", type=int, default=200, help="of each thread (default: 200)")
    parser.add_argument("--seconds", type=int, default=0, help="go on in rounds of as many until then (a soak)")
    options = parser.parse_args()
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        program = options.work.resolve() / "stage" / "kiv_load.exe"
        shutil.copy2(options.bridge / "kiv_load.exe", program)
        content = run_load(bench, program, options)
    return report(int(content), int(not content))


if __name__ == "__main__":
    sys.exit(main())
