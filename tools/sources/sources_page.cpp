// Sources as one self-contained HTML page, without scripts.
#include "sources/sources_page.h"

#include "common/console.h"
#include "common/markup.h"
#include "common/presentable.h"
#include "resolve/report_style.h"
#include "resolve/wording.h"
#include "sources/programs.h"
#include "sources/sources_text.h"
#include "sources/warnings.h"

namespace kiv::tool {
namespace {

// If text escaped the escaping, a browser would neither run nor load it.
constexpr const wchar_t* kPolicy =
    L"default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

Markup classed(std::string_view name, const std::wstring& kind, const Markup& content) {
  return element(name, {{"class", kind}}, content);
}

Markup section(const wchar_t* heading, const Markup& content) {
  return element("section", element("h2", heading) + content);
}

Markup term(std::wstring_view name, std::wstring_view text) {
  return element("dt", presentable(name)) + element("dd", presentable(text));
}

Markup outcomeSection(const Sources& sources) {
  const std::size_t count = sources.warnings.size();
  const std::wstring badge =
      count == 0 ? L"No warnings" : std::to_wstring(count) + (count == 1 ? L" warning" : L" warnings");
  const ThisRun& run = sources.run;
  return classed("section", count == 0 ? L"outcome good" : L"outcome bad",
                 classed("p", L"badge", badge) +
                     classed("h1", L"target", presentable(L"Proxy settings of " + run.account)) +
                     classed("p", L"reason", presentable(L"on " + run.computer + L", Windows " + run.windows)) +
                     classed("p", L"when", timeText(sources.time)));
}

Markup warningsSection(const std::vector<SourceWarning>& warnings) {
  Markup items;
  for (const SourceWarning& warning : warnings)
    items += term(toWide(warning.id), warning.problem) + element("dt", L"") + element("dd", adviceFor(warning.id));
  return warnings.empty() ? Markup() : section(L"Warnings", element("dl", items));
}

// What a place holds, each value on a line.
Markup contentOf(const Place& place) {
  std::wstring state(textOf(place.state));
  if (!place.remark.empty()) state += L": " + place.remark;
  Markup lines = place.state == PlaceState::Found ? Markup() : element("div", presentable(state));
  for (const PlaceValue& value : place.values) lines += element("div", presentable(value.name + L": " + value.text));
  return lines + classed("div", L"when", presentable(place.location));
}

// Those that hold something, or those that do not.
Markup placesSection(const wchar_t* heading, const std::vector<Place>& places, bool found) {
  Markup items;
  for (const Place& place : places) {
    if ((place.state == PlaceState::Found) == found)
      items += element("dt", presentable(place.title)) + element("dd", contentOf(place));
  }
  return section(heading, element("dl", items));
}

Markup targetSection(const Resolution& resolution) {
  Markup candidates;
  for (const Candidate& candidate : resolution.candidates) candidates += element("div", presentable(candidate.text));
  if (resolution.candidates.empty()) candidates = L"none";
  const Markup items = term(L"URL", resolution.url) +
                       term(L"bypass list", resolution.bypass.matches ? L"matches" : L"does not match") +
                       element("dt", L"candidates of kiv.dll") + element("dd", candidates);
  return section(L"For the URL", element("dl", items));
}

Markup scriptsSection(const std::vector<ScriptAnswer>& scripts) {
  Markup items;
  for (const ScriptAnswer& script : scripts) items += term(script.url, answerOf(script));
  return scripts.empty() ? Markup() : section(L"PAC scripts, as their addresses answered", element("dl", items));
}

Markup listsSection(const std::vector<ListInPlaces>& lists) {
  Markup items;
  for (const ListInPlaces& list : lists) {
    items += term(L"manual list", list.manualList) + term(L"bypass list", list.bypassList) +
             term(L"Windows, http URLs", joined(list.reading.forHttp)) +
             term(L"Windows, https URLs", joined(list.reading.forHttps)) +
             term(L"kiv.dll, all URLs", joined(list.reading.byKiv));
    for (const std::wstring& difference : list.reading.differences) items += term(L"", difference);
  }
  return lists.empty()
             ? Markup()
             : section(L"Read differently by Windows (by its documentation) and kiv.dll", element("dl", items));
}

Markup callsSection(const std::vector<Place>& calls) {
  Markup items;
  for (const Place& call : calls) items += term(call.title, summaryOf(call.naming));
  return section(L"What applies", element("dl", items));
}

Markup programsSection() {
  Markup items;
  for (const Program& program : knownPrograms()) {
    items +=
        element("dt", program.name) +
        element("dd", element("div", program.reads) +
                          classed("div", L"when", std::wstring(program.version).append(L", ").append(program.source)));
  }
  return section(L"What programs read, by their documentation", element("dl", items));
}

}  // namespace

std::string sourcesPage(const Sources& sources) {
  const Markup head =
      element("head", emptyElement("meta", {{"charset", L"utf-8"}}) +
                          emptyElement("meta", {{"http-equiv", L"Content-Security-Policy"}, {"content", kPolicy}}) +
                          emptyElement("meta", {{"name", L"viewport"}, {"content", L"width=device-width"}}) +
                          element("title", L"Proxy settings") + styleElement(kReportStyle));
  const Markup content = outcomeSection(sources) + warningsSection(sources.warnings) + callsSection(sources.calls) +
                         (sources.resolution ? targetSection(*sources.resolution) : Markup()) +
                         listsSection(sources.lists) + scriptsSection(sources.scripts) +
                         placesSection(L"Places with settings", sources.places, true) +
                         placesSection(L"Other places", sources.places, false) + programsSection();
  const Markup foot = element("footer", L"kiv-resolve " + toWide(KIV_VERSION));
  const Markup body = element("body", element("main", element("article", content)) + foot);
  return "<!DOCTYPE html>\n" + element("html", {{"lang", L"en"}}, head + body).html() + "\n";
}

}  // namespace kiv::tool
