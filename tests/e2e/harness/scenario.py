"""A scenario: what the user has set, what the tool is asked, and what must come of it."""

from __future__ import annotations

import json
import re
import shlex
from collections.abc import Mapping
from dataclasses import dataclass, field
from pathlib import Path

import jsonschema

from harness.servers import PROXY_PASSWORD, SERVER_PASSWORD, Server
from harness.wine import RegistryValue, Settings, ToolResult

DIRECT, NONE, USAGE_ERROR, WHATEVER = "DIRECT", "NONE", "", "*"

SCHEMA = json.loads((Path(__file__).resolve().parents[3] / "docs" / "kiv-resolve.schema.json").read_text())
"""What every JSON document of the tool is valid against."""


def schema_of(name: str) -> dict[str, object]:
    """The schema of something else than the document of `kiv-resolve URL --json`."""
    return {"$ref": f"#/definitions/{name}", "definitions": SCHEMA["definitions"]}


TRACE_SCHEMA = schema_of("traceRecord")
"""What every line of a trace is valid against."""

DOCUMENT_SCHEMAS = {command: schema_of(f"{command}Document") for command in ("pac", "sources", "compare")}
"""What the JSON document of a command is valid against that has one of its own."""

INSECURE_ALLOWED = {"PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME": "1"}
"""The environment in which the library sends a server's Basic password over plain HTTP."""

WRONG_PASSWORD = "guesswork"


def answering(result: str) -> str:
    """A proxy script that gives the same answer for every URL."""
    return f'function FindProxyForURL(url, host) {{ return "{result}"; }}\n'


@dataclass(frozen=True)
class Scenario:
    """One run of the tool. `{name}` stands for the port of the catalogue's server of that name, in every text."""

    name: str
    """Also the name of the file in `expected/` that holds the whole transcript."""
    command: str
    """The tool's arguments, written as for a shell."""
    outcome: str
    """What stands on standard output: DIRECT, NONE or a proxy's text; USAGE_ERROR if nothing is resolved; WHATEVER to
    leave it to the transcript. Of a JSON document, the texts of its outcomes."""
    settings: Settings | None = Settings()
    """The user's proxy settings; None for a user who has none."""
    script: str = ""
    """The script that is served as http://…:{web}/script.pac and lies in C:/e2e/script.pac."""
    old_script: str = ""
    """Another script, in C:/e2e/old.pac."""
    servers: tuple[str, ...] = ()
    """Servers that take part without being named in a text."""
    environment: Mapping[str, str] = field(default_factory=dict)
    exit_code: int | None = None
    """Follows from the outcome if not given."""
    timeout: float = 60.0
    stdin: str = ""
    """What the tool is given on standard input."""
    files: tuple[str, ...] = ()
    """Files below C:/e2e that the tool must write."""
    recorded: tuple[str, ...] = ()
    """Files of recorded/ that lie in C:/e2e."""
    registry: tuple[RegistryValue, ...] = ()
    """Values of the registry beside the user's settings, for this scenario alone."""
    installed_roots: tuple[str, ...] = ()
    """Servers whose certificates somebody has installed as trusted roots."""
    public_roots: tuple[str, ...] = ()
    """Servers whose certificates are as if Windows distributed them."""
    like: Scenario | None = None
    """Another scenario whose transcript, but for the script, is this one's; see harness/differences.py."""

    @property
    def is_document(self) -> bool:
        """Whether standard output is a JSON document."""
        return "--json" in self.arguments

    @property
    def expected_exit_code(self) -> int:
        if self.exit_code is not None:
            return self.exit_code
        return {NONE: 2, USAGE_ERROR: 64}.get(self.outcome, 0)

    @property
    def arguments(self) -> list[str]:
        return shlex.split(self.command)

    @property
    def texts(self) -> tuple[str, ...]:
        """All texts in which ports are named."""
        settings = self.settings or Settings()
        return (self.command, self.outcome, self.script, self.old_script, self.stdin, settings.manual, settings.bypass,
                settings.script_url, *(str(value.data) for value in self.registry), *self.environment.values())


def with_names(text: str, ports: Mapping[str, int]) -> str:
    """Puts names in place of ports, and a star in place of what differs from run to run."""
    names = {str(port): f"{{{name}}}" for name, port in ports.items()}
    text = re.sub(r":(\d+)\b", lambda match: ":" + names.get(match[1], match[1]), text)
    text = re.sub(r"(?m)^(\s*(?:Date|Last-Modified|Expires|ETag)): .*$", r"\1: *", text)
    text = re.sub(r'\b(nonce|opaque)="[^"]*"', r'\1="*"', text)
    # Error pages of Debian's servers, whose size changes with their version, and the versions themselves.
    text = re.sub(r"(?m)^(\s*Content-Length): \d{3,}$", r"\1: *", text)
    text = re.sub(r"\b(tinyproxy|squid|lighttpd)/[\d.]+", r"\1", text)
    # How long something took, when it was, and the columns of a table, which are as wide as ports and times are.
    text = re.sub(r"\b\d+ ms\b", "* ms", text)
    text = re.sub(r'("milliseconds": ?)\d+', r"\1*", text)
    text = re.sub(r'("secondsAhead": )-?\d+', r"\1*", text)
    text = re.sub(r"\b\d{4}-\d\d-\d\dT[\d:.]+Z", "*", text)
    # Digests, the addresses of names, which not every machine has of both families, and the sizes of error pages.
    text = re.sub(r"\b[0-9a-f]{64}\b", "*", text)
    text = re.sub(r"(?m)^( *Addresses +localhost): .*$", r"\1: *", text)
    text = re.sub(r"\b\d{3,} bytes\b", "* bytes", text)
    text = re.sub(r'("bytes": ?)\d+', r"\1*", text)
    # Where a report was made.
    text = re.sub(r"(?m)^( *(?:User|Session|Computer|Windows|winhttp\.dll)) {2,}.*$", r"\1  *", text)
    text = re.sub(r"(?m)^(?:No\.  candidate| *\d+  ).*$", lambda match: re.sub(r" {2,}", "  ", match[0]), text)
    # Who runs the tool, and on what: not the same on two machines.
    text = re.sub(r"(?m)^(  (?:account|elevated|session|computer|Windows)  +).*$", r"\1*", text)
    text = re.sub(r'("(?:computer|account|sid|elevated|session|windows)": ).*?(,?)$', r"\1*\2", text, flags=re.M)
    # What would be hard to read: long runs of one character, and characters that cannot be seen.
    text = re.sub(r"(.)\1{79,}", lambda match: f"{match[1]}({len(match[0])} times)", text)
    return re.sub(r"[\x00-\x08\x0b-\x1f\x7f]", lambda match: f"\\x{ord(match[0]):02x}", text)


