"""The user's proxy settings: each source of candidates, their order, and the bypass list."""

from harness.scenario import DIRECT, NONE, Scenario, answering
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
PROXY, OTHER = "http://127.0.0.1:{tinyproxy}", "http://127.0.0.1:{tinyproxy2}"
SCRIPT_URL = "http://127.0.0.1:{web}/script.pac"
LOCAL_SCRIPT = "file://C:/e2e/script.pac"

SCENARIOS = [
    Scenario("no_settings", URL, DIRECT, settings=None),
    Scenario("everything_off", URL, DIRECT),

    Scenario("manual_one", URL, PROXY, Settings(manual="127.0.0.1:{tinyproxy}")),
    Scenario("manual_per_scheme", URL, PROXY, Settings(manual="http=127.0.0.1:{tinyproxy};https=127.0.0.1:{dead}")),
    Scenario("manual_dead_then_living", URL, PROXY, Settings(manual="127.0.0.1:{dead};127.0.0.1:{tinyproxy}")),
    Scenario("manual_all_dead", URL, NONE, Settings(manual="127.0.0.1:{dead};127.0.0.1:{dead2}")),

    Scenario("script_over_http", URL, PROXY, Settings(script_url=SCRIPT_URL),
             script=answering("PROXY 127.0.0.1:{tinyproxy}")),
    Scenario("script_unreachable_then_manual", URL, PROXY,
             Settings(script_url="http://127.0.0.1:{dead}/script.pac", manual="127.0.0.1:{tinyproxy}")),
    Scenario("script_local", URL, OTHER, Settings(script_url=LOCAL_SCRIPT),
             script=answering("PROXY 127.0.0.1:{dead}; PROXY 127.0.0.1:{tinyproxy2}")),
    Scenario("script_local_says_direct", URL, NONE, Settings(script_url=LOCAL_SCRIPT), script=answering("DIRECT")),
    Scenario("detection_fails_then_manual", URL, PROXY, Settings(detect=True, manual="127.0.0.1:{tinyproxy}")),

    Scenario("bypass_matches", URL, DIRECT, Settings(manual="127.0.0.1:{tinyproxy}", bypass="*.corp;localhost"),
             servers=("web",)),
    Scenario("bypass_local", "http://localhost:{web}/ok", DIRECT,
             Settings(manual="127.0.0.1:{tinyproxy}", bypass="<local>")),
    Scenario("bypass_does_not_match", URL, PROXY, Settings(manual="127.0.0.1:{tinyproxy}", bypass="*.corp;10.*")),
    Scenario("bypass_given_replaces_the_users", URL + " --bypass '*.corp'", PROXY,
             Settings(manual="127.0.0.1:{tinyproxy}", bypass="localhost")),
    Scenario("bypass_given_empty_switches_it_off", URL + " --bypass ''", PROXY,
             Settings(manual="127.0.0.1:{tinyproxy}", bypass="localhost")),

    Scenario("preferred_comes_first", URL + " --prefer 127.0.0.1:{tinyproxy2}", OTHER,
             Settings(manual="127.0.0.1:{tinyproxy}")),
    Scenario("fallback_comes_last", URL + " --fallback 127.0.0.1:{tinyproxy2}", OTHER,
             Settings(manual="127.0.0.1:{dead}")),
]
