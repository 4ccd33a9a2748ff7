// A report on resolutions: one self-contained HTML page, without scripts.
#include "resolve/html_report.h"

#include <algorithm>
#include <array>

#include "common/console.h"
#include "common/markup.h"
#include "resolve/advice.h"
#include "resolve/report_page.h"
#include "resolve/report_sheets.h"
#include "resolve/route_picture.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

// Classes of the style, in the order of the kinds of outcomes.
constexpr std::array<const wchar_t*, 6> kOutcomeClasses = {L"good", L"good", L"bad", L"off", L"bad", L"bad"};

constexpr std::array<const wchar_t*, 4> kLevelTexts = {L"Errors", L"Warnings", L"Info", L"Debug"};

const wchar_t* classOf(const Outcome& outcome) { return kOutcomeClasses[static_cast<std::size_t>(outcome.kind)]; }

// Text with code between backticks.
Markup withCode(std::wstring_view text) {
  Markup content;
  for (bool isCode = false; !text.empty(); isCode = !isCode) {
    const std::size_t end = std::min(text.find(L'`'), text.size());
    const Markup part(text.substr(0, end));
    content += isCode ? element("code", part) : part;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return content;
}

Markup nextSteps(const Resolution& resolution) {
  Markup steps;
  for (const Advice* advice : adviceFor(resolution)) {
    steps += element("li", element("strong", withCode(advice->meaning)) + L" " + withCode(advice->advice));
  }
  if (steps.html().empty()) return {};
  return element("h2", L"What to try next") + element("ul", {{"class", L"steps"}}, steps);
}

Markup outcomeSection(const Resolution& resolution) {
  const std::wstring& text = resolution.outcome.text;
  const Markup answer = text.empty() ? Markup() : classed("p", L"answer", text);
  return classed(
      "section", std::wstring(L"outcome ") + classOf(resolution.outcome),
      classed("p", L"badge", outcomeText(resolution.outcome.kind)) + answer +
          classed("h1", L"target", L"to " + resolution.url) + classed("p", L"reason", reasonText(resolution)) +
          classed("p", L"when", timeText(resolution.began) + L", took " + durationText(resolution.duration)) +
          nextSteps(resolution));
}

// The time of all tests: the scale of the bars.
struct Span {
  milliseconds begin{};
  milliseconds length{1};
};

Span spanOf(const std::vector<Candidate>& candidates) {
  milliseconds begin = milliseconds::max();
  milliseconds end{};
  for (const Candidate& candidate : candidates) {
    for (const Request& request : candidate.requests) {
      begin = std::min(begin, request.began);
      end = std::max(end, request.began + request.duration);
    }
  }
  return end <= begin ? Span{} : Span{begin, end - begin};
}

const wchar_t* kindOf(const Request& request) {
  if (request.status == 401 || request.status == 407) return L"challenge";
  return request.status >= 200 && request.status <= 299 ? L"success" : L"failure";
}

std::wstring requestText(const Request& request) {
  return responseWithErrorText(request) + L", " + durationText(request.duration);
}

Markup barOf(const Candidate& candidate, const Span& span) {
  constexpr long long kWidth = 1000;
  constexpr long long kLeast = 8;  // so that a request without duration can be seen
  Markup parts;
  for (const Request& request : candidate.requests) {
    const long long width = std::max<long long>(kLeast, kWidth * request.duration / span.length);
    const long long x = std::min<long long>(kWidth * (request.began - span.begin) / span.length, kWidth - width);
    parts += element(
        "rect",
        {{"class", kindOf(request)}, {"x", std::to_wstring(x)}, {"width", std::to_wstring(width)}, {"height", L"10"}},
        element("title", requestText(request)));
  }
  return element("svg", {{"class", L"bar"}, {"viewBox", L"0 0 1000 10"}, {"preserveAspectRatio", L"none"}}, parts);
}

Markup requestMarkup(const Request& request) {
  Markup line = classed("span", std::wstring(L"status ") + kindOf(request), responseWithErrorText(request)) +
                classed("span", L"time", durationText(request.duration));
  if (request.status < 0 && !request.failure.empty()) line += classed("span", L"failure", request.failure);
  return element("li", line);
}

Markup requestsOf(const Candidate& candidate) {
  Markup lines;
  for (const Request& request : candidate.requests) lines += requestMarkup(request);
  return candidate.requests.empty() ? Markup() : classed("ol", L"requests", lines);
}

Markup candidateRow(std::size_t number, const Candidate& candidate, const Span& span) {
  const Verdict verdict = candidate.verdict();
  const std::wstring state = toWide(idOf(verdict));
  const Markup name =
      classed("p", L"name",
              classed("span", L"number", std::to_wstring(number)) + classed("code", L"proxy", candidate.text) +
                  classed("span", L"origin", std::wstring(originText(candidate.origin))));
  const Markup total =
      candidate.requests.empty() ? Markup() : classed("span", L"total", durationText(candidate.duration()));
  return classed("li", L"candidate " + state,
                 name + classed("p", L"verdict", classed("span", L"chip", verdictText(candidate)) + total) +
                     barOf(candidate, span) + requestsOf(candidate));
}

Markup candidatesSection(const Resolution& resolution) {
  if (resolution.candidates.empty()) return {};
  const Span span = spanOf(resolution.candidates);
  Markup rows;
  for (std::size_t i = 0; i < resolution.candidates.size(); ++i) {
    rows += candidateRow(i, resolution.candidates[i], span);
  }
  const Markup scale =
      testedCount(resolution) == 0
          ? Markup()
          : classed("p", L"scale",
                    element("span", L"first test") + element("span", durationText(span.length) + L" later"));
  return section(L"candidates", L"Candidates in test order", scale + classed("ol", L"rows", rows));
}

Markup settingsSection(const Resolution& resolution) {
  const UserSettings& user = resolution.settings;
  const std::wstring source = resolution.bypass.given ? L" (from --bypass)" : L"";
  return section(
      L"settings", user.found ? L"The user's proxy settings" : L"The user's proxy settings (none are stored)",
      element("dl", factMarkup(L"Automatic detection (WPAD)", user.automaticDetection ? L"on" : L"off") +
                        factMarkup(L"PAC script", user.scriptUrl) + factMarkup(L"Manual proxy list", user.manualList) +
                        factMarkup(L"Bypass list", user.bypassList) +
                        factMarkup(L"Bypass list used", resolution.bypass.list + source) +
                        factMarkup(L"Discovery", (resolution.discoveryFailed ? L"failed after " : L"took ") +
                                                     durationText(resolution.discoveryDuration))));
}

Markup filterOf(const std::wstring& group, LogLevel level) {
  const std::wstring name = toWide(idOf(level));
  const std::wstring id = group + name;
  return emptyElement("input", {{"type", L"checkbox"}, {"id", id}, {"class", L"filter " + name}, {"checked", L""}}) +
         element("label", {{"for", id}, {"class", name}}, kLevelTexts[static_cast<std::size_t>(level)]);
}

Markup recordOf(const Record& record) {
  const std::wstring time = timeText(record.time);
  constexpr std::size_t kClockAt = 11;
  return classed("li", L"record " + toWide(idOf(record.level)),
                 element("time", {{"datetime", time}}, time.substr(kClockAt)) +
                     classed("span", L"level", toWide(idOf(record.level))) +
                     classed("span", L"message", record.message));
}

// The check boxes are siblings of the list, so that the style alone can hide records.
Markup logSection(const Resolution& resolution, const std::wstring& group) {
  Markup content;
  for (const LogLevel level : {LogLevel::Error, LogLevel::Warn, LogLevel::Info, LogLevel::Debug})
    content += filterOf(group, level);
  Markup records;
  for (const Record& record : resolution.log) records += recordOf(record);
  return section(L"log", L"Log", content + classed("ol", L"records", records));
}

std::wstring idOfArticle(std::size_t number) { return L"url-" + std::to_wstring(number); }

// `sources` is empty if they are told elsewhere.
Markup article(std::size_t number, const Resolution& resolution, const ThisRun& run,
               const std::vector<Sheet>& sources) {
  const std::wstring id = idOfArticle(number);
  return element("article", {{"id", id}},
                 outcomeSection(resolution) + sheetSection(whoSheet(resolution, run)) +
                     section(L"taken", L"Route", routePicture(resolution)) + sheetSections(sources) +
                     settingsSection(resolution) + sheetSection(bypassSheet(resolution)) +
                     sheetSection(discoverySheet(resolution)) + candidatesSection(resolution) +
                     sheetSections(probeSheets(resolution)) + logSection(resolution, id + L"-"));
}

Markup overview(const std::vector<Resolution>& resolutions) {
  if (resolutions.size() < 2) return {};
  Markup lines;
  for (std::size_t i = 0; i < resolutions.size(); ++i) {
    const Resolution& resolution = resolutions[i];
    lines += classed("li", classOf(resolution.outcome),
                     element("a", {{"href", L"#" + idOfArticle(i)}}, resolution.url) +
                         classed("span", L"answer",
                                 resolution.outcome.text.empty() ? outcomeText(resolution.outcome.kind)
                                                                 : std::wstring_view(resolution.outcome.text)));
  }
  return element("nav", classed("ol", L"overview", lines));
}

std::wstring titleOf(const std::vector<Resolution>& resolutions) {
  if (resolutions.size() != 1) return counted(resolutions.size(), L"URL") + L" - kiv-resolve";
  return std::wstring(outcomeText(resolutions[0].outcome.kind)) + L": " + resolutions[0].url + L" - kiv-resolve";
}

}  // namespace

std::string htmlReport(const std::vector<Resolution>& resolutions, const std::vector<Sheet>& sources,
                       Redaction* redaction) {
  const ThisRun run = shownRun(redaction);
  const bool single = resolutions.size() == 1;
  Markup articles;
  for (std::size_t i = 0; i < resolutions.size(); ++i)
    articles += article(i, resolutions[i], run, single ? sources : std::vector<Sheet>());
  if (!single) articles += sheetSections(sources);
  articles += sheetSection(versionsSheet(run)) + sheetSection(removedSheet(redaction));
  return pageOf(titleOf(resolutions), overview(resolutions) + articles);
}

}  // namespace kiv::tool
