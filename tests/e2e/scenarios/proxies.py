"""Proxies: those that want to know who asks, and those that do not do what a proxy should."""

from harness.scenario import NONE, WRONG_PASSWORD, Scenario
from harness.servers import PROXY_PASSWORD, PROXY_USER, SERVER_USER
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
RIGHT = f" --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}"
WRONG = f" --proxy-cred {PROXY_USER}:{WRONG_PASSWORD}"

TINYPROXY_BASIC = Settings(manual="127.0.0.1:{tinyproxy_basic}")


def via(*servers: str) -> Settings:
    """The settings of a user who has entered these servers as proxies."""
    return Settings(manual=";".join(f"127.0.0.1:{{{server}}}" for server in servers))


SCENARIOS = [
    Scenario("tinyproxy_basic_right", URL + RIGHT, "http://127.0.0.1:{tinyproxy_basic}", TINYPROXY_BASIC),
    Scenario("tinyproxy_basic_wrong", URL + WRONG, NONE, TINYPROXY_BASIC),
    Scenario("tinyproxy_basic_none", URL, NONE, TINYPROXY_BASIC),
    Scenario("tinyproxy_basic_then_open", URL + WRONG, "http://127.0.0.1:{tinyproxy}",
             Settings(manual="127.0.0.1:{tinyproxy_basic};127.0.0.1:{tinyproxy}")),
    Scenario("tinyproxy_basic_preferred_with_password",
             f"{URL} --prefer {PROXY_USER}:{PROXY_PASSWORD}@127.0.0.1:{{tinyproxy_basic}}",
             "http://127.0.0.1:{tinyproxy_basic}"),

    Scenario("squid_open", URL, "http://127.0.0.1:{squid}", via("squid")),
    Scenario("squid_basic_right", URL + RIGHT, "http://127.0.0.1:{squid_basic}", via("squid_basic")),
    Scenario("squid_basic_wrong", URL + WRONG, NONE, via("squid_basic")),
    Scenario("squid_basic_none", URL, NONE, via("squid_basic")),
    # Wine has no answer to Digest.
    Scenario("squid_digest_right", URL + RIGHT, NONE, via("squid_digest")),
    Scenario("squid_ntlm_right", URL + RIGHT, "http://127.0.0.1:{squid_ntlm}", via("squid_ntlm")),
    Scenario("squid_ntlm_wrong_password", URL + WRONG, NONE, via("squid_ntlm")),
    Scenario("squid_ntlm_wrong_user", f"{URL} --proxy-cred {SERVER_USER}:{PROXY_PASSWORD}", NONE, via("squid_ntlm")),
    Scenario("squid_ntlm_none", URL, NONE, via("squid_ntlm")),
    Scenario("squid_digest_then_basic", URL + RIGHT, "http://127.0.0.1:{squid_basic}",
             via("squid_digest", "squid_basic")),

    Scenario("proxy_silent", URL, "http://127.0.0.1:{tinyproxy}", via("silent", "tinyproxy"),
             environment={"KIV_E2E_RESPONSE_TIMEOUT": "1500"}),
    Scenario("proxy_resets", URL, "http://127.0.0.1:{tinyproxy}", via("resets", "tinyproxy")),
    Scenario("proxy_bad_gateway", URL, "http://127.0.0.1:{tinyproxy}", via("bad_gateway", "tinyproxy")),
    # Wine begins TLS on the connection whatever the answer to CONNECT is, and waits for the proxy's part of it.
    Scenario("proxy_refuses_the_tunnel", "https://localhost:{web_tls}/ok", NONE, via("bad_gateway"),
             environment={"KIV_E2E_RESPONSE_TIMEOUT": "1500"}),
    Scenario("proxy_refuses_the_tunnel_until_attempt_time", "https://localhost:{web_tls}/ok --probe --attempt-time 1",
             NONE, via("bad_gateway")),
    # Wine takes an answer that is not HTTP for the body of a success.
    Scenario("proxy_garbage", URL, "http://127.0.0.1:{garbage}", via("garbage", "tinyproxy")),
    Scenario("proxy_bad_status_line", URL, "http://127.0.0.1:{tinyproxy}", via("bad_status_line", "tinyproxy")),
    Scenario("proxy_huge_headers", URL, "http://127.0.0.1:{huge_headers}", via("huge_headers")),
    Scenario("proxy_bare_407", URL + RIGHT, "http://127.0.0.1:{tinyproxy}", via("bare_407", "tinyproxy")),
    Scenario("proxy_bare_407_no_password", URL, NONE, via("bare_407")),
    Scenario("proxy_407_for_ever", URL + RIGHT, "http://127.0.0.1:{tinyproxy}", via("stubborn_407", "tinyproxy")),
]
