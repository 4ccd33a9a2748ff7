"""The proxy for other programs: lines to paste, and programs that run with it."""

from harness.scenario import USAGE_ERROR, WHATEVER, Scenario
from harness.servers import PROXY_PASSWORD, PROXY_USER
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
RIGHT = f" --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}"
PLAIN = Settings(manual="127.0.0.1:{tinyproxy}")
BASIC = Settings(manual="127.0.0.1:{tinyproxy_basic}")
NTLM = Settings(manual="127.0.0.1:{squid_ntlm}")
DEAD = Settings(manual="127.0.0.1:{dead}")
# The variables that the program has, of those that are its business.
SHOW = 'cmd /c "set http&set no_&set all_&exit 0"'
SAYS = "%http_proxy%==http://"
INHERITED = {"HTTP_PROXY": "http://old:1", "https_proxy": "http://old:2", "ALL_PROXY": "http://old:3",
             "No_Proxy": "old"}


def env(name: str, options: str, settings: Settings = PLAIN, exit_code: int = 0, url: str = URL, **others) -> Scenario:
    return Scenario(f"env_{name}", f"env {url} {options}", WHATEVER, settings, exit_code=exit_code, **others)


def run(name: str, options: str, program: str, settings: Settings = PLAIN, exit_code: int = 0, url: str = URL,
        **others) -> Scenario:
    return Scenario(f"exec_{name}", f"exec {url} {options} -- {program}", WHATEVER, settings, exit_code=exit_code,
                    **others)


SCENARIOS = [
    *(env(reader, f"--for {reader}") for reader in ("cmd", "batch", "powershell", "bash", "git", "npm", "pip", "curl")),
    *(env(f"{reader}_direct", f"--for {reader}", Settings())
      for reader in ("cmd", "powershell", "bash", "git", "npm", "pip", "curl")),
    env("exceptions", "--for cmd --bypass '*.corp.test;intranet;10.*;http://a;b:8080;x*y;<local>.x'", PLAIN),
    env("exceptions_for_npm", "--for npm --bypass '*.corp.test;intranet;10.*'", PLAIN),
    env("none", "--for cmd", DEAD, 2),
    env("https", "--for cmd --ignore-cert-errors", url="https://localhost:{web_tls}/ok"),
    env("all", "--for bash --all --bypass https://*"),
    env("all_other_fails", "--for cmd --all"),
    env("log", "--for cmd --log"),
    env("json", "--for cmd --json --bypass '*.corp.test;<corp>;10.*'"),
    env("json_none", "--for cmd --json", DEAD, 2),
    env("basic", "--for cmd" + RIGHT, BASIC),
    env("basic_for_curl", "--for curl" + RIGHT, BASIC),
    env("ntlm_for_git", "--for git" + RIGHT, NTLM),
    env("ntlm_for_curl", "--for curl" + RIGHT, NTLM),
    env("json_basic", "--for git --json" + RIGHT, BASIC),
    env("socks_for_npm", "--for npm --prefer socks5://127.0.0.1:{tinyproxy}", exit_code=2),
    env("socks_for_cmd", "--for cmd --prefer socks5://127.0.0.1:{tinyproxy}"),
    env("curl_url_with_percent", "--for curl", url=URL + "%20", exit_code=2, settings=Settings()),
    Scenario("env_without_for", f"env {URL}", USAGE_ERROR),
    Scenario("env_for_another_shell", f"env {URL} --for fish", USAGE_ERROR),
    Scenario("env_redact", f"env {URL} --for cmd --redact", USAGE_ERROR),
    env("files", "--for cmd --trace C:/e2e/log.jsonl --report C:/e2e/report.html --max-time 30",
        files=("log.jsonl", "report.html")),
    Scenario("env_help", "env --help", WHATEVER),

    run("proxy", "", SHOW, environment=INHERITED),
    run("direct", "", SHOW, Settings(), environment=INHERITED),
    run("all", "--all --bypass https://*", SHOW, environment=INHERITED),
    run("exit_code", "", 'cmd /c "exit 9"', exit_code=9),
    run("none", "", SHOW, DEAD, 125),
    run("not_found", "", "no-such-program", exit_code=127),
    run("cannot_run", "", "C:/e2e/script.pac", exit_code=126, script="no program\n"),
    run("basic_without_password", RIGHT, f'cmd /c "if {SAYS}127.0.0.1:{{tinyproxy_basic}} exit 7"', BASIC, 7),
    run("basic_with_password", RIGHT + " --with-password",
        f'cmd /c "if {SAYS}{PROXY_USER}:{PROXY_PASSWORD}@127.0.0.1:{{tinyproxy_basic}} exit 7"', BASIC, 7),
    run("with_password_without_one", "--with-password", "cmd /c exit 3", exit_code=3),
    Scenario("exec_without_program", f"exec {URL}", WHATEVER, exit_code=125),
    Scenario("exec_wrong_url", "exec ftp://x -- cmd", WHATEVER, exit_code=125),
    Scenario("exec_redact", f"exec {URL} --redact -- cmd", WHATEVER, exit_code=125),
    Scenario("exec_json", f"exec {URL} --json -- cmd", USAGE_ERROR, exit_code=125),
    run("files", "--trace C:/e2e/log.jsonl --report C:/e2e/report.html", 'cmd /c "exit 3"', exit_code=3,
        files=("log.jsonl", "report.html")),
    Scenario("exec_help", "exec --help", WHATEVER),
]
