#!/usr/bin/env python3
"""Measures processes that load a DLL and end, alternating: load_time.py PROGRAM DLL... prints one line of JSON."""

from __future__ import annotations

import json
import statistics
import subprocess
import sys
import time

ROUNDS = 41
WARM_UP = 3


def milliseconds(program: str, dll: str) -> float:
    start = time.perf_counter()
    subprocess.run(["wine", program, dll], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return (time.perf_counter() - start) * 1000


def main(program: str, *dlls: str) -> int:
    rounds = [{dll: milliseconds(program, dll) for dll in dlls} for _ in range(WARM_UP + ROUNDS)]
    print(json.dumps({dll: statistics.median(times[dll] for times in rounds[WARM_UP:]) for dll in dlls}))
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