def _section(title: str, text: str) -> str:
    lines = [f"  {line}".rstrip() for line in text.rstrip("\n").split("\n")] if text else ["  (nothing)"]
    return "\n".join([title, *lines]) + "\n"


def script_section(scenario: Scenario) -> list[str]:
    """The script, unless there is none or it is too long to read."""
    return [_section("script", scenario.script)] if 0 < len(scenario.script) < 1000 else []


def described(settings: Settings | None) -> str:
    """A user's settings, a line for each that is on."""
    if settings is None:
        return "(no settings)"
    said = [("automatic detection", settings.detect), (f"script {settings.script_url}", settings.script_url),
            (f"manual {settings.manual}", settings.manual), (f"bypass {settings.bypass}", settings.bypass)]
    return "\n".join(text for text, present in said if present) or "(all off)"


def transcript(scenario: Scenario, result: ToolResult, servers: Mapping[str, Server], ports: Mapping[str, int]) -> str:
    """Everything that a scenario compares, as text for people."""
    environment = "".join(f"{name}={value} " for name, value in scenario.environment.items())
    sections = [
        _section("settings", described(scenario.settings)),
        *([_section("registry", "\n".join(value.described for value in scenario.registry))] if scenario.registry else []),
        *script_section(scenario),
        *([_section("old script", scenario.old_script)] if scenario.old_script else []),
        _section("command", f"{environment}kiv-resolve {scenario.command}"),
        *([_section("standard input", scenario.stdin)] if scenario.stdin else []),
        _section("log", with_names(result.stderr, ports)),
        _section("outcome", with_names(result.stdout, ports)),
        _section("exit code", str(result.exit_code)),
        *(_section(f"file {name}", with_names(file_text(name, text), ports)) for name, text in result.files.items()),
        *(_section(f"requests that {name} saw", with_names("\n".join(server.accesses()), ports))
          for name, server in servers.items() if not name.startswith("dead")),
    ]
    return "\n".join(sections)


def trace_text(trace: str) -> str:
    """A trace's records as text for people, whose form is that of the log."""
    records = [json.loads(line) for line in trace.splitlines()]
    for record in records:
        jsonschema.validate(record, TRACE_SCHEMA)
    return "\n".join("{time} {level} {url}\n{message}".format(**record).replace("\n", "\n    ") for record in records)


def file_text(name: str, text: str) -> str:
    """What of a written file is compared: a page is for eyes, and has tests of its own."""
    readers = {".jsonl": trace_text, ".html": lambda page: page.partition("\n")[0],
               ".txt": lambda text: text}
    return readers[Path(name).suffix](text)


def outcome_lines(document: str, command: str) -> str:
    """The outcomes that a valid JSON document tells, a line each."""
    read = json.loads(document)
    if command in DOCUMENT_SCHEMAS:
        jsonschema.validate(read, DOCUMENT_SCHEMAS[command])
        return ""
    jsonschema.validate(read, SCHEMA)
    return "".join(f"{result['outcome']['text'] or ''}\n" for result in read["results"])


def wrong_output(scenario: Scenario, result: ToolResult, outcome: str) -> list[str]:
    """What is wrong with standard output."""
    if outcome == WHATEVER and not scenario.is_document:
        return []
    expected = f"{outcome}\n" if outcome else ""
    try:
        document = scenario.is_document and outcome
        said = outcome_lines(result.stdout, scenario.arguments[0]) if document else result.stdout
    except (json.JSONDecodeError, jsonschema.ValidationError) as error:
        return [f"standard output is no valid document: {error}"]
    return [] if outcome == WHATEVER or said == expected else [f"standard output {said!r}, expected {expected!r}"]


def complaints(scenario: Scenario, result: ToolResult, outcome: str) -> list[str]:
    """What is wrong with a result whatever its recorded transcript says. `outcome` has its ports filled in."""
    wrong = []
    if result.exit_code != scenario.expected_exit_code:
        wrong.append(f"exit code {result.exit_code}, expected {scenario.expected_exit_code}")
    wrong += wrong_output(scenario, result, outcome)
    wrong += [f"the file {name} was not written" for name in scenario.files if not result.files.get(name)]
    if "--redact" in scenario.arguments and any("planted" in text.lower() for text in result.texts):
        wrong.append("the output shows a planted name")
    wrong += [f"the output shows the password {password!r}" for password in
              (PROXY_PASSWORD, SERVER_PASSWORD, WRONG_PASSWORD) if any(password in text for text in result.texts)]
    return wrong
