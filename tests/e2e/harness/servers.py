"""Real servers from Debian's packages, each on loopback ports of its own with its own files and access log."""

from __future__ import annotations

import abc
import hashlib
import os
import re
import shutil
import signal
import subprocess
import time
import sys
from pathlib import Path
from typing import ClassVar

from harness.certificates import make_certificate
from harness.processes import Processes, clean_environment, free_port, wait_until_listening

PROXY_USER, PROXY_PASSWORD = "alice", "opensesame"
SERVER_USER, SERVER_PASSWORD = "bob", "letmein"

AUTHORITY_NAME = "/O=Example/CN=Example inspection"

NTLM_HELPER = Path(__file__).resolve().parents[1] / "ntlm_helper.py"


def find_program(name: str) -> str:
    """Finds a server's program, also where only root's PATH would find it."""
    found = shutil.which(name) or shutil.which(name, path="/usr/sbin:/sbin")
    if found is None:
        raise FileNotFoundError(f"{name} is not installed")
    return found


class Server(abc.ABC):
    """Something that scenarios name by its ports, and whose access log they compare."""

    ports: dict[str, int]

    @abc.abstractmethod
    def start(self) -> None:
        """Chooses the ports and serves."""

    @abc.abstractmethod
    def stop(self) -> None:
        """Stops serving; does nothing if it does not serve."""

    @abc.abstractmethod
    def mark(self) -> None:
        """Forgets the access log so far: a scenario begins."""

    @abc.abstractmethod
    def accesses(self) -> list[str]:
        """The access log since the last mark, a line per request in a form that all runs share."""


class DebianServer(Server):
    """A server program with a configuration file and an access log in a folder of its own."""

    program: ClassVar[str]
    port_names: ClassVar[tuple[str, ...]] = ()
    address = "127.0.0.1"

    def __init__(self, name: str, folder: Path, processes: Processes) -> None:
        self.name = name
        self.folder = folder
        self.ports = {}
        self._processes = processes
        self._process: subprocess.Popen[bytes] | None = None
        self._marked = 0

    @property
    def access_log(self) -> Path:
        return self.folder / "access.log"

    @abc.abstractmethod
    def configure(self) -> list[str]:
        """Writes the configuration into the folder; returns the command that serves it."""

    def start(self) -> None:
        self.prepare_folder()
        for _ in range(5):
            # Between the choice of a port and its use somebody else may take it; then others are chosen.
            self.ports = self.choose_ports()
            self._process = self._processes.start(
                self.configure(), self.folder / "output.log", environment=clean_environment())
            if wait_until_listening(self._process, self.ports[self.name], self.address):
                return
        raise RuntimeError(f"{self.name} does not start:\n{(self.folder / 'output.log').read_text()}")

    def choose_ports(self) -> dict[str, int]:
        return {name: free_port() for name in (self.name, *self.port_names)}

    def prepare_folder(self) -> None:
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.access_log.touch()

    def stop(self) -> None:
        if self._process is not None:
            self._processes.stop(self._process)
            self._process = None

    def mark(self) -> None:
        """What was asked before counts no more; the server writes what it holds back a moment after it was told to."""
        size = -1
        while size != self.access_log.stat().st_size:
            size = self.access_log.stat().st_size
            self.flush_log()
            time.sleep(0.1)
        self._marked = size

    def accesses(self) -> list[str]:
        self.flush_log()
        with open(self.access_log, encoding="utf-8", errors="replace") as log:
            log.seek(self._marked)
            lines = (self.read_access(line) for line in log.read().splitlines())
            return [line for line in lines if line]

    def flush_log(self) -> None:
        """Makes the server write what it still holds back."""

    def read_access(self, line: str) -> str | None:
        """Turns a line of the log into what scenarios compare; nothing for a line that is not about a request."""
        return line


class Tinyproxy(DebianServer):
    """tinyproxy, open to all or with Basic authentication."""

    program = "tinyproxy"

    def __init__(self, name: str, folder: Path, processes: Processes, basic: bool = False) -> None:
        super().__init__(name, folder, processes)
        self._basic = basic

    def configure(self) -> list[str]:
        lines = [f"Port {self.ports[self.name]}", "Listen 127.0.0.1", "Timeout 60", "MaxClients 100",
                 f'LogFile "{self.access_log}"', "LogLevel Connect", 'ViaProxyName "tinyproxy"']
        if self._basic:
            lines.append(f"BasicAuth {PROXY_USER} {PROXY_PASSWORD}")
        configuration = self.folder / "tinyproxy.conf"
        configuration.write_text("\n".join(lines) + "\n")
        return [find_program(self.program), "-d", "-c", str(configuration)]

    def read_access(self, line: str) -> str | None:
        request = re.search(r"Request \(file descriptor \d+\): (.*) HTTP/[\d.]+$", line)
        return request[1] if request else None


