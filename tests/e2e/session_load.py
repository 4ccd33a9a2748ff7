#!/usr/bin/env python3
"""Uses one session on several threads while the user's settings change, against real proxies; fails if anything fails, or
anything grows."""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

from harness.results import report
from harness.runner import Bench, benches, command_line
from harness.servers import PROXY_PASSWORD, PROXY_USER
from harness.session_client import stage_session
from harness.wine import Settings

SERVERS = ("dead", "silent", "squid_basic", "squid_ntlm", "tinyproxy", "web")
# One after the other: proxies that are dead, say nothing, want a password or none; none at all; a script.
SETTINGS = [
    *(Settings(manual=";".join(f"127.0.0.1:{{{server}}}" for server in servers))
      for servers in (("dead", "tinyproxy"), ("dead", "squid_basic"), ("tinyproxy",), ("dead", "squid_ntlm"),
                      ("silent", "tinyproxy"))),
    Settings(),
    Settings(script_url="http://127.0.0.1:{web}/script.pac"),
]
SCRIPT = 'function FindProxyForURL(url, host) { return "PROXY 127.0.0.1:{tinyproxy}"; }'
TARGETS = ("http://localhost:{web}/ok", "http://host*.inside.test/")
BYPASS_LIST = "*.inside.test"


def run_load(bench: Bench, program: Path, options: argparse.Namespace) -> bool:
    """Runs the load program; tells whether it was content."""
    (bench.catalogue.begin(SERVERS)["web"].root / "script.pac").write_text(bench.catalogue.fill_in(SCRIPT))
    fill_in = bench.catalogue.fill_in
    settings = [Settings(script_url=fill_in(one.script_url), manual=fill_in(one.manual)) for one in SETTINGS]
    arguments = [str(options.threads), str(options.seconds), PROXY_USER, PROXY_PASSWORD, BYPASS_LIST,
                 *map(fill_in, TARGETS), *(one.encoded().hex() for one in settings)]
    result = bench.user.run_tool(program, arguments, {}, options.seconds + 600)
    bench.user.forget_settings()
    sys.stdout.write(result.stdout + result.stderr)
    return result.exit_code == 0


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--threads", type=int, default=8)
    parser.add_argument("--seconds", type=int, default=10, help="600 for a soak (default: 10)")
    options = parser.parse_args()
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        program = stage_session(options.work / "session_load", options.bin, options.bridge / "session_load.exe")
        content = run_load(bench, program, options)
    return report(int(content), int(not content))


if __name__ == "__main__":
    sys.exit(main())
