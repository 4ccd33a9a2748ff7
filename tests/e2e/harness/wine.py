"""A Windows user of our own in Wine: a private prefix, the user's proxy settings, the shipped tool run as that user."""

from __future__ import annotations

import contextlib
import hashlib
import os
import re
import shutil
import struct
import subprocess
import time
from collections.abc import Callable, Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path

from harness.processes import Processes, clean_environment

CONNECTIONS_KEY = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings\Connections"
CERTIFICATES_KEY = r"HKLM\Software\Microsoft\SystemCertificates"
SETTINGS_VALUE = "DefaultConnectionSettings"
NOT_STARTED = "Application could not be started"


@dataclass(frozen=True)
class Settings:
    """The user's proxy settings, as the dialog of Windows shows them."""

    detect: bool = False
    script_url: str = ""
    manual: str = ""
    bypass: str = ""

    def filled(self, fill_in: Callable[[str], str]) -> Settings:
        """The same with the ports of servers in place of their names."""
        return Settings(self.detect, fill_in(self.script_url), fill_in(self.manual), fill_in(self.bypass))

    def encoded(self) -> bytes:
        """The registry's form: version, counter, flags, three texts with their lengths, and space that is never used."""
        flags = 1 | (2 if self.manual else 0) | (4 if self.script_url else 0) | (8 if self.detect else 0)
        texts = (text.encode("cp1252") for text in (self.manual, self.bypass, self.script_url))
        return (struct.pack("<III", 0x46, 0, flags)
                + b"".join(struct.pack("<I", len(text)) + text for text in texts) + bytes(32))


@dataclass(frozen=True)
class MachineProxy:
    """The proxy that WinHTTP has for the whole machine, as netsh writes it."""

    manual: str
    bypass: str = ""

    def filled(self, fill_in: Callable[[str], str]) -> MachineProxy:
        """The same with the ports of servers in place of their names."""
        return MachineProxy(fill_in(self.manual), fill_in(self.bypass))

    def encoded(self) -> bytes:
        """The registry's form: version, counter, flags, and two texts with their lengths."""
        texts = (text.encode("cp1252") for text in (self.manual, self.bypass))
        return struct.pack("<III", 0x18, 0, 3) + b"".join(struct.pack("<I", len(text)) + text for text in texts)


@dataclass(frozen=True)
class RegistryValue:
    """A value of the registry that a scenario has beside the user's settings."""

    key: str
    name: str
    data: str | int | bytes | Settings | MachineProxy
    view: int = 64

    @property
    def described(self) -> str:
        data = self.data
        if isinstance(data, bytes):
            data = data.hex(" ")
        elif isinstance(data, Settings | MachineProxy):
            data = ", ".join(f"{name} {text}" for name, text in vars(data).items() if text)
        return f"{self.key}\\{self.name}{' (32-bit)' if self.view == 32 else ''} = {data}"

    def arguments(self, fill_in: Callable[[str], str]) -> list[str]:
        """What `reg add` needs."""
        kind, data = "REG_BINARY", self.data
        if isinstance(data, Settings | MachineProxy):
            data = data.filled(fill_in).encoded()
        if isinstance(data, bytes):
            data = data.hex()
        else:
            kind = "REG_DWORD" if isinstance(data, int) else "REG_SZ"
        return [self.key, "/v", self.name, "/t", kind, "/d", fill_in(str(data)), "/f", f"/reg:{self.view}"]


@dataclass(frozen=True)
class ToolResult:
    """What a program left behind."""

    exit_code: int
    stdout: str
    stderr: str
    files: Mapping[str, str] = field(default_factory=dict)
    """The texts of the files that it was to write, by name."""

    @property
    def texts(self) -> list[str]:
        """All that people may come to see."""
        return [self.stdout, self.stderr, *self.files.values()]


def program_text(output: Path) -> str:
    """What a Windows program wrote, without what Wine says when a program ends while one of its threads still works."""
    text = output.read_bytes().decode("utf-8", "replace").replace("\r\n", "\n")
    return re.sub(r"(?m)^wine client error:.*\n", "", text)


def wine_library() -> Path:
    """Finds Wine's own winhttp.dll where Debian's package puts it."""
    listing = subprocess.run(["dpkg", "-L", "libwine"], capture_output=True, text=True, check=False).stdout.splitlines()
    found = [Path(line) for line in listing if line.endswith("/x86_64-windows/winhttp.dll")]
    if not found:
        raise FileNotFoundError("no winhttp.dll in the package libwine: is wine64 installed?")
    return found[0]


