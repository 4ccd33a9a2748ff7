#!/usr/bin/env python3
"""Compares what the bindings declare with include/kiv/session.h: values of constants, and functions with their numbers
of parameters.

    check_declarations.py [BINDING...]
"""

from __future__ import annotations

import re
import sys
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
HEADER = ROOT / "include/kiv/session.h"


@dataclass(frozen=True)
class Binding:
    """Where a binding declares things, and how. `constant` has the groups value and name, and word where users of the
    binding read it: that must be the end of the name. `function` has name, and arity (a number) or parameters (a list with
    commas); there is none where a compiler reads the header."""

    file: str
    constant: re.Pattern[str]
    function: re.Pattern[str] | None = None
    unused: frozenset[str] = frozenset()
    """The constants of the header that the binding has no use for."""


BINDINGS = {
    "go": Binding("bindings/go/declarations.go",
                  re.compile(r"= (?P<value>0x[0-9A-Fa-f]+|\d+)\s+// (?P<name>KIV_\w+)$", re.M),
                  re.compile(r'\{"(?P<name>Kiv\w+)", (?P<arity>\d+)\}')),
    "node": Binding("bindings/node/lib/declarations.js",
                    re.compile(r"(?P<word>\w+)(?::| =) (?P<value>0x[0-9a-f]+|\d+)[,;] // (?P<name>KIV_\w+)$", re.M)),
    "rust": Binding("bindings/rust/src/declarations.rs",
                    re.compile(r"[=(] ?(?P<value>0x[0-9A-Fa-f]+|\d+)\)?[,;] // (?P<name>KIV_\w+)$", re.M),
                    re.compile(r"^    fn (?P<name>Kiv\w+)\((?P<parameters>[^)]*)\)", re.M),
                    frozenset({"KIV_EVENT_CLOSED", "KIV_KIND_NONE", "KIV_LOG_LEVEL_OFF", "KIV_STATUS_REENTRANT",
                               "KIV_STATUS_TOO_LATE", "KIV_STATUS_TOO_MANY"})),
    "python": Binding("bindings/python/kiv/declarations.py",
                      re.compile(r"= (?P<value>0x[0-9A-Fa-f]+|\d+)  # (?P<name>KIV_\w+)$", re.M),
                      re.compile(r'"(?P<name>Kiv\w+)": \(\w+, \[(?P<parameters>[^\]]*)\]\)')),
}


@dataclass
class Declared:
    """Constants with their values, and functions with their numbers of parameters."""

    constants: dict[str, int]
    functions: dict[str, int]


def count(parameters: str) -> int:
    """How many parameters stand in a list."""
    return 0 if parameters.strip() in ("", "void") else parameters.count(",") + 1


def in_header(text: str) -> Declared:
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    constants = re.findall(r"^#define (KIV_\w+) (0x[0-9A-Fa-f]+|\d+)U$", text, re.M)
    functions = re.findall(r"^KIV_API [^;(]*?(Kiv\w+)\(([^)]*)\);", text, re.M)
    return Declared({name: int(value, 0) for name, value in constants},
                    {name: count(parameters) for name, parameters in functions})


def in_binding(binding: Binding, text: str) -> Declared:
    functions = {}
    for match in binding.function.finditer(text) if binding.function else ():
        found = match.groupdict()
        functions[found["name"]] = int(found["arity"]) if "arity" in found else count(found["parameters"])
    return Declared({match["name"]: int(match["value"], 0) for match in binding.constant.finditer(text)}, functions)


def different(what: str, declared: Mapping[str, int], header: Mapping[str, int]) -> Iterable[str]:
    """What is declared otherwise than in the header."""
    for name, value in declared.items():
        if name not in header:
            yield f"the header has no {what} {name}"
        elif value != header[name]:
            yield f"{what} {name} is {value:#x}, in the header {header[name]:#x}"


def misnamed(binding: Binding, text: str) -> Iterable[str]:
    """Words that are not what the header says."""
    for match in binding.constant.finditer(text):
        word = match.groupdict().get("word", "").removeprefix("KIV_")
        if not match["name"].replace("_", "").endswith(word.replace("_", "").upper()):
            yield f"{match['name']} is called {word}"


def complaints(binding: Binding, header: Declared) -> list[str]:
    """What is wrong with a binding."""
    text = (ROOT / binding.file).read_text(encoding="utf-8")
    declared = in_binding(binding, text)
    if not declared.constants or (binding.function and not declared.functions):
        return ["nothing is declared in the form that this program reads"]
    missing = header.constants.keys() - declared.constants.keys() - binding.unused
    return [*different("constant", declared.constants, header.constants),
            *misnamed(binding, text),
            *different("function", declared.functions, header.functions),
            *(f"constant {name} is missing" for name in sorted(missing))]


def main() -> int:
    header = in_header(HEADER.read_text(encoding="utf-8"))
    failed = False
    for name in sys.argv[1:] or BINDINGS:
        for complaint in complaints(BINDINGS[name], header):
            failed = True
            print(f"{BINDINGS[name].file}: {complaint}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
