#!/usr/bin/env python3
"""Runs the example hosts in Wine against real servers: what they print, and what the servers were asked."""

from __future__ import annotations

import argparse
import contextlib
import shutil
import sys
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path

from harness.results import report
from harness.runner import Bench, benches, command_line
from harness.scenario import INSECURE_ALLOWED, WHATEVER, WRONG_PASSWORD, Scenario, complaints, with_names
from harness.servers import PROXY_PASSWORD, PROXY_USER, SERVER_PASSWORD, SERVER_USER, Server
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
PROTECTED = "http://localhost:{web}/basic/ok"
PROXY_LOGIN = f" {PROXY_USER} {PROXY_PASSWORD}"
SERVER_LOGIN = f" {SERVER_USER} {SERVER_PASSWORD}"


@dataclass(frozen=True)
class Case:
    """An example at work. `asked` is the last request that a server of that name must have seen; "" is none at all."""

    program: str
    scenario: Scenario
    asked: tuple[tuple[str, str], ...]


def via(server: str) -> Settings:
    return Settings(manual=f"127.0.0.1:{{{server}}}")


def typed(user: str, password: str) -> dict[str, str]:
    """The environment in which the prompt's stand-in answers with this login."""
    return {"KIV_PROMPT_USER": user, "KIV_PROMPT_PASSWORD": password, **INSECURE_ALLOWED}


def proxied(server: str) -> str:
    return f"http://127.0.0.1:{{{server}}}"


OK = f"HEAD {URL} 200"
SERVED = ("web", "HEAD /ok 200")
UNTOUCHED = ("web", "")

CASES = [
    *(Case(program, scenario, asked) for program in ("resolve", "resolve_cpp") for scenario, asked in (
        (Scenario(f"{program}_direct", URL, "DIRECT"), (UNTOUCHED,)),
        (Scenario(f"{program}_through_a_proxy", URL, proxied("squid"), via("squid")), (("squid", OK), SERVED)),
        (Scenario(f"{program}_past_a_dead_proxy", URL, proxied("squid"),
                  Settings(manual="127.0.0.1:{dead};127.0.0.1:{squid}")), (("squid", OK),)),
        (Scenario(f"{program}_without_a_way", URL, "", via("squid_basic"), exit_code=2),
         (("squid_basic", f"HEAD {URL} 407"),)),
    )),

    # The built-in client's bridge plays no part in these: WinINet finds the proxy on its own.
    Case("own_client", Scenario("own_client_direct", URL, "DIRECT"), (UNTOUCHED,)),
    Case("own_client", Scenario("own_client_through_a_proxy", URL, proxied("squid"), via("squid")),
         (("squid", OK), SERVED)),
    Case("own_client", Scenario("own_client_past_a_dead_proxy", URL, proxied("squid"),
                                Settings(manual="127.0.0.1:{dead};127.0.0.1:{squid}")), (("squid", OK), SERVED)),
    Case("own_client", Scenario("own_client_with_the_proxys_password", URL + PROXY_LOGIN, proxied("squid_basic"),
                                via("squid_basic")), (("squid_basic", OK), SERVED)),
    Case("own_client", Scenario("own_client_with_a_wrong_password", f"{URL} {PROXY_USER} {WRONG_PASSWORD}", "",
                                via("squid_basic"), exit_code=2), (("squid_basic", f"HEAD {URL} 407"),)),
    Case("own_client", Scenario("own_client_with_the_servers_password", PROTECTED + SERVER_LOGIN, proxied("squid"),
                                via("squid")), (("squid", f"HEAD {PROTECTED} 200"), ("web", "HEAD /basic/ok 200"))),
    Case("own_client", Scenario("own_client_refused_by_the_server", PROTECTED, "", via("squid"), exit_code=2),
         (("web", "HEAD /basic/ok 401"),)),

    Case("dialogs", Scenario("dialogs_for_a_proxy", URL, proxied("squid_basic") + f"\nas {PROXY_USER}",
                             via("squid_basic"), environment=typed(PROXY_USER, PROXY_PASSWORD)),
         (("squid_basic", OK), SERVED)),
    Case("dialogs", Scenario("dialogs_for_a_server", PROTECTED, proxied("squid"), via("squid"),
                             environment=typed(SERVER_USER, SERVER_PASSWORD)), (("web", "HEAD /basic/ok 200"),)),
    Case("dialogs", Scenario("dialogs_with_a_wrong_password", URL, "", via("squid_basic"), exit_code=2,
                             environment=typed(PROXY_USER, WRONG_PASSWORD)), (("squid_basic", f"HEAD {URL} 407"),)),
]

