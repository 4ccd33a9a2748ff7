"""What newer versions of Wine do differently. Transcripts are recorded with Wine 8, which Debian 12 has."""

from __future__ import annotations

import re
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass, replace

from harness.scenario import Scenario


@dataclass(frozen=True)
class Difference:
    """Scenarios that since a version of Wine have the outcome and the transcript of others, but for the script."""

    since: int
    """Wine's major version."""
    scenarios: str
    """An expression for their whole names."""
    others: str
    """What replaces a name to give the name of the other."""
    reason: str
    """What Wine does now."""


KNOWN = (
    Difference(10, r"(sources_\w+)_(?:syntax_error|throwing)_(\w+)", r"\1_nonsense_\2",
               "When a script over HTTP fails, WinHttpGetProxyForUrl fails without setting the last error. Wine 8 left"
               " one there that has nothing to do with it (14007), and that stops discovery; now the manual list is"
               " tried, as it is after a script that names no proxy."),
)


def wine_version() -> int:
    """The major version of the Wine that is installed."""
    said = subprocess.run(["wine", "--version"], capture_output=True, text=True, check=True).stdout
    version = re.match(r"wine-(\d+)\.", said)
    if version is None:
        raise RuntimeError(f"wine --version says {said!r}")
    return int(version[1])


def with_differences(scenarios: Sequence[Scenario], version: int) -> list[Scenario]:
    """The scenarios as this version of Wine is known to run them."""
    by_name = {scenario.name: scenario for scenario in scenarios}
    for known in KNOWN:
        about = [name for name in by_name if re.fullmatch(known.scenarios, name)]
        # Else the table still has what is gone.
        assert about, f"no scenario has a name like {known.scenarios}"
        for name in about if version >= known.since else ():
            other = by_name[re.sub(known.scenarios, known.others, name)]
            by_name[name] = replace(by_name[name], outcome=other.outcome, exit_code=other.exit_code, like=other)
    return list(by_name.values())
