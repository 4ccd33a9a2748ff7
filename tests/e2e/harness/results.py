"""Tells what a test program has counted."""

from __future__ import annotations

import json
import os
import traceback
from collections.abc import Callable
from pathlib import Path
from typing import TypeVar

T = TypeVar("T")


def passes(check: Callable[[T], None], subject: T) -> bool:
    """Makes one check of something; prints its line, and what is wrong."""
    try:
        check(subject)
    except Exception:  # pylint: disable=broad-except
        print(f"FAIL  {check.__name__}\n{traceback.format_exc()}", flush=True)
        return False
    print(f"ok    {check.__name__}", flush=True)
    return True


def report(passed: int, failed: int) -> int:
    """Prints how many checks passed and failed, and writes it to the file that KIV_RESULTS names; gives the exit code."""
    print(f"{passed} passed, {failed} failed", flush=True)
    if name := os.environ.get("KIV_RESULTS"):
        Path(name).write_text(json.dumps({"passed": passed, "failed": failed}), encoding="utf-8")
    return 0 if passed and not failed else 1