# They run away from the bridge: Wine honours the proxy with which a session of WinHTTP is opened.
ROOT = "http://localhost:{web}/"
SESSION_CASES = [
    Case("session_downloader", Scenario("session_downloader_direct", URL, "200 by DIRECT"), (("web", "GET /ok 200"),)),
    Case("session_downloader", Scenario("session_downloader_through_a_proxy", f"{URL} {URL}",
                                        f"200 by {proxied('squid')}\n200 by {proxied('squid')}", via("squid")),
         (("squid", f"GET {URL} 200"),)),
    Case("session_downloader", Scenario("session_downloader_with_the_proxys_password", f"--login{PROXY_LOGIN} {URL}",
                                        f"200 by {proxied('squid_basic')}", via("squid_basic")),
         (("squid_basic", f"GET {URL} 200"), ("web", "GET /ok 200"))),
    Case("session_downloader", Scenario("session_downloader_without_a_password", URL, "", via("squid_basic"),
                                        exit_code=2), (("squid_basic", f"HEAD {ROOT} 407"), UNTOUCHED)),
    Case("session_service", Scenario("session_service_through_a_proxy", URL, proxied("squid"), via("squid")),
         (("squid", f"HEAD {ROOT} 403"),)),
    Case("session_service", Scenario("session_service_asks_nobody", URL, WHATEVER, via("squid_basic"), exit_code=2),
         (("squid_basic", f"HEAD {ROOT} 407"),)),
    Case("session_dialog", Scenario("session_dialog_that_is_filled_in", URL + PROXY_LOGIN,
                                    f"the loop went on while the dialog was open: yes\n{proxied('squid_basic')}",
                                    via("squid_basic")), (("squid_basic", f"HEAD {ROOT} 403"),)),
    Case("session_dialog", Scenario("session_dialog_that_nobody_needs", URL, proxied("squid"), via("squid")),
         (("squid", f"HEAD {ROOT} 403"),)),
]


def not_asked(case: Case, bench: Bench, servers: dict[str, Server]) -> list[str]:
    """What servers should have been asked last and were not, once they had the time to log it."""
    deadline = time.monotonic() + 5
    while True:
        seen = {name: with_names("\n".join(servers[name].accesses()), bench.catalogue.ports()).splitlines()
                for name, _ in case.asked}
        wrong = [f"{name} saw {seen[name]}, and not {request!r} at the end" for name, request in case.asked
                 if (seen[name] or [""])[-1] != request]
        if not wrong or time.monotonic() > deadline:
            return wrong
        time.sleep(0.1)


def run(case: Case, bench: Bench, stage: Path) -> list[str]:
    """Runs one example and says what is wrong."""
    scenario = case.scenario
    servers = bench.prepare(scenario)
    arguments = [bench.catalogue.fill_in(argument) for argument in scenario.arguments]
    result = bench.user.run_tool(stage / f"{case.program}.exe", arguments, scenario.environment, scenario.timeout)
    wrong = complaints(scenario, result, bench.catalogue.fill_in(scenario.outcome))
    wrong += not_asked(case, bench, servers)
    return [*wrong, result.stdout, result.stderr] if wrong else []


def run_all(cases: Sequence[Case], bench: Bench, stage: Path) -> int:
    """Runs examples, reports, and returns how many were wrong."""
    failed = 0
    for case in cases:
        wrong = run(case, bench, stage)
        failed += bool(wrong)
        print("\n".join([f"{'FAIL' if wrong else 'ok':4}  {case.scenario.name}", *wrong]), flush=True)
    return failed


@contextlib.contextmanager
def in_system_folder(library: Path, bench: Bench) -> Iterator[None]:
    """Has the library in place of the system's of that name, which other runs in the same prefix find again."""
    place = bench.user.prefix / "drive_c" / "windows" / "system32" / library.name
    own = place.with_suffix(".own")
    # It is there already if a run was killed.
    if not own.exists():
        place.rename(own)
    try:
        shutil.copy2(library, place)
        yield
    finally:
        own.replace(place)


def session_stage(options: argparse.Namespace, cases: Sequence[Case]) -> Path:
    """A folder with the examples over kiv-session.dll."""
    stage = options.work.resolve() / "session-examples"
    shutil.rmtree(stage, ignore_errors=True)
    stage.mkdir()
    for name in {"kiv-session.dll", *(f"{case.program}.exe" for case in cases)}:
        shutil.copy2(options.bin / name, stage)
    return stage


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--prompt", type=Path, required=True, help="the folder that holds the stand-in credui.dll")
    parser.add_argument("--filter", default="", help="run only the cases whose name contains this text")
    options = parser.parse_args()
    cases, session_cases = ([case for case in cases if options.filter in case.scenario.name]
                            for cases in (CASES, SESSION_CASES))
    with benches(1, options.bin, options.bridge, options.work) as (bench,):
        stage = options.work.resolve() / "stage"
        for program in {case.program for case in cases}:
            shutil.copy2(options.bin / f"{program}.exe", stage)
        with in_system_folder(options.prompt / "credui.dll", bench):
            failed = run_all(cases, bench, stage)
        failed += run_all(session_cases, bench, session_stage(options, session_cases))
    return report(len(cases) + len(session_cases) - failed, failed)


if __name__ == "__main__":
    sys.exit(main())
