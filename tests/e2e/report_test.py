#!/usr/bin/env python3
"""Reads the tool's reports in a real browser: what is seen in them, what is not, and that nothing gets in or out."""

from __future__ import annotations

import hashlib
import re
import shlex
import subprocess
import sys
from collections.abc import Callable
from dataclasses import dataclass, replace
from pathlib import Path

from harness.browser import Browser
from harness.odd_servers import HOSTILE_MARKUP
from harness.results import passes, report
from harness.runner import Bench, benches, command_line
from harness.scenario import DIRECT, NONE, Scenario, answering, complaints
from harness.servers import PROXY_PASSWORD, PROXY_USER
from harness.wine import Settings

LEVELS = ("error", "warn", "info", "debug")
REPORT = "--report C:/e2e/report.html"
URL = "http://localhost:{web}/ok"

TYPICAL = Scenario(
    "typical", f"{URL} {REPORT} --bypass *.corp.example;10.* --proxy-cred {PROXY_USER}:{PROXY_PASSWORD}",
    "http://127.0.0.1:{squid_basic}", Settings(script_url="file://C:/e2e/script.pac"),
    answering("PROXY 127.0.0.1:{dead}; PROXY 127.0.0.1:{silent}; PROXY 127.0.0.1:{bad_gateway}; "
              "PROXY 127.0.0.1:{squid_basic}; PROXY 127.0.0.1:{tinyproxy}"),
    environment={"KIV_E2E_RESPONSE_TIMEOUT": "600"}, files=("report.html",))

HOSTILE = Scenario(
    "hostile", f"'http://localhost:{{web}}/</title><script>alert(1)</script>' {REPORT} --prefer 127.0.0.1:{{markup}}"
    f" --user-agent {shlex.quote(HOSTILE_MARKUP)} --bypass '</style><img/src=x>'",
    NONE, Settings(manual="<b>x</b>:1", script_url="file:///<svg/onload=alert(1)>"), files=("report.html",))

BYPASSED = Scenario("bypassed", f"{URL} {REPORT}", DIRECT, Settings(manual="127.0.0.1:{dead}", bypass="*.corp;localhost"),
                    files=("report.html",))

MANY = Scenario("many", f"- --quiet {REPORT}", f"{URL}\t{DIRECT}\nhttp://127.0.0.2:{{dead}}/\t{NONE}", BYPASSED.settings,
                files=("report.html",), exit_code=2, stdin=f"{URL}\nhttp://127.0.0.2:{{dead}}/\n")

NO_TEST = Scenario("no_test", f"{URL} --show-settings {REPORT}", "*", Settings(manual="127.0.0.1:{dead};127.0.0.1:{dead2}"),
                   files=("report.html",))

HUNDREDS = Scenario("hundreds", f"{URL} --quiet {REPORT}", "http://127.0.0.1:{tinyproxy}",
                    Settings(manual=";".join(["127.0.0.1:{dead}"] * 60 + ["127.0.0.1:{tinyproxy}"])),
                    files=("report.html",))


REFUSED = Scenario("refused", f"https://localhost:{{web_tls}}/ok {REPORT} --prefer direct", NONE, files=("report.html",))


@dataclass
class Look:
    """A report in the browser, and where its pictures go."""

    browser: Browser
    bench: Bench
    pictures: Path

    def at(self, scenario: Scenario) -> str:
        """Runs the tool and opens its report, whose source it returns."""
        self.bench.prepare(scenario)
        result = self.bench.run(scenario)
        wrong = complaints(scenario, result, self.bench.catalogue.fill_in(scenario.outcome))
        assert not wrong, f"{scenario.name}: {wrong}\n{result.stderr}{result.stdout}"
        page = self.pictures / f"{scenario.name}.html"
        page.write_text(result.files["report.html"])
        self.browser.view("light", 1100)
        self.browser.open(page)
        return result.files["report.html"]

    def text_of(self, scenario: Scenario) -> str:
        """The report of the same run as plain text."""
        named = {"command": scenario.command.replace("report.html", "report.txt"), "files": ("report.txt",)}
        self.bench.prepare(scenario)
        return self.bench.run(replace(scenario, **named)).files["report.txt"]

    def picture(self, name: str, height: int | None = None) -> None:
        self.browser.screenshot(self.pictures / f"{name}.png", height)

    def filled_in(self, text: str) -> str:
        return self.bench.catalogue.fill_in(text)


