"""Every combination of the places where a user's proxies can come from, and scripts that make it difficult."""

from __future__ import annotations

from dataclasses import dataclass
from itertools import product

from harness.scenario import DIRECT, NONE, Scenario, answering
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
PROXY = "http://127.0.0.1:{tinyproxy}"
SCRIPTS_PROXY = "http://127.0.0.1:{tinyproxy2}"
OVER_HTTP = "http://127.0.0.1:{web}/script.pac"
LOCAL = "file://C:/e2e/script.pac"
GOOD = answering("PROXY 127.0.0.1:{tinyproxy2}")


@dataclass(frozen=True)
class Source:
    """One way in which a script or a manual list can be set."""

    name: str
    text: str
    outcome: str | None
    """What the source leads to; None if the next source is asked."""
    script: str = ""


SCRIPTS = [
    Source("no_script", "", None),
    Source("http", OVER_HTTP, SCRIPTS_PROXY, GOOD),
    Source("file", LOCAL, SCRIPTS_PROXY, GOOD),
    Source("unreachable", "http://127.0.0.1:{dead}/script.pac", None),
    Source("missing_file", "file://C:/e2e/missing.pac", None),
    # Wine reports a script that fails with an error of its own that stops discovery before the manual list.
    Source("syntax_error", OVER_HTTP, DIRECT, "function FindProxyForURL(url, host) { return "),
    Source("throwing", OVER_HTTP, DIRECT, 'function FindProxyForURL(url, host) { throw "no"; }\n'),
    Source("nonsense", OVER_HTTP, None, answering("BANANA; ???")),
    Source("file_nonsense", LOCAL, DIRECT, answering("BANANA; ???")),
    Source("says_direct", OVER_HTTP, None, answering("DIRECT")),
]

MANUALS = [
    Source("no_manual", "", DIRECT),
    Source("one", "127.0.0.1:{tinyproxy}", PROXY),
    Source("per_scheme", "ftp=127.0.0.1:{dead};http=127.0.0.1:{tinyproxy}", PROXY),
    Source("many", "127.0.0.1:{dead} 127.0.0.1:{dead2};;127.0.0.1:{tinyproxy}", PROXY),
    Source("broken", "127.0.0.1:{tinyproxy};127.0.0.1:;127.0.0.1:{tinyproxy2}", PROXY),
]

COMBINATIONS = [
    Scenario(f"sources_{'detect' if detect else 'no_detect'}_{script.name}_{manual.name}", URL,
             script.outcome or manual.outcome or NONE,
             Settings(detect, script_url=script.text, manual=manual.text), script=script.script)
    for detect, script, manual in product((False, True), SCRIPTS, MANUALS)
]

DIFFICULT = [
    Scenario("script_slow", URL, PROXY, Settings(script_url="http://127.0.0.1:{odd}/slow/script.pac"),
             script=answering("PROXY 127.0.0.1:{tinyproxy}")),
    Scenario("script_of_5_mib", URL, PROXY, Settings(script_url="http://127.0.0.1:{odd}/huge/script.pac"),
             script=answering("PROXY 127.0.0.1:{tinyproxy}")),
    Scenario("script_local_200_candidates", URL + " --quiet", PROXY, Settings(script_url=LOCAL),
             script=answering("PROXY 127.0.0.1:{dead}; " * 199 + "PROXY 127.0.0.1:{tinyproxy}")),
    Scenario("manual_200_candidates", URL, PROXY,
             Settings(manual="127.0.0.1:{dead};" * 199 + "127.0.0.1:{tinyproxy}")),
    Scenario("script_local_every_keyword", URL, PROXY, Settings(script_url=LOCAL),
             script=answering("HTTPS 127.0.0.1:{dead}; SOCKS 127.0.0.1:{dead}; SOCKS4 127.0.0.1:{dead}; "
                              "SOCKS5 127.0.0.1:{dead}; BANANA 127.0.0.1:{dead}; direct; proxy 127.0.0.1:{tinyproxy}")),
    Scenario("script_sees_url_and_host", URL, PROXY, Settings(script_url=OVER_HTTP),
             script='function FindProxyForURL(url, host) {\n'
                    '  return url == "http://localhost:{web}/ok" && host == "localhost"\n'
                    '    ? "PROXY 127.0.0.1:{tinyproxy}" : "PROXY 127.0.0.1:{dead}";\n}\n'),
    Scenario("script_local_sees_url_and_host", URL, PROXY, Settings(script_url=LOCAL),
             script='function FindProxyForURL(url, host) {\n'
                    '  return url == "http://localhost:{web}/ok" && host == "localhost"\n'
                    '    ? "PROXY 127.0.0.1:{tinyproxy}" : "PROXY 127.0.0.1:{dead}";\n}\n'),
]

SCENARIOS = [*COMBINATIONS, *DIFFICULT]
