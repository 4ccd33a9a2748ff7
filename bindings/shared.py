"""What the tests of several bindings share: counting checks, and what the servers are called."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests/e2e"))

SKIPPED = 77
SERVERS = ("squid_basic", "squid_ntlm", "squid_digest", "web")


class Counts:
    """How many checks passed and failed."""

    def __init__(self) -> None:
        self.passed = self.failed = 0

    def check(self, name: str, well: bool, said: str = "") -> None:
        self.passed += well
        self.failed += not well
        print(f"{'ok' if well else 'FAIL':4}  {name}\n{'' if well else said}", end="", flush=True)

    def command(self, name: str, *command: str | Path, folder: Path = ROOT) -> None:
        """Checks that a program ends well."""
        done = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        self.check(name, done.returncode == 0, done.stdout)

    def declarations(self, binding: str) -> None:
        """Checks what a binding declares."""
        self.command("declarations", sys.executable, ROOT / "bindings/check_declarations.py", binding)


def server_variables(ports: dict[str, int]) -> dict[str, str]:
    """The environment that tells the tests the servers' URLs."""
    return {f"KIV_TEST_{name.upper()}": f"http{'s' if name == 'web_tls' else ''}://"
            f"{'localhost' if name.startswith('web') else '127.0.0.1'}:{port}" for name, port in ports.items()}


def readme_program(readme: Path, language: str) -> str:
    """The one program that a README shows in this language."""
    (program,) = re.findall(rf"^```{language}\n(.*?)^```", readme.read_text(encoding="utf-8"), re.M | re.S)
    return program