def outcome_comes_first(look: Look) -> None:
    source = look.at(TYPICAL)
    browser = look.browser
    winner = look.filled_in(TYPICAL.outcome)
    assert browser.one("main > article > :first-child").get_attribute("class") == "outcome good"
    assert browser.texts(".outcome .answer") == [winner]
    assert browser.texts(".outcome .badge") == ["Route found"]
    assert look.filled_in(URL) in browser.one("h1").text
    assert "Candidate No. 3 works. 5 candidates, 4 tested." in browser.one(".reason").text
    assert browser.title.startswith("Route found: ")
    assert PROXY_PASSWORD not in source
    look.picture("typical_light_wide")
    # As much as makes a picture for a reader who has not seen one yet.
    browser.view("light", 1000)
    look.picture("report", browser.evaluate("document.querySelector('.taken').getBoundingClientRect().bottom + 16"))
    browser.view("light", 1100)


def candidates_tell_their_tests(look: Look) -> None:
    browser = look.browser
    assert browser.texts(".candidate .proxy") == [look.filled_in(text) for text in (
        "http://127.0.0.1:{dead}", "http://127.0.0.1:{silent}", "http://127.0.0.1:{bad_gateway}", TYPICAL.outcome,
        "http://127.0.0.1:{tinyproxy}")]
    assert browser.texts(".candidate .chip") == [
        "cannot connect", "timed out", "status is not 2xx", "works", "not tested"]
    assert [text.split("\n")[0] for text in browser.texts(".requests")] == [
        "failed: ERROR_WINHTTP_CANNOT_CONNECT (12029)", "failed: WSAETIMEDOUT (10060)", "502", "407"]
    assert browser.texts(".candidate:nth-child(4) .status") == ["407", "200"]


def bars_lie_on_one_time_line(look: Look) -> None:
    browser = look.browser
    bars = browser.evaluate("""[...document.querySelectorAll(".candidate .bar")].map(bar => [...bar.querySelectorAll("rect")].map(
        part => [part.x.baseVal.value, part.width.baseVal.value, part.getBoundingClientRect().height]))""")
    assert [len(bar) for bar in bars] == [1, 1, 1, 2, 0], bars
    parts = [part for bar in bars for part in bar]
    assert all(0 <= x and x + width <= 1000 and width > 0 and height > 5 for x, width, height in parts), parts
    assert [x for x, _, _ in parts] == sorted(x for x, _, _ in parts), parts
    silent = bars[1][0]
    assert silent[1] == max(width for _, width, _ in parts), "waiting for a time-out takes longest"


def picture_shows_the_route(look: Look) -> None:
    browser = look.browser
    assert [element.is_displayed() for element in browser.all(".route")] == [True, False]
    steps = browser.evaluate("""[...document.querySelectorAll(".route.wide .step")].map(
        step => [step.getAttribute("class"), step.querySelector(".title").textContent.trim()])""")
    assert [title for _, title in steps[:3]] == ["Settings", "PAC script", "Bypass list"]
    assert [kind for kind, _ in steps[3:]] == [
        f"step {state}" for state in ("bad", "bad", "bad", "good", "off")], steps
    assert len(browser.all(".route.wide .edge.good")) == 2 + 1


def next_steps_are_said_first(look: Look) -> None:
    steps = [step.text for step in look.browser.all(".outcome .steps li")]
    assert [step.split(".")[0] for step in steps] == [
        "Nothing listens at this address and port, or a firewall refuses", "The proxy works; it or the server sent this status"]


def sections_come_in_order(look: Look) -> None:
    assert look.browser.texts("article > section > h2") == [
        "What to try next", "Who, where and when", "Route", "Warnings about settings", "What applies to this account",
        "Places with settings", "Other places", "The user's proxy settings", "Bypass list", "Discovery",
        "Candidates in test order", "Phases", "Authentication", "Certificates", "Redirects", "Log"]
    assert look.browser.texts("main > section > h2") == ["Versions", "What was removed"]
    assert all(section.text.count("\n") > 0 for section in look.browser.all("section")), "each says something"


