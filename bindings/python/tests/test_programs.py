"""The program of README, and the example, with squid."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import Optional

from .support import BINDING, PASSWORD, PATIENCE, USER


@unittest.skipUnless("KIV_TEST_WEB" in os.environ, "run_tests.py starts the servers")
class Programs(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.target = os.environ["KIV_TEST_WEB"]
        self.proxy = os.environ["KIV_TEST_SQUID_BASIC"]

    def run_program(self, proxy: str, program: Path, *arguments: str, given: str = "") -> subprocess.CompletedProcess[str]:
        return subprocess.run([sys.executable, "-B", "-m", "tests.as_on_windows", proxy, program, *arguments], cwd=BINDING,
                              input=given, capture_output=True, text=True, timeout=PATIENCE, check=False)

    def test_the_program_of_readme_gets_a_file(self) -> None:
        (text,) = re.findall(r"^```python\n(.*?)^```", (BINDING / "README.md").read_text(encoding="utf-8"), re.M | re.S)
        program = self.folder / "readme.py"
        program.write_text(text, encoding="utf-8")
        ended = self.run_program(self.proxy, program, f"{self.target}/ok", given=f"{USER} {PASSWORD}\n")
        self.assertEqual((ended.returncode, ended.stdout), (0, "ok\n"), ended.stderr)
        ended = self.run_program(self.proxy, program, f"{self.target}/ok", given="wrong\n")
        self.assertEqual((ended.returncode, ended.stdout), (1, ""))
        self.assertIn("no proxy credentials", ended.stderr)

    def download(self, proxy: str, name: str, *options: str) -> tuple[int, Optional[str], str]:
        """What the example's exit code is, what it has saved, and what it says."""
        file = self.folder / "downloaded"
        file.unlink(missing_ok=True)
        ended = self.run_program(proxy, BINDING / "examples/download.py", *options, f"{self.target}/{name}", str(file))
        self.assertEqual(list(self.folder.glob("*.part*")), [])
        return ended.returncode, file.read_text(encoding="utf-8") if file.exists() else None, ended.stderr

    def test_the_example_saves_a_file_or_nothing(self) -> None:
        password = self.folder / "password"
        password.write_text(PASSWORD, encoding="utf-8")
        login = ("--user", USER, "--password-file", str(password))
        self.assertEqual(self.download(self.proxy, "ok", *login), (0, "ok\n", ""))
        self.assertEqual(self.download("DIRECT", "ok"), (0, "ok\n", ""))
        for proxy, name, options, said in ((self.proxy, "missing", login, "404 Client Error"),
                                           (self.proxy, "ok", (), "no proxy credentials"),
                                           ("NONE", "ok", (), "there is no route")):
            with self.subTest(said):
                code, saved, text = self.download(proxy, name, *options)
                self.assertEqual((code, saved, text.count("\n")), (1, None, 1))
                self.assertIn(said, text)


if __name__ == "__main__":
    unittest.main()
