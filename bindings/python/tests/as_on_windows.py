"""Runs a program as if it were on Windows, with the stand-in in the place of kiv-session.dll.

    python -m tests.as_on_windows PROXY PROGRAM [ARGUMENT...]

PROXY is the decision for URLs of localhost.
"""

import runpy
import sys
import sysconfig
from pathlib import Path

import kiv.library

from .support import stand_in

sysconfig.get_platform = lambda: "win-amd64"
kiv.library.DLL = Path(stand_in.path)
proxy, program, *arguments = sys.argv[1:]
if proxy == "NONE":
    stand_in.answer("localhost", proxy, reason=kiv.Reason.NOTHING_WORKS)
else:
    stand_in.answer("localhost", proxy)
sys.argv = [program, *arguments]
try:
    runpy.run_path(program, run_name="__main__")
finally:
    if stand_in.complaint():
        sys.exit(stand_in.complaint())
