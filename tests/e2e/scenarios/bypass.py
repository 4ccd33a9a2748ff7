"""Each kind of rule of a bypass list, with a target that it matches and one that it does not."""

from harness.scenario import DIRECT, Scenario, answering
from harness.wine import Settings

PROXY = "http://127.0.0.1:{tinyproxy}"
HERE = "http://localhost:{web}/ok"


def rule(name: str, target: str, bypass: str, matches: bool) -> Scenario:
    """A user with a manual proxy and a bypass list asks for a target."""
    return Scenario(f"bypass_{name}", target, DIRECT if matches else PROXY,
                    Settings(manual="127.0.0.1:{tinyproxy}", bypass=bypass))


SCENARIOS = [
    rule("exact", "http://www.corp.example/", "www.corp.example", True),
    rule("exact_is_whole", HERE, "local", False),
    rule("star", "http://www.corp.example/", "*.corp.example", True),
    rule("star_alone", "http://www.corp.example/", "*", True),
    rule("star_in_address", "http://10.1.2.3/", "10.*", True),
    rule("capitals", "http://WWW.Corp.example/", "*.CORP.example", True),
    rule("port", "http://www.corp.example:8080/", "www.corp.example:8080", True),
    rule("default_port", "http://www.corp.example/", "www.corp.example:80", True),
    rule("other_port", HERE, "localhost:1", False),
    rule("scheme", "https://www.corp.example/", "https://www.corp.example", True),
    rule("other_scheme", HERE, "https://localhost", False),
    rule("any_scheme", "https://www.corp.example/", "*://www.corp.example", True),
    rule("local_plain_name", "http://intranet/", "<local>", True),
    rule("local_is_lower_case", HERE, "<LOCAL>", False),
    rule("broken_then_good", "http://www.corp.example/", "[fe80::1];a:b:c; www.corp.example ;", True),
    rule("only_broken", HERE, "[fe80::1];;", False),
    rule("blank_does_not_separate", HERE, "localhost 127.0.0.1", False),
    rule("last_of_many", "http://www.corp.example/", "a;b;c;*.net;www.corp.example", True),

    # A script's answer over HTTP names no bypass list, and leaves the user's; a local script's answer empties it.
    # (Wine tells of a bypass list only if there is a manual list too.)
    Scenario("bypass_stays_with_script_over_http", HERE, DIRECT,
             Settings(script_url="http://127.0.0.1:{web}/script.pac", manual="127.0.0.1:{dead}", bypass="localhost"),
             script=answering("PROXY 127.0.0.1:{tinyproxy}")),
    Scenario("bypass_goes_with_local_script", HERE, PROXY,
             Settings(script_url="file://C:/e2e/script.pac", manual="127.0.0.1:{dead}", bypass="localhost"),
             script=answering("PROXY 127.0.0.1:{tinyproxy}")),
]
