"""Tells what a test program has counted."""

from __future__ import annotations

import json
import os
from pathlib import Path


def report(passed: int, failed: int) -> int:
    """Prints how many checks passed and failed, and writes it to the file that KIV_RESULTS names; gives the exit code."""
    print(f"{passed} passed, {failed} failed", flush=True)
    if name := os.environ.get("KIV_RESULTS"):
        Path(name).write_text(json.dumps({"passed": passed, "failed": failed}), encoding="utf-8")
    return 0 if passed and not failed else 1
