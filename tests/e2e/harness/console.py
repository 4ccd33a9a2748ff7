"""Runs the tool on a console, as a person does, and tells what was on the screen."""

from __future__ import annotations

import contextlib
import fcntl
import html
import os
import pty
import re
import select
import struct
import subprocess
import termios
import time
from collections.abc import Mapping, Sequence
from dataclasses import dataclass

CONTROL = re.compile(r"\x1b\[([?\d;]*)([A-Za-z])|(\r|\n)|([^\x1b\r\n]+)")


@dataclass(frozen=True)
class Cell:
    """A character, and the colour codes that it was written with."""

    character: str
    style: str


class Screen:
    """As much of a terminal as the tool needs: lines, colours, return, and clearing the rest of a line."""

    def __init__(self) -> None:
        self.lines: list[list[Cell]] = [[]]
        self._column = 0
        self._style = ""

    def feed(self, text: str) -> None:
        for parameters, command, move, written in CONTROL.findall(text):
            if written:
                self._write(written)
            elif move:
                self._column = 0
                if move == "\n":
                    self.lines.append([])
            elif command == "K":
                del self.lines[-1][self._column:]
            elif command == "m":
                self._style = "" if parameters in ("", "0") else parameters

    def _write(self, text: str) -> None:
        cells = [Cell(character, self._style) for character in text]
        self.lines[-1][self._column:self._column + len(cells)] = cells
        self._column += len(cells)

    @property
    def text(self) -> str:
        return "\n".join("".join(cell.character for cell in line).rstrip() for line in self.lines).rstrip("\n") + "\n"


def run_on_console(command: Sequence[str], environment: Mapping[str, str], columns: int, timeout: float = 30.0) -> str:
    """Runs a program on a console of its own and returns all that it wrote, control sequences included."""
    ours, theirs = pty.openpty()
    try:
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 40, columns, 0, 0))
        process = subprocess.Popen(command, stdin=theirs, stdout=theirs, stderr=theirs, env=environment,
                                   start_new_session=True)
        os.close(theirs)
        try:
            return _read(ours, process, time.monotonic() + timeout)
        finally:
            process.kill()
            process.wait()
    finally:
        os.close(ours)


def _read(console: int, process: subprocess.Popen[bytes], deadline: float) -> str:
    written = b""
    while time.monotonic() < deadline:
        ready, _, _ = select.select([console], [], [], 0.3)
        if not ready and process.poll() is not None:
            break
        if ready:
            # Linux ends a console that nobody writes to any more with an error.
            with contextlib.suppress(OSError):
                if part := os.read(console, 65536):
                    written += part
                    continue
            break
    return written.decode("utf-8", "replace")


STYLES = {"1": "bold", "31": "red", "33": "yellow", "32": "green", "90": "grey"}
STYLE_SHEET = """
text { font: 14px ui-monospace, Consolas, "DejaVu Sans Mono", monospace; fill: #d8dee9; white-space: pre }
.back { fill: #16191f } .bold { font-weight: 700; fill: #ffffff } .red { fill: #ff8f87 } .yellow { fill: #efc266 }
.green { fill: #7bd8a8 } .grey { fill: #8b94a3 }
"""


def _line_svg(line: Sequence[Cell], y: int) -> str:
    spans: list[tuple[str, str]] = []
    for cell in line:
        if spans and spans[-1][0] == cell.style:
            spans[-1] = (cell.style, spans[-1][1] + cell.character)
        else:
            spans.append((cell.style, cell.character))
    parts = (f'<tspan class="{STYLES.get(style, "plain")}">{html.escape(text)}</tspan>' for style, text in spans)
    return f'<text x="18" y="{y}" xml:space="preserve">{"".join(parts)}</text>'


def as_svg(screen: Screen) -> str:
    """The screen as a picture."""
    lines = screen.lines[:-1] if not screen.lines[-1] else screen.lines
    width = 36 + round(8.45 * max(len(line) for line in lines))
    height = 30 + 20 * len(lines)
    texts = "\n".join(_line_svg(line, 30 + 20 * number) for number, line in enumerate(lines))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}">'
            f'\n<style>{STYLE_SHEET}</style>\n<rect class="back" width="{width}" height="{height}" rx="10"/>\n{texts}\n'
            "</svg>\n")
