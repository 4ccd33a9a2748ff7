"""The servers that scenarios can name, started when a scenario first does and kept until the run ends."""

from __future__ import annotations

import re
from collections.abc import Callable, Iterable
from pathlib import Path

from harness import odd_servers
from harness.odd_servers import DeadServer, OddServer, OddWeb
from harness.processes import Processes
from harness.servers import Lighttpd, Server, Squid, Tinyproxy


class Catalogue:
    """Servers by name. In a scenario's texts, `{name}` stands for the port of that name."""

    def __init__(self, folder: Path, processes: Processes) -> None:
        self.odd_web = OddWeb()
        self.lighttpd = Lighttpd("web", folder / "web", processes)
        self._processes = processes
        tinyproxies = {"tinyproxy": False, "tinyproxy2": False, "tinyproxy_basic": True}
        self._makers: dict[str, Callable[[], Server]] = {
            **{name: lambda name=name, basic=basic: Tinyproxy(name, folder / name, processes, basic)
               for name, basic in tinyproxies.items()},
            "squid": lambda: Squid("squid", folder / "squid", processes),
            **{f"squid_{scheme}": lambda scheme=scheme: Squid(f"squid_{scheme}", folder / scheme, processes, scheme)
               for scheme in ("basic", "digest", "ntlm")},
            **{name: lambda name=name: OddServer(name, getattr(odd_servers, name))
               for name in ("silent", "resets", "garbage", "bad_status_line", "bad_gateway", "bare_407",
                            "stubborn_407", "huge_headers", "markup")},
            "odd": lambda: OddServer("odd", self.odd_web),
            "web": lambda: self.lighttpd,
            "inspector": lambda: Squid("inspector", folder / "inspector", processes, inspected=self._trusted("web")),
            "dead": lambda: DeadServer("dead"),
            "dead2": lambda: DeadServer("dead2"),
        }
        self._second_ports = {"web_tls": "web"}
        self._started: dict[str, Server] = {}

    def named_in(self, *texts: str) -> list[str]:
        """The servers whose ports the texts name."""
        names = re.findall(r"\{(\w+)\}", " ".join(texts))
        owners = (self._second_ports.get(name, name) for name in names)
        return sorted({owner for owner in owners if owner in self._makers})

    def begin(self, names: Iterable[str]) -> dict[str, Server]:
        """Starts those of the servers that do not serve yet; their access logs begin anew."""
        for name in names:
            if name not in self._started:
                server = self._makers[name]()
                # Entered first, so that one that fails half-way is cleaned up like the others.
                self._started[name] = server
                server.start()
            self._started[name].mark()
        return {name: self._started[name] for name in names}

    def ports(self) -> dict[str, int]:
        """All ports in use, by name."""
        return {name: port for server in self._started.values() for name, port in server.ports.items()}

    def fill_in(self, text: str) -> str:
        """Puts ports in place of their names; other braces, such as a script's, are left alone."""
        ports = self.ports()
        return re.sub(r"\{(\w+)\}", lambda match: str(ports.get(match[1], match[0])), text)

    def certificate(self, name: str) -> Path:
        """The certificate by which a server that has one is trusted."""
        return self._started[name].certificate

    def _trusted(self, name: str) -> Path:
        self.begin([name])
        return self.certificate(name)

    def stop(self) -> None:
        for server in reversed(list(self._started.values())):
            server.stop()
        self._started.clear()
