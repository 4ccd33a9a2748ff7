#!/usr/bin/env python3
"""Compares the numbers that lib/ writes down with those of kiv/session.h, and finds what it leaves out."""

from __future__ import annotations

import re
import sys
from pathlib import Path

BINDING = Path(__file__).resolve().parents[1]
HEADER = BINDING.parents[1] / "include" / "kiv" / "session.h"
# What a text of JavaScript does not stand for: successes and steps.
NOT_ERRORS = {"OK", "AGAIN", "DONE", "SYSTEM"}


def camel(name: str) -> str:
    """KEPT_TIME_OUT as keptTimeout."""
    first, *others = name.replace("TIME_OUT", "TIMEOUT").lower().split("_")
    return first + "".join(word.capitalize() for word in others)


def constants(header: str, prefix: str) -> dict[str, int]:
    found = re.findall(rf"(?m)^#define KIV_{prefix}_(\w+) (0x[0-9A-F]+|\d+)U$", header)
    return {name: int(value, 0) for name, value in found}


def table(script: str, name: str) -> dict[str, int]:
    """An object of names and numbers, or of numbers and names, or an array of names; a number may be first in a list."""
    body = re.search(rf"(?s)const {name} = ([{{\[])(.*?)\n?[}}\]];", script)
    if body[1] == "[":
        return {word: at for at, word in enumerate(re.findall(r"'(\w+)'", body[2]))}
    pairs = re.findall(r"(\w+): \[?(?:'(\w+)'|(0x[0-9a-f]+|\d+))", body[2])
    return {text or key: int(key if text else value, 0) for key, text, value in pairs}


def words_of(script: str, option: str) -> dict[str, int]:
    return {word: at for at, word in enumerate(re.findall(r"'(\w+)'", re.search(rf"  {option}: \[\d+, \[(.*?)\]", script)[1]))}


def main() -> int:
    header = HEADER.read_text(encoding="utf-8")
    script = (BINDING / "lib" / "session.js").read_text(encoding="utf-8")
    errors = (BINDING / "lib" / "errors.js").read_text(encoding="utf-8")
    tunnel = (BINDING / "lib" / "tunnel.js").read_text(encoding="utf-8")
    status = constants(header, "STATUS")

    def named(prefix: str) -> dict[str, int]:
        return {camel(name): value for name, value in constants(header, prefix).items()}

    failures = {camel(name.removesuffix("")): value for name, value in constants(header, "FAILURE").items()}
    kinds = {name: value for name, value in named("KIND").items()}
    compared = [
        ("errors", {name.removeprefix("KIV_"): value for name, value in table(errors, "CODES").items()},
         {name: value for name, value in status.items() if name not in NOT_ERRORS}),
        ("options", table(script, "NUMBERS") | table(script, "TEXTS"), named("OPTION")),
        ("reasons", table(script, "REASONS"), named("REASON")), ("kinds", table(script, "KINDS"), kinds),
        ("schemes", table(script, "SCHEMES"), named("SCHEME")), ("levels", table(script, "LEVELS"), named("LOG_LEVEL")),
        ("counters", table(script, "COUNTERS"), named("COUNTER")), ("failures", table(script, "FAILURES"), failures),
        ("proxies", table(script, "PROXIES"), named("PROXY")), ("tests", words_of(script, "test"), named("TEST")),
        ("direct", words_of(script, "direct"), named("DIRECT")),
        ("loggedOnUser", words_of(script, "loggedOnUser"), named("LOGGED_ON_USER")),
    ]
    steps = re.search(r"const \[([A-Z_, ]+)\] = \[([\d, ]+)\]", tunnel)
    for name, value in zip(steps[1].split(", "), map(int, steps[2].split(", "))):
        compared.append((name, {name: value}, {name: status[name]}))
    wrong = [f"{what}: {ours}, and the header has {theirs}" for what, ours, theirs in compared
             if not theirs or ours != theirs]
    print("\n".join(wrong) or f"{sum(len(ours) for _, ours, _ in compared)} numbers agree")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
