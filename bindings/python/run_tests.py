#!/usr/bin/env python3
"""Tests the Python package over a stand-in for kiv-session.dll and against real proxies and servers; checks its types;
runs the program of its README and its example.

    run_tests.py --work FOLDER [NAME...]    such as tests.test_session.Resolving

Ends with 77 where what it needs is not installed.
"""

from __future__ import annotations

import argparse
import contextlib
import importlib.util
import os
import shutil
import subprocess
import sys
import unittest
from collections.abc import Iterator
from pathlib import Path

BINDING = Path(__file__).resolve().parent
ROOT = BINDING.parents[1]
sys.path[:0] = [str(ROOT / "tests/e2e"), str(BINDING)]

# The harness is found by the line above.
from harness.catalogue import Catalogue  # noqa: E402
from harness.processes import Processes  # noqa: E402
from harness.results import report  # noqa: E402
from harness.runner import require_localhost  # noqa: E402

SKIPPED = 77
SERVERS = ("squid_basic", "squid_ntlm", "squid_digest", "web")


def check_sources() -> Iterator[tuple[str, subprocess.CompletedProcess[str]]]:
    """What the sources show by themselves."""
    commands = {"declarations": [sys.executable, str(ROOT / "bindings/check_declarations.py"), "python"],
                "types": ["mypy", "--cache-dir", os.devnull, "kiv", "tests", "examples/download.py"]}
    for name, command in commands.items():
        yield name, subprocess.run(command, cwd=BINDING, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   check=False)


@contextlib.contextmanager
def servers(folder: Path) -> Iterator[None]:
    """Starts servers, and names them in the environment."""
    require_localhost()
    processes = Processes()
    catalogue = Catalogue(folder, processes)
    try:
        web = catalogue.begin(SERVERS)["web"]
        for name, port in catalogue.ports().items():
            host = "localhost" if name.startswith("web") else "127.0.0.1"
            os.environ[f"KIV_TEST_{name.upper()}"] = f"http{'s' if name == 'web_tls' else ''}://{host}:{port}"
        os.environ["KIV_TEST_CERTIFICATE"] = str(folder / "web/certificate.pem")
        assert web.ports
        yield
    finally:
        catalogue.stop()
        processes.stop_all()


def missing() -> list[str]:
    """What is not installed."""
    return [name for name in ("gcc", "mypy") if shutil.which(name) is None] + \
        [name for name in ("requests",) if importlib.util.find_spec(name) is None]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--work", type=Path, required=True, help="a folder for all that the run writes")
    parser.add_argument("names", nargs="*", help="the tests to run; all without one")
    options = parser.parse_args()
    if lacking := missing():
        print(f"skipped: {', '.join(lacking)} not installed (./scripts/setup.sh python)")
        return SKIPPED
    passed = failed = 0
    for name, checked in check_sources():
        passed += checked.returncode == 0
        failed += checked.returncode != 0
        print(f"{'FAIL' if checked.returncode else 'ok':4}  {name}\n{checked.stdout if checked.returncode else ''}", end="")
    with servers(options.work.resolve()):
        loader = unittest.TestLoader()
        suite = (loader.loadTestsFromNames(options.names) if options.names else
                 loader.discover(str(BINDING / "tests"), top_level_dir=str(BINDING)))
        result = unittest.TextTestRunner(verbosity=2).run(suite)
    bad = {test.id().split(" ")[0] for test, _ in (*result.failures, *result.errors, *result.skipped)}
    return report(passed + result.testsRun - len(bad), failed + len(bad))


if __name__ == "__main__":
    sys.exit(main())
