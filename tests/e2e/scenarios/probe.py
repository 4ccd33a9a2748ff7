"""What --probe finds of each route: phases, addresses, authentication, certificates, redirects, and the PAC script."""

from harness.scenario import DIRECT, NONE, USAGE_ERROR, WRONG_PASSWORD, Scenario, answering
from harness.servers import PROXY_PASSWORD, PROXY_USER, SERVER_PASSWORD, SERVER_USER
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
TLS_URL = "https://localhost:{web_tls}/ok"
DIRECTLY = " --prefer direct"

SCENARIOS = [
    Scenario("probe", f"{URL} --brief --probe", "http://127.0.0.1:{tinyproxy}",
             Settings(manual="127.0.0.1:{dead};127.0.0.1:{tinyproxy}", bypass="*.corp")),
    Scenario("probe_bypassed", f"{URL} --brief --probe", DIRECT, Settings(manual="127.0.0.1:{dead}", bypass="*.corp;local*")),
    Scenario("probe_certificate_refused", f"{TLS_URL} --brief --probe" + DIRECTLY, NONE),
    Scenario("probe_certificate_accepted", f"{TLS_URL} --brief --probe --ignore-cert-errors" + DIRECTLY, DIRECT),
    Scenario("probe_certificate_for_another_host", "https://127.1:{web_tls}/ok --brief --probe" + DIRECTLY, NONE),
    Scenario("probe_redirect", "http://localhost:{odd}/portal --brief --probe" + DIRECTLY, DIRECT, servers=("web",)),
    Scenario("probe_password", f"{URL} --brief --probe --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}",
             "http://127.0.0.1:{squid_basic}", Settings(manual="127.0.0.1:{squid_basic}")),
    Scenario("probe_wrong_password", f"{URL} --brief --probe --proxy-cred {PROXY_USER}:{WRONG_PASSWORD}", NONE,
             Settings(manual="127.0.0.1:{squid_basic}")),
    Scenario("probe_server_password",
             f"https://localhost:{{web_tls}}/basic/ok --brief --probe --ignore-cert-errors"
             f" --server-cred {SERVER_USER}:{SERVER_PASSWORD}" + DIRECTLY, DIRECT),
    Scenario("probe_socks", f"{URL} --brief --probe --prefer socks5://127.0.0.1:{{dead}}", NONE),
    Scenario("probe_script", f"{URL} --brief --probe", DIRECT, Settings(script_url="http://127.0.0.1:{web}/script.pac"),
             answering("DIRECT")),
    # The library tests DIRECT of a local script as a proxy without a name.
    Scenario("probe_script_in_a_file", f"{URL} --brief --probe", NONE, Settings(script_url="file://C:/e2e/script.pac"),
             answering("DIRECT")),
    Scenario("probe_script_missing", f"{URL} --brief --probe", DIRECT,
             Settings(script_url="http://127.0.0.1:{web}/nothing.pac")),
    Scenario("probe_json", f"{TLS_URL} --json --probe", NONE, Settings(manual="127.0.0.1:{dead};127.0.0.1:{squid}")),
    Scenario("probe_json_of_all", f"https://localhost:{{web_tls}}/basic/ok --json --probe --ignore-cert-errors"
             f" --server-cred {SERVER_USER}:{SERVER_PASSWORD}", "http://127.0.0.1:{squid}",
             Settings(manual="127.0.0.1:{squid}", script_url="file://C:/e2e/script.pac"),
             answering("PROXY 127.0.0.1:{squid}")),
    # What neither proxy finds, so that both are tried: they show different certificates.
    Scenario("probe_tls_inspection", "https://localhost:{web_tls}/missing --brief --probe", NONE,
             Settings(manual="127.0.0.1:{squid};127.0.0.1:{inspector}"), public_roots=("web",),
             installed_roots=("inspector",)),
    Scenario("probe_two_issuers", "https://localhost:{web_tls}/missing --brief --probe", NONE,
             Settings(manual="127.0.0.1:{squid};127.0.0.1:{inspector}"), installed_roots=("inspector", "web")),
    Scenario("probe_quiet", f"{URL} --quiet --probe", DIRECT),
    Scenario("probe_and_settings", f"{URL} --probe --show-settings", USAGE_ERROR),
    Scenario("probe_and_candidates", f"{URL} --probe --candidates-only", USAGE_ERROR),
    Scenario("report_as_text", f"{URL} --quiet --report C:/e2e/report.txt", "http://127.0.0.1:{tinyproxy}",
             Settings(manual="127.0.0.1:{dead};127.0.0.1:{tinyproxy}", bypass="*.corp"), files=("report.txt",)),
]