def probe_shows_each_tested_route(look: Look) -> None:
    browser = look.browser
    tested = [look.filled_in(f"No. {number} {proxy}") for number, proxy in enumerate((
        "http://127.0.0.1:{dead}", "http://127.0.0.1:{silent}", "http://127.0.0.1:{bad_gateway}", TYPICAL.outcome))]
    assert [re.sub(" +", " ", title) for title in browser.texts(".phases h3")] == tested
    bars = browser.evaluate("""[...document.querySelectorAll(".phases .bar")].map(bar => [...bar.querySelectorAll("rect")].map(
        part => [part.x.baseVal.value, part.width.baseVal.value, getComputedStyle(part).fill]))""")
    assert len(bars) == len(tested), bars
    for bar in bars:
        assert all(0 <= x and x + width <= 1000 and width > 0 for x, width, _ in bar), bar
    last = browser.texts(".phases dd")[-3:]
    assert re.fullmatch(r"(?:name|connection) .* first byte \d+ ms", last[0]) and last[1] == "200", last
    colours = {colour for bar in bars for _, _, colour in bar}
    assert len(colours) >= 4 and "rgb(0, 0, 0)" not in colours, colours
    assert browser.texts(".authentication dd") == ["offers Basic", "Basic with the credentials given: accepted"]


def script_is_described(look: Look) -> None:
    facts = dict(zip(look.browser.texts(".discovery dt"), look.browser.texts(".discovery dd"), strict=True))
    script = look.bench.user.file("script.pac").read_bytes()
    assert facts["Size"] == f"{len(script)} bytes"
    assert facts["SHA-256"] == hashlib.sha256(script).hexdigest()
    assert "without credentials" in look.browser.one(".discovery .note").text


def text_says_the_same(look: Look) -> None:
    text = look.text_of(TYPICAL)
    # Of the route there is a picture.
    for section in look.browser.texts("section:not(.taken) > h2"):
        assert f"\n{section}\n" in text, section
    for fact in look.browser.texts(".certificates dd, .authentication dd, .bypass dd, .removed dd, .versions dd"):
        assert fact in text, fact
    assert PROXY_PASSWORD not in text


def paper_shows_all(look: Look) -> None:
    pages = look.browser.printed(look.pictures / "typical.pdf")
    assert 2 <= pages <= 10, pages


def certificates_are_described(look: Look) -> None:
    look.at(REFUSED)
    browser = look.browser
    facts = dict(zip(browser.texts(".certificates dt"), browser.texts(".certificates dd"), strict=True))
    certificate = subprocess.run(
        ["openssl", "x509", "-in", str(look.bench.catalogue.lighttpd.folder / "certificate.pem"), "-outform", "DER"],
        check=True, capture_output=True).stdout
    assert facts["SHA-256"] == hashlib.sha256(certificate).hexdigest()
    assert facts["Subject"] == facts["Issuer"] == "CN=localhost"
    assert facts["Problems"] == "the authority is not trusted"
    assert facts["Root"] == "CN=localhost, not trusted on this machine"
    look.picture("refused_light_wide")


def filters_hide_levels(look: Look) -> None:
    browser = look.browser

    def shown() -> dict[str, int]:
        return {level: sum(record.is_displayed() for record in browser.all(f".record.{level}")) for level in LEVELS}

    before = shown()
    assert before["warn"] and before["info"] and before["debug"], before
    browser.one("label.debug").click()
    assert shown() == {**before, "debug": 0}
    browser.one("label.info").click()
    assert shown() == {**before, "debug": 0, "info": 0}
    browser.one("label.info").click()
    browser.one("label.debug").click()
    assert shown() == before


def settings_are_told(look: Look) -> None:
    facts = dict(zip(look.browser.texts(".settings dt"), look.browser.texts(".settings dd"), strict=True))
    assert facts["PAC script"] == "file://C:/e2e/script.pac"
    assert facts["Automatic detection (WPAD)"] == "off"
    assert facts["Bypass list used"] == "*.corp.example;10.* (from --bypass)"


def dark_is_dark(look: Look) -> None:
    browser = look.browser

    def lightness(selector: str, what: str) -> int:
        colour = browser.evaluate(f"getComputedStyle(document.querySelector('{selector}')).{what}")
        return sum(int(part) for part in re.findall(r"\d+", colour)[:3])

    for scheme, page_is_lighter in (("light", True), ("dark", False)):
        browser.view(scheme, 1100)
        for selector in ("body", ".chip", ".proxy", ".record .message"):
            behind = lightness("section" if selector != ".chip" else ".chip", "backgroundColor")
            text = lightness(selector, "color")
            assert (behind > text) == page_is_lighter and abs(behind - text) > 180, (scheme, selector, behind, text)
    look.picture("typical_dark_wide")


