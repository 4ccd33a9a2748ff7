#!/usr/bin/env python3
"""Shows the tool in a company's network, and that everything there comes out as announced; or opens a shell in it.

Runs in network, mount and host name namespaces of its own, which scripts/lab.sh makes.
"""

from __future__ import annotations

import contextlib
import itertools
import os
import shlex
import subprocess
import sys
import textwrap
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

from harness.certificates import der_of
from harness.company import AUTHENTICATING, DOMAIN, OPEN, SCRIPT, SITE, CompanyProxy, enter, found
from harness.results import report
from harness.runner import command_line, supervised
from harness.scenario import DIRECT, NONE, WHATEVER, WRONG_PASSWORD, Scenario, complaints
from harness.servers import PROXY_PASSWORD, PROXY_USER
from harness.wine import Settings, ToolResult, WineUser, stage_tool

HTTP, HTTPS, INTRANET = f"http://{SITE}/ok", f"https://{SITE}/ok", f"http://intranet.{DOMAIN}/ok"
RIGHT = f" --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}"
AUTOMATIC = Settings(detect=True)

WINE_CANNOT = """
This was Wine, not Windows. Wine cannot
- obey a proxy that is set on a request: a winhttp.dll in front of its own does that;
- answer a proxy's 407 to CONNECT, it fails with 12157. So the proxy has a port without authentication for https;
- ask DHCP for the PAC script: the name server alone tells it;
- see more than the first proxy that a script fetched over http returns;
- tell why it refuses a certificate: it fails with 12157;
- log on as the Windows user: Samba's ntlm_auth makes its NTLM messages, from the password that it was given."""


@dataclass(frozen=True)
class Stop:
    """One stop of the tour: what is asked, and what must be seen."""

    question: str
    scenario: Scenario
    proxy_log: tuple[str, ...]
    """What the proxy must have logged: method, URL, status, user. A line that comes several times in a row stands once:
    how often Wine asks again before it answers a challenge is its own affair."""
    told: tuple[str, ...] = ()
    """What the tool must have said."""
    trusted: bool = True
    """Whether the proxy's authority is installed as a trusted root."""


def asked(url: str, *answers: str) -> tuple[str, ...]:
    """Lines of the proxy's log, for HEAD."""
    return tuple(f"HEAD {url} {answer}" for answer in answers)


TUNNEL = f"CONNECT {SITE}:443"
TOUR = (
    Stop("Where does it say so? The name server names the host wpad, whose script names the proxy.",
         Scenario("sources", f"sources {HTTP}", WHATEVER, AUTOMATIC), ("HEAD / 400 -",),
         (f"http://wpad.{DOMAIN}/wpad.dat", f"http://{AUTHENTICATING}  from the settings")),
    Stop("http with a password: after NTLM the proxy knows the user.",
         Scenario("http", HTTP + RIGHT, f"http://{AUTHENTICATING}", AUTOMATIC),
         asked(HTTP, "407 -", f"200 {PROXY_USER}")),
    Stop("http with a wrong password: the proxy verifies it.",
         Scenario("wrong", f"{HTTP} --brief --proxy-cred {PROXY_USER}:{WRONG_PASSWORD}", NONE, AUTOMATIC),
         asked(HTTP, "407 -")),
    Stop("https: the script names the port without authentication, and the proxy inspects.",
         Scenario("https", f"{HTTPS} --brief --probe", f"http://{OPEN}", AUTOMATIC),
         2 * (f"{TUNNEL} 200 -", *asked(HTTPS, "200 -")),
         ("CN=Example inspection, O=Example, installed on this machine",)),
    Stop("https where nobody has installed the proxy's authority: the certificate is refused.",
         Scenario("untrusted", f"{HTTPS} --brief", NONE, AUTOMATIC), (f"{TUNNEL} 200 -",), ("12157",), trusted=False),
    Stop("https at the port with authentication: Wine does not answer a 407 to CONNECT.",
         Scenario("connect", f"{HTTPS} --brief --prefer http://{AUTHENTICATING}" + RIGHT, f"http://{OPEN}", AUTOMATIC),
         (f"{TUNNEL} 407 -", f"{TUNNEL} 200 -", *asked(HTTPS, "200 -")), ("12157",)),
    Stop("The intranet: the script says DIRECT.", Scenario("intranet", INTRANET, DIRECT, AUTOMATIC), ()),
    Stop("The site without the proxy: inside, its name does not exist.",
         Scenario("outside", f"{HTTP} --brief --prefer direct", NONE, Settings()), (),
         ("ERROR_WINHTTP_NAME_NOT_RESOLVED",)),
)