def stage_tool(binaries: Path, bridge: Path, stage: Path) -> Path:
    """Lays the shipped files beside the bridge and a renamed copy of Wine's library; returns the tool's path there."""
    shutil.rmtree(stage, ignore_errors=True)
    stage.mkdir(parents=True)
    for source in (binaries / "kiv.dll", binaries / "kiv-resolve.exe", bridge / "winhttp.dll"):
        shutil.copy2(source, stage)
    shutil.copy2(wine_library(), stage / "winhttp_wine.dll")
    return stage / "kiv-resolve.exe"


class WineUser:
    """A private prefix, with a server that stays up so that starting a program takes a fraction of a second."""

    def __init__(self, folder: Path, processes: Processes) -> None:
        self.prefix = folder / "prefix"
        # Also where Wine looks for a display, whose libraries complain if there is no such folder.
        self._home = folder / "home"
        self._samba = folder / "smb.conf"
        self._kerberos = folder / "krb5.conf"
        self._folder = folder
        self._processes = processes
        self._server: subprocess.Popen[bytes] | None = None
        self._written: Settings | None = None
        self._settings_known = False
        self._registry: list[RegistryValue] = []
        self._roots: Mapping[str, Sequence[bytes]] = {}

    def environment(self, **additions: str) -> dict[str, str]:
        return clean_environment(
            HOME=str(self._home), XDG_RUNTIME_DIR=str(self._home), WINEPREFIX=str(self.prefix), WINEDEBUG="-all",
            WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winhttp,credui=n,b",
            SMB_CONF_PATH=str(self._samba), KRB5_CONFIG=str(self._kerberos), **additions)

    def create(self, model: Path | None = None) -> None:
        """Makes the prefix if it is not there, from another one if `model` names it, which must be at rest."""
        self._home.mkdir(parents=True, exist_ok=True)
        # Wine answers NTLM with Samba's client, and Negotiate with that or Kerberos. How this machine has set them up
        # must not matter.
        self._samba.write_text("[global]\n")
        self._kerberos.write_text("[libdefaults]\ndns_lookup_kdc = false\ndns_lookup_realm = false\n")
        # A run that was killed may have left its server behind.
        self._end_programs()
        made = self.prefix / ".made"
        if not made.exists():
            shutil.rmtree(self.prefix, ignore_errors=True)
            if model is not None:
                self._clone(model)
            else:
                self._must("wineboot", "--init", timeout=300)
                self._must("wineserver", "--wait", timeout=60)
            made.touch()
        (self.prefix / "drive_c" / "e2e").mkdir(exist_ok=True)

    def start(self) -> None:
        """Starts the prefix's server, and Wine's services, which are not to be part of a scenario."""
        self._server = self._processes.start(
            ["wineserver", "--persistent", "--foreground"], self._folder / "wineserver.log",
            environment=self.environment())
        self._must("wine", "cmd", "/c", "ver")
        # Windows without a display.
        self._must("wine", "reg", "add", r"HKCU\Software\Wine\Drivers", "/v", "Graphics", "/d", "null", "/f")

    def _clone(self, model: Path) -> None:
        # Nobody changes Windows' own files, which are most of the prefix: links do. The registry is copied.
        shutil.copytree(model, self.prefix, symlinks=True, copy_function=os.link,
                        ignore=shutil.ignore_patterns(".made", "e2e"))
        for registry in self.prefix.glob("*.reg"):
            registry.unlink()
            shutil.copy2(model / registry.name, registry)

    def stop(self) -> None:
        """Ends every program of this prefix, and its server."""
        if self._server is None:
            return
        self._end_programs()
        deadline = time.monotonic() + 10
        while self._server.poll() is None and time.monotonic() < deadline:
            time.sleep(0.02)
        self._processes.stop(self._server)
        self._server = None
        self._remove_socket_folder()

    def _remove_socket_folder(self) -> None:
        """Removes what the prefix's server had below /tmp, in a folder whose name it keeps in the prefix."""
        name_file = self.prefix / "wineserver"
        if not name_file.exists():
            return
        folder = Path("/tmp") / name_file.read_text().strip()
        status = self.prefix.stat()
        shutil.rmtree(folder / f"server-{status.st_dev:x}-{status.st_ino:x}", ignore_errors=True)
        # Another prefix made from this one has its place there too.
        with contextlib.suppress(OSError):
            folder.rmdir()

    def _end_programs(self) -> None:
        subprocess.run(["wineserver", "--kill"], env=self.environment(), stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=30, check=False)

    def write_settings(self, settings: Settings | None) -> None:
        """Makes `settings` the user's; none at all for a user who never opened the dialog."""
        if self._settings_known and self._written == settings:
            return
        self._settings_known = False
        if settings is None:
            # It fails if there is no such value, which is what is wanted.
            self._run(["wine", "reg", "delete", CONNECTIONS_KEY, "/v", SETTINGS_VALUE, "/f"])
        else:
            self._must("wine", "reg", "add", CONNECTIONS_KEY, "/v", SETTINGS_VALUE, "/t", "REG_BINARY", "/d",
                      settings.encoded().hex(), "/f")
        self._written = settings
        self._settings_known = True

    def write_registry(self, values: Sequence[RegistryValue], fill_in: Callable[[str], str]) -> None:
        """Makes these the values that the registry has beside the user's settings; those of the last call go."""
        # A run that is killed meanwhile leaves a prefix that is made anew.
        made = self.prefix / ".made"
        if values:
            made.unlink(missing_ok=True)
        while self._registry:
            value = self._registry.pop()
            self._must("wine", "reg", "delete", value.key, "/v", value.name, "/f", f"/reg:{value.view}")
        for value in values:
            self._must("wine", "reg", "add", *value.arguments(fill_in))
            self._registry.append(value)
        if not values:
            made.touch()

    def forget_settings(self) -> None:
        """Somebody else has written the user's settings."""
        self._settings_known = False

    def write_roots(self, roots: Mapping[str, Sequence[bytes]]) -> None:
        """Makes certificates trusted roots, by store, and those of the last scenario no longer."""
        for store, certificates in self._roots.items():
            for certificate in set(certificates) - set(roots[store]):
                self._run(["wine", "reg", "delete", self._root_key(store, certificate), "/f"])
        for store, certificates in roots.items():
            for certificate in set(certificates) - set(self._roots.get(store, ())):
                # The form of the registry: a property's number, 1, its length and value; 32 is the certificate itself.
                blob = struct.pack("<III", 32, 1, len(certificate)) + certificate
                self._must("wine", "reg", "add", self._root_key(store, certificate), "/v", "Blob", "/t", "REG_BINARY",
                           "/d", blob.hex(), "/f")
        self._roots = roots

    @staticmethod
    def _root_key(store: str, certificate: bytes) -> str:
        return rf"{CERTIFICATES_KEY}\{store}\Certificates\{hashlib.sha1(certificate).hexdigest().upper()}"

    def file(self, name: str) -> Path:
        """The file that the user knows as C:/e2e/NAME."""
        return self.prefix / "drive_c" / "e2e" / name

    def write_file(self, name: str, text: str) -> None:
        self.file(name).write_text(text)

    def run_tool(self, tool: Path, arguments: Sequence[str], environment: Mapping[str, str],
                 timeout: float, stdin: str = "") -> ToolResult:
        """Runs the tool to its end."""
        return self._run(["wine", str(tool), *arguments], environment, timeout, stdin)

    def _run(self, command: Sequence[str], environment: Mapping[str, str] | None = None,
             timeout: float = 60, stdin: str = "") -> ToolResult:
        stdout, stderr, given = (self._folder / f"program.{stream}" for stream in ("stdout", "stderr", "stdin"))
        given.write_text(stdin)
        # On a busy machine Wine now and then fails to start a program at all, with or without a word, and ends with 1
        # itself, as none of the programs run here does in silence. Nothing has happened then.
        for _ in range(3):
            for output in (stdout, stderr):
                output.write_bytes(b"")
            code = self._processes.run(command, stdout, stderr, self.environment(**(environment or {})), timeout, given)
            result = ToolResult(code, program_text(stdout), program_text(stderr))
            said = result.stdout + result.stderr
            if NOT_STARTED not in said and (code != 1 or said):
                break
        return result

    def _must(self, *command: str, timeout: float = 60) -> None:
        result = self._run(command, timeout=timeout)
        if result.exit_code != 0:
            raise RuntimeError(f"{' '.join(command)} ended with {result.exit_code}:\n{result.stdout}{result.stderr}")