class Squid(DebianServer):
    """squid, open to all or with one authentication scheme ("basic", "digest" or "ntlm").

    With `inspected`, the certificate of a server that it trusts, it inspects TLS: it answers in place of every server,
    with certificates that it makes and signs with an authority of its own.
    """

    program = "squid"
    helpers = Path("/usr/lib/squid")
    log_format = "%rm %ru %>Hs"
    known_hosts = "127.0.0.1 localhost\n"

    def __init__(self, name: str, folder: Path, processes: Processes, scheme: str | None = None,
                 inspected: Path | None = None) -> None:
        super().__init__(name, folder, processes)
        self._scheme = scheme
        self._inspected = inspected
        self._service = f"e2e{name.replace('_', '')}{os.getpid()}x{id(self):x}"

    @staticmethod
    def user() -> list[str]:
        """How a command begins that does not run it as root: it refuses to be root.

        It becomes Debian's user "proxy", but keeps root's right to files, whose folders that user may not enter.
        """
        if os.geteuid() != 0:
            return []
        return ["setpriv", "--reuid=13", "--regid=13", "--clear-groups", "--inh-caps=+dac_override",
                "--ambient-caps=+dac_override"]

    def stop(self) -> None:
        super().stop()
        # Shared memory, which it removes itself when it is not killed.
        for segment in Path("/dev/shm").glob(f"{self._service}-*.shm"):
            segment.unlink(missing_ok=True)

    def configure(self) -> list[str]:
        hosts = self.folder / "hosts"
        hosts.write_text(self.known_hosts)
        lines = [*self._listening(), "visible_hostname squid.test", "cache deny all",
                 f"logformat e2e {self.log_format}", f"access_log stdio:{self.access_log} logformat=e2e",
                 f"cache_log {self.folder / 'cache.log'}", f"coredump_dir {self.folder}", "pid_filename none",
                 "netdb_filename none", "pinger_enable off", "shutdown_lifetime 0 seconds", "cache_mem 8 MB",
                 "max_filedescriptors 1024", "httpd_suppress_version_string on", "icp_port 0",
                 "udp_incoming_address 127.0.0.1", "udp_outgoing_address 127.0.0.1", "forwarded_for delete",
                 # Whether it has the answer stored, which versions of squid tell in different ways.
                 *(f"reply_header_access {name} deny all" for name in ("X-Cache", "X-Cache-Lookup", "Cache-Status")),
                 # The error pages of the base package, whichever translations are installed.
                 "error_directory /usr/share/squid/errors/templates",
                 # It asks name servers by itself, and not every machine has a hosts file.
                 f"hosts_file {hosts}", *self.rules()]
        configuration = self.folder / "squid.conf"
        configuration.write_text("\n".join(lines) + "\n")
        return [*self.user(), find_program(self.program), "-N", "-n", self._service, "-f", str(configuration)]

    @property
    def certificate(self) -> Path:
        """That of the authority that signs what it shows to clients."""
        return self.folder / "authority.pem"

    def _listening(self) -> list[str]:
        ports = [f"http_port {self.address}:{port}" for port in self.ports.values()]
        if self._inspected is None:
            return ports
        key, made = self.folder / "authority.key", self.folder / "made"
        make_certificate(self.certificate, key, AUTHORITY_NAME)
        shutil.rmtree(made, ignore_errors=True)
        maker = f"{self.helpers / 'security_file_certgen'} -s {made} -M 4MB"
        subprocess.run([*self.user(), *maker.split(), "-c"], check=True, capture_output=True)
        inspecting = f"ssl-bump tls-cert={self.certificate} tls-key={key} generate-host-certificates=on"
        return [*(f"{port} {inspecting}" for port in ports), f"sslcrtd_program {maker}", "sslcrtd_children 2 startup=1",
                f"tls_outgoing_options cafile={self._inspected}", "acl greeting at_step SslBump1",
                "ssl_bump peek greeting", "ssl_bump bump all"]

    def rules(self) -> list[str]:
        """Who may do what."""
        if self._scheme is None:
            return ["http_access allow all"]
        helper = {"basic": self._basic, "digest": self._digest, "ntlm": self._ntlm}[self._scheme]()
        return [f"auth_param {self._scheme} program {helper}", f"auth_param {self._scheme} children 2 startup=1",
                *([] if self._scheme == "ntlm" else [f"auth_param {self._scheme} realm proxy"]),
                "acl known proxy_auth REQUIRED", "http_access allow known", "http_access deny all"]

    def _basic(self) -> str:
        hashed = subprocess.run(["openssl", "passwd", "-1", PROXY_PASSWORD], check=True, capture_output=True, text=True)
        passwords = self.folder / "passwords"
        passwords.write_text(f"{PROXY_USER}:{hashed.stdout.strip()}\n")
        return f"{self.helpers / 'basic_ncsa_auth'} {passwords}"

    def _digest(self) -> str:
        secret = hashlib.md5(f"{PROXY_USER}:proxy:{PROXY_PASSWORD}".encode()).hexdigest()
        passwords = self.folder / "passwords"
        passwords.write_text(f"{PROXY_USER}:proxy:{secret}\n")
        return f"{self.helpers / 'digest_file_auth'} -c {passwords}"

    def _ntlm(self) -> str:
        passwords = self.folder / "passwords"
        passwords.write_text(f"{PROXY_USER}:{PROXY_PASSWORD}\n")
        # Without compiled files, which would be squid's user's.
        return f"{sys.executable} -B {NTLM_HELPER} {passwords}"

    def read_access(self, line: str) -> str | None:
        # The harness's own look whether squid listens yet is logged as a transaction without a request.
        return None if "error:transaction-end-before-headers" in line else line


