"""What the tool does with its command line."""

from harness.scenario import DIRECT, USAGE_ERROR, Scenario
from harness.wine import Settings

SCENARIOS = [
    Scenario("usage_no_url", "", USAGE_ERROR),
    Scenario("usage_unknown_option", "http://localhost:{web}/ok --frobnicate", USAGE_ERROR),
    Scenario("usage_unknown_method", "http://localhost:{web}/ok --method post", USAGE_ERROR),
    Scenario("usage_cred_without_user", "http://localhost:{web}/ok --proxy-cred :secret", USAGE_ERROR),
    Scenario("usage_option_without_value", "http://localhost:{web}/ok --bypass", USAGE_ERROR),
    Scenario("usage_two_urls", "http://localhost:{web}/ok http://localhost:{web}/ok", USAGE_ERROR),
    Scenario("quiet_prints_the_outcome_alone", "http://localhost:{web}/ok --quiet", DIRECT),
    Scenario("quiet_keeps_a_proxy_outcome", "http://localhost:{web}/ok --quiet", "http://127.0.0.1:{tinyproxy}",
             Settings(manual="127.0.0.1:{tinyproxy}")),
    Scenario("user_agent_is_used", "http://localhost:{web}/ok --user-agent 'Probe 7'", "http://127.0.0.1:{tinyproxy}",
             Settings(manual="127.0.0.1:{tinyproxy}")),
    Scenario("method_get", "http://localhost:{web}/ok --method get", "http://127.0.0.1:{tinyproxy}",
             Settings(manual="127.0.0.1:{tinyproxy}")),
]
