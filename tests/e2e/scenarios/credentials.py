"""Where the tool finds credentials: beside the command line, in the environment, in a file."""

from harness.scenario import USAGE_ERROR, WRONG_PASSWORD, Scenario
from harness.servers import PROXY_PASSWORD, PROXY_USER, SERVER_PASSWORD, SERVER_USER
from harness.wine import Settings

URL = "http://localhost:{web}/ok --quiet"
ASKS = Settings(manual="127.0.0.1:{squid_basic}")
PROXY = "http://127.0.0.1:{squid_basic}"
VARIABLE = {"PROXY_CRED": f"{PROXY_USER}:{PROXY_PASSWORD}"}
FILE = "file:C:/e2e/script.pac"

SCENARIOS = [
    Scenario("cred_from_environment", f"{URL} --proxy-cred-from env:PROXY_CRED", PROXY, ASKS, environment=VARIABLE),
    Scenario("cred_from_file", f"{URL} --proxy-cred-from {FILE}", PROXY, ASKS,
             f"{PROXY_USER}:{PROXY_PASSWORD}\nThe first line counts.\n"),
    Scenario("server_cred_from_environment",
             "https://localhost:{web_tls}/basic/ok --quiet --ignore-cert-errors --prefer direct"
             " --server-cred-from env:SERVER_CRED", "DIRECT", environment={"SERVER_CRED": f"{SERVER_USER}:{SERVER_PASSWORD}"}),

    Scenario("cred_from_no_variable", f"{URL} --proxy-cred-from env:PROXY_CRED", USAGE_ERROR),
    Scenario("cred_from_no_file", f"{URL} --proxy-cred-from file:C:/e2e/none", USAGE_ERROR),
    Scenario("cred_from_no_store", f"{URL} --proxy-cred-from credman:kiv-none", USAGE_ERROR),
    Scenario("cred_from_file_without_colon", f"{URL} --proxy-cred-from {FILE}", USAGE_ERROR, script=WRONG_PASSWORD),
    Scenario("cred_from_unknown_place", f"{URL} --server-cred-from {PROXY_USER}:{WRONG_PASSWORD}", USAGE_ERROR),
    Scenario("cred_twice", f"{URL} --proxy-cred a:b --proxy-cred-from env:PROXY_CRED", USAGE_ERROR),
    Scenario("cred_to_type_without_console", f"{URL} --proxy-cred {PROXY_USER}", USAGE_ERROR),
]