class Lighttpd(DebianServer):
    """lighttpd as the target: `/ok`, the same behind a password below `/basic/` and `/digest/`, and the script.

    Its second port serves the same over TLS, with a certificate that nobody has signed but its own key.
    """

    program = "lighttpd"
    host = "localhost"

    @property
    def port_names(self) -> tuple[str, ...]:  # type: ignore[override]
        return (f"{self.name}_tls",)

    @property
    def root(self) -> Path:
        """The folder whose files are served."""
        return self.folder / "root"

    @property
    def certificate(self) -> Path:
        """That of the second port."""
        return self.folder / "certificate.pem"

    def prepare_folder(self) -> None:
        super().prepare_folder()
        for folder in (self.root, self.root / "basic", self.root / "digest"):
            folder.mkdir()
            (folder / "ok").write_text("ok\n")
        (self.folder / "passwords").write_text(f"{SERVER_USER}:{SERVER_PASSWORD}\n")
        make_certificate(self.certificate, self.folder / "key.pem", f"/CN={self.host}",
                         f"subjectAltName=DNS:{self.host},IP:{self.address}")

    def configure(self) -> list[str]:
        protected = ", ".join(
            f'"/{scheme}/" => ("method" => "{scheme}", "realm" => "{scheme}", "require" => "valid-user")'
            for scheme in ("basic", "digest"))
        configuration = self.folder / "lighttpd.conf"
        configuration.write_text(f"""
server.bind = "{self.address}"
server.port = {self.ports[self.name]}
server.document-root = "{self.root}"
server.tag = "lighttpd"
# The script changes with every scenario; what was cached a moment ago is wrong.
server.stat-cache-engine = "disable"
server.modules = ("mod_auth", "mod_authn_file", "mod_accesslog", "mod_openssl")
server.errorlog = "{self.folder / 'error.log'}"
accesslog.filename = "{self.access_log}"
accesslog.format = "%r %>s"
mimetype.assign = (".pac" => "application/x-ns-proxy-autoconfig", ".dat" => "application/x-ns-proxy-autoconfig",
  "" => "text/plain")
auth.backend = "plain"
auth.backend.plain.userfile = "{self.folder / 'passwords'}"
auth.require = ({protected})
$SERVER["socket"] == "{self.address}:{self.ports[self.name + '_tls']}" {{
  ssl.engine = "enable"
  ssl.pemfile = "{self.certificate}"
  ssl.privkey = "{self.folder / 'key.pem'}"
  # Newer versions of lighttpd want TLS 1.3, which Wine does not speak.
  ssl.openssl.ssl-conf-cmd = ("MinProtocol" => "TLSv1.2")
}}
""")
        return [find_program(self.program), "-D", "-f", str(configuration)]

    def flush_log(self) -> None:
        # It writes its log every few seconds, and at once when told to open the file anew.
        if self._process is not None:
            self._process.send_signal(signal.SIGHUP)

    def read_access(self, line: str) -> str | None:
        return re.sub(r" HTTP/[\d.]+ ", " ", line)