class Lab:
    """The network, and a Windows user in it."""

    def __init__(self, proxy: CompanyProxy, user: WineUser, tool: Path) -> None:
        self.proxy = proxy
        self.user = user
        self.tool = tool

    def set_up(self, settings: Settings | None, trusted: bool) -> None:
        self.user.write_settings(settings)
        roots = [der_of(self.proxy.certificate)] if trusted else []
        self.user.write_roots({"Root": roots, "AuthRoot": []})

    def run(self, stop: Stop) -> tuple[ToolResult, list[str]]:
        """Runs the tool; returns what it said, and what the proxy logged meanwhile."""
        self.set_up(stop.scenario.settings, stop.trusted)
        self.proxy.mark()
        result = self.user.run_tool(self.tool, stop.scenario.arguments, {}, stop.scenario.timeout)
        return result, [line for line, _ in itertools.groupby(self.proxy.accesses())]


@contextlib.contextmanager
def opened(binaries: Path, bridge: Path, work: Path) -> Iterator[Lab]:
    """Sets up the network and the user, and takes them down however the run ends."""
    work = work.resolve()
    with supervised(work) as (processes, cleaning):
        enter(work, cleaning)
        proxy = found(work / "servers", processes, cleaning)
        user = WineUser(work, processes)
        cleaning.callback(user.stop)
        user.create()
        user.start()
        yield Lab(proxy, user, stage_tool(binaries, bridge, work / "stage"))


def shown(lab: Lab, number: int, stop: Stop) -> list[str]:
    """Runs one stop before the reader's eyes; returns its row of the table: what was seen, and what is wrong."""
    command = stop.scenario.command.replace(PROXY_PASSWORD, "****").replace(WRONG_PASSWORD, "****")
    print(f"\n{number}. {stop.question}\n   $ kiv-resolve {command}", flush=True)
    result, log = lab.run(stop)
    sys.stdout.write(result.stderr + result.stdout)
    print("".join(f"   the proxy logged: {line}\n" for line in log), end="")
    wrong = complaints(stop.scenario, result, stop.scenario.outcome)
    wrong += [f"it does not say {text}" for text in stop.told if text not in result.stderr + result.stdout]
    if tuple(log) != stop.proxy_log:
        wrong.append(f"the proxy was to log {list(stop.proxy_log)}")
    print("".join(f"   WRONG: {complaint}\n" for complaint in wrong), end="", flush=True)
    return wrong


def tour(lab: Lab) -> int:
    """Runs all stops, and prints a table of what was seen; gives the exit code."""
    print(f"The PAC script at http://wpad.{DOMAIN}/wpad.dat:\n{textwrap.indent(SCRIPT, '   ')}", end="")
    rows = [(stop, shown(lab, number, stop)) for number, stop in enumerate(TOUR, 1)]
    print("\nNo.  as announced  what")
    for number, (stop, wrong) in enumerate(rows, 1):
        print(f"{number:3}  {'NO' if wrong else 'yes':12}  {stop.question}")
    print(WINE_CANNOT)
    failed = sum(bool(wrong) for _, wrong in rows)
    return report(len(rows) - failed, failed)


def shell(lab: Lab, work: Path) -> int:
    """Opens a shell in the network; gives its exit code."""
    lab.set_up(AUTOMATIC, trusted=True)
    start = work.resolve() / "shell.rc"
    start.write_text(f"kiv-resolve() {{ wine {shlex.quote(str(lab.tool))} \"$@\"; }}\nPS1='lab$ '\n")
    print(f"The user has automatic detection on. Try: kiv-resolve {HTTP}{RIGHT}\nThe network ends with the shell.",
          flush=True)
    environment = lab.user.environment(TERM=os.environ.get("TERM", "dumb"))
    return subprocess.run(["bash", "--rcfile", str(start), "-i"], env=environment, check=False).returncode


def main() -> int:
    parser = command_line(__doc__)
    parser.add_argument("--shell", action="store_true", help="open a shell in the network in place of the tour")
    options = parser.parse_args()
    print("Setting up a company's network, and a Windows user in Wine (a few seconds the first time)", flush=True)
    with opened(options.bin, options.bridge, options.work) as lab:
        return shell(lab, options.work) if options.shell else tour(lab)


if __name__ == "__main__":
    sys.exit(main())
