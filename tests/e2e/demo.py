#!/usr/bin/env python3
"""Shows the tool at work in a few instructive cases; fails if one does not come out as announced."""

from __future__ import annotations

import sys
from pathlib import Path

from harness.runner import Bench, benches, command_line
from harness.scenario import DIRECT, Scenario, answering, complaints, described
from harness.servers import PROXY_PASSWORD, PROXY_USER
from harness.wine import Settings, ToolResult

URL = "http://localhost:{web}/ok"
PROXY = "http://127.0.0.1:{tinyproxy}"

CASES = [
    ("The user has entered a proxy by hand: it is tried, and works.",
     Scenario("manual", URL, PROXY, Settings(manual="127.0.0.1:{tinyproxy}"))),
    ("A script on a web server names the proxy.",
     Scenario("script", URL, PROXY, Settings(script_url="http://127.0.0.1:{web}/script.pac"),
              script=answering("PROXY 127.0.0.1:{tinyproxy}"))),
    ("The proxy wants a password: it answers 407, is given credentials, and lets the second request through.",
     Scenario("password", f"{URL} --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}", "http://127.0.0.1:{tinyproxy_basic}",
              Settings(manual="127.0.0.1:{tinyproxy_basic}"))),
    ("Nothing listens where the first proxy should be: the second one wins.",
     Scenario("dead_then_living", URL, PROXY, Settings(manual="127.0.0.1:{dead};127.0.0.1:{tinyproxy}"))),
    ("The user's bypass list names the target: no proxy, and no test.",
     Scenario("bypass", URL, DIRECT, Settings(manual="127.0.0.1:{tinyproxy}", bypass="*.corp;localhost"))),
    ("All of that at once, without the log: what each candidate answered, when, and what that means. The same is in a "
     "report.",
     Scenario("table", f"{URL} --brief --report C:/e2e/report.html --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}",
              "http://127.0.0.1:{tinyproxy_basic}",
              Settings(manual="127.0.0.1:{dead};127.0.0.1:{silent};127.0.0.1:{bad_gateway};127.0.0.1:{tinyproxy_basic};"
                              "127.0.0.1:{tinyproxy}", bypass="*.corp"),
              environment={"KIV_E2E_RESPONSE_TIMEOUT": "1500"}, files=("report.html",))),
]


def keep_files(result: ToolResult, folder: Path) -> None:
    """Puts what the tool wrote where its reader can find it after the demonstration."""
    for name, text in result.files.items():
        (folder / name).write_text(text)
        print(f"   (kept as {folder / name}; open it in a browser)")


def shown(bench: Bench, number: int, headline: str, case: Scenario, folder: Path) -> bool:
    """Runs a case before the reader's eyes; tells whether it came out as announced."""
    bench.prepare(case)
    fill_in = bench.catalogue.fill_in
    settings = fill_in(described(case.settings)).replace("\n", ", ")
    command = fill_in(case.command).replace(PROXY_PASSWORD, "****")
    print(f"\n{number}. {headline}\n   settings: {settings}\n   $ kiv-resolve {command}", flush=True)
    result = bench.run(case)
    sys.stdout.write(result.stderr + result.stdout)
    keep_files(result, folder)
    wrong = complaints(case, result, fill_in(case.outcome))
    print("".join(f"   WRONG: {complaint}\n" for complaint in wrong), end="", flush=True)
    return not wrong


def main() -> int:
    options = command_line(__doc__).parse_args()
    kept = options.work.parent / "demo"
    kept.mkdir(parents=True, exist_ok=True)
    print("Setting up a Windows user in Wine (a few seconds the first time)", flush=True)
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        good = [shown(bench, number, *case, kept) for number, case in enumerate(CASES, 1)]
    print(f"\n{sum(good)} of {len(good)} cases came out as announced")
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