def narrow_pages_do_not_scroll_sideways(look: Look) -> None:
    browser = look.browser
    for scheme in ("light", "dark"):
        browser.view(scheme, 390)
        assert browser.evaluate("document.documentElement.scrollWidth") <= 390
        assert [element.is_displayed() for element in browser.all(".route")] == [False, True]
        look.picture(f"typical_{scheme}_narrow")


def nothing_is_fetched(look: Look) -> None:
    page = (look.pictures / "typical.html").as_uri()
    look.browser.open(look.pictures / "typical.html")
    assert [address for address in look.browser.requested() if address != page] == []
    assert look.browser.complaints() == []


def hostile_text_stays_text(look: Look) -> None:
    look.at(HOSTILE)
    browser = look.browser
    assert browser.title.startswith("No route found: http://localhost:")
    assert browser.all("script, img, iframe, object, embed, link, form") == []
    assert len(browser.all("style")) == len(browser.all("head > style")) == 1
    assert len(browser.all("svg")) == len(browser.all(".route")) + len(browser.all(".bar"))
    records = "\n".join(browser.texts(".record .message"))
    assert records.count(HOSTILE_MARKUP) >= 2, "in the user agent and in the header"
    assert "&lt;b&gt; &amp; ]]>" in records
    assert "</title><script>alert(1)</script>" in browser.one("h1").text
    assert {"</style><img/src=x> (from --bypass)", "<b>x</b>:1", "file:///<svg/onload=alert(1)>"} <= set(
        browser.texts("dd"))
    assert browser.requested() == [(look.pictures / "hostile.html").as_uri()]
    assert browser.complaints() == []
    look.picture("hostile_light_wide")


def bypassed_needs_no_candidates(look: Look) -> None:
    look.at(BYPASSED)
    browser = look.browser
    assert browser.texts(".outcome .answer") == [DIRECT]
    assert "matches the URL" in browser.one(".reason").text
    assert browser.all(".candidate") == []
    assert len(browser.all(".route.wide .step.good")) == 2
    look.picture("bypassed_light_wide")


def several_urls_have_an_overview(look: Look) -> None:
    look.at(MANY)
    browser = look.browser
    assert browser.texts(".overview .answer") == [DIRECT, NONE]
    assert browser.texts(".badge") == ["Route found", "No route found"]
    assert len({element.get_attribute("id") for element in browser.all("input")}) == 2 * len(LEVELS)
    browser.all("label.debug")[1].click()
    visible = [element.is_displayed() for element in browser.all("article:nth-of-type(1) .record.debug")]
    assert visible and all(visible), "each log has filters of its own"
    look.picture("many_light_wide")


def untested_is_told_as_such(look: Look) -> None:
    look.at(NO_TEST)
    assert look.browser.texts(".badge") == ["Not tested"]
    assert look.browser.texts(".chip") == ["not tested"] * 2
    look.picture("no_test_light_wide")


def hundreds_of_candidates_stay_readable(look: Look) -> None:
    look.at(HUNDREDS)
    browser = look.browser
    assert len(browser.all(".candidate")) == 61
    titles = browser.evaluate("""[...document.querySelectorAll(".route.wide .step .title")].map(
        title => title.textContent)""")
    assert len(titles) == 3 + 7 + 1 + 1 and titles[-1] == "and 53 more", titles
    assert len(browser.all(".route.wide .edge.good")) == 2 + 1
    look.picture("hundreds_light_wide", 1400)


CHECKS: list[Callable[[Look], None]] = [
    outcome_comes_first, candidates_tell_their_tests, bars_lie_on_one_time_line, picture_shows_the_route,
    next_steps_are_said_first, sections_come_in_order, probe_shows_each_tested_route, script_is_described,
    filters_hide_levels, settings_are_told, dark_is_dark, narrow_pages_do_not_scroll_sideways, nothing_is_fetched,
    text_says_the_same, paper_shows_all, certificates_are_described, hostile_text_stays_text, bypassed_needs_no_candidates, several_urls_have_an_overview, untested_is_told_as_such,
    hundreds_of_candidates_stay_readable]


def main() -> int:
    options = command_line(__doc__).parse_args()
    pictures = options.work.resolve() / "report"
    pictures.mkdir(parents=True, exist_ok=True)
    with (benches(1, options.bin, options.bridge, options.work) as (bench,), Browser(pictures) as browser):
        good = [passes(check, Look(browser, bench, pictures)) for check in CHECKS]
    print(f"the reports and pictures of them are in {pictures}")
    return report(sum(good), len(good) - sum(good))


if __name__ == "__main__":
    sys.exit(main())
