"""A company's network on the loopback interface of a namespace: names, the PAC script, a proxy, and a site behind it.

The name server knows the company's own names alone. The proxy knows the site outside, so that nobody else reaches it.
"""

from __future__ import annotations

import contextlib
import socket
import subprocess
from pathlib import Path

from harness.processes import Processes
from harness.servers import DebianServer, Lighttpd, Squid, find_program

DOMAIN = "corp.test"
COMPUTER = f"pc.{DOMAIN}"
SITE = "www.example.test"
ADDRESSES = {f"dns.{DOMAIN}": "10.20.30.53", f"wpad.{DOMAIN}": "10.20.30.2", f"intranet.{DOMAIN}": "10.20.30.3",
             f"proxy.{DOMAIN}": "10.20.30.8", COMPUTER: "10.20.30.100", SITE: "198.51.100.80"}

AUTHENTICATING, OPEN = f"proxy.{DOMAIN}:8080", f"proxy.{DOMAIN}:8081"
SCRIPT = f"""function FindProxyForURL(url, host) {{
  if (isPlainHostName(host) || dnsDomainIs(host, ".{DOMAIN}")) return "DIRECT";
  if (url.substring(0, 6) == "https:") return "PROXY {OPEN}";
  return "PROXY {AUTHENTICATING}";
}}
"""


def port_of(proxy: str) -> int:
    """The port of a proxy that is written as in a script."""
    return int(proxy.rpartition(":")[2])


class NameServer(DebianServer):
    """dnsmasq, for the names of the company, and no others."""

    program = "dnsmasq"
    address = ADDRESSES[f"dns.{DOMAIN}"]

    def choose_ports(self) -> dict[str, int]:
        return {self.name: 53}

    def configure(self) -> list[str]:
        lines = ["no-resolv", "no-hosts", "bind-interfaces", f"listen-address={self.address}", "local=/#/",
                 "host-record=localhost,127.0.0.1", "log-queries", f"log-facility={self.access_log}",
                 *(f"host-record={name},{address}" for name, address in ADDRESSES.items() if name != SITE)]
        configuration = self.folder / "dnsmasq.conf"
        configuration.write_text("\n".join(lines) + "\n")
        return [find_program(self.program), "--no-daemon", f"--conf-file={configuration}"]


class Site(Lighttpd):
    """A web server with an address and a name of its own, at the usual ports."""

    def __init__(self, host: str, folder: Path, processes: Processes) -> None:
        super().__init__(host, folder, processes)
        self.host = host
        self.address = ADDRESSES[host]

    def choose_ports(self) -> dict[str, int]:
        return {self.name: 80, f"{self.name}_tls": 443}


class CompanyProxy(Squid):
    """squid, which inspects TLS. At one port it wants to know by NTLM who asks, at the other it does not."""

    address = ADDRESSES[f"proxy.{DOMAIN}"]
    log_format = "%rm %ru %>Hs %un"
    known_hosts = f"{ADDRESSES[SITE]} {SITE}\n"

    def choose_ports(self) -> dict[str, int]:
        return {self.name: port_of(AUTHENTICATING), "open": port_of(OPEN)}

    def rules(self) -> list[str]:
        return [f"acl open localport {port_of(OPEN)}", "http_access allow open", *super().rules()]

    def read_access(self, line: str) -> str | None:
        # What is no request has no method: after a 407 to CONNECT Wine begins TLS with the proxy itself.
        return None if line.startswith("-") else line


def enter(folder: Path, cleaning: contextlib.ExitStack) -> None:
    """Makes this process's namespaces the company's: addresses, the computer's name, and how names are looked up."""
    if [name for _, name in socket.if_nameindex()] != ["lo"]:
        raise SystemExit("this is not a network namespace of its own: scripts/lab.sh makes one")
    ip = find_program("ip")
    for arguments in (["link", "set", "lo", "up"], *(["address", "add", f"{address}/32", "dev", "lo"]
                                                     for address in ADDRESSES.values())):
        subprocess.run([ip, *arguments], check=True)
    socket.sethostname(COMPUTER)
    for name, text in (("resolv.conf", f"nameserver {NameServer.address}\nsearch {DOMAIN}\n"),
                       ("nsswitch.conf", "hosts: files dns\n"), ("hosts", "127.0.0.1 localhost\n")):
        (folder / name).write_text(text)
        # A machine that has no such file needs none; but none of them does without the first.
        if name == "resolv.conf" or Path("/etc", name).exists():
            subprocess.run(["mount", "--bind", str(folder / name), f"/etc/{name}"], check=True)
            cleaning.callback(subprocess.run, ["umount", f"/etc/{name}"], check=False)


def found(folder: Path, processes: Processes, cleaning: contextlib.ExitStack) -> CompanyProxy:
    """Starts the servers, which `cleaning` stops; returns the one that sees what is asked for."""
    def start(server: DebianServer) -> None:
        cleaning.callback(server.stop)
        server.start()

    wpad, intranet, site = (Site(host, folder / host, processes)
                            for host in (f"wpad.{DOMAIN}", f"intranet.{DOMAIN}", SITE))
    for server in (NameServer("dns", folder / "dns", processes), wpad, intranet, site):
        start(server)
    (wpad.root / "wpad.dat").write_text(SCRIPT)
    proxy = CompanyProxy("proxy", folder / "proxy", processes, "ntlm", inspected=site.certificate)
    start(proxy)
    return proxy
