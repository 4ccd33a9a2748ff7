// The page of every report: self-contained HTML, without scripts.
#include "resolve/report_page.h"

#include <algorithm>
#include <array>

#include "common/console.h"
#include "resolve/probe_words.h"
#include "resolve/report_style.h"

namespace kiv::tool {
namespace {

// If text escaped the escaping, a browser would neither run nor load it.
constexpr const wchar_t* kPolicy =
    L"default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

constexpr std::array<const wchar_t*, 6> kPhaseClasses = {L"name-phase", L"connection-phase", L"tunnel-phase",
                                                         L"tls-phase",  L"sending-phase",    L"first-byte-phase"};

// The time line of a probe's phases.
Markup phasesBar(const std::vector<Phase>& phases) {
  if (phases.empty()) return {};
  constexpr long long kWidth = 1000;
  constexpr long long kLeast = 4;  // so that a phase without duration can be seen
  const long long length = std::max<long long>((phases.back().began + phases.back().duration).count(), 1);
  Markup parts;
  for (const Phase& phase : phases) {
    const long long width = std::max(kLeast, kWidth * phase.duration.count() / length);
    const long long x = std::min(kWidth * phase.began.count() / length, kWidth - width);
    parts += element("rect",
                     {{"class", phase.completed ? kPhaseClasses[static_cast<std::size_t>(phase.kind)] : L"failure"},
                      {"x", std::to_wstring(x)},
                      {"width", std::to_wstring(width)},
                      {"height", L"10"}},
                     element("title", wordsOf(kPhaseWords, phase.kind).text));
  }
  return element("svg", {{"class", L"bar"}, {"viewBox", L"0 0 1000 10"}, {"preserveAspectRatio", L"none"}}, parts);
}

Markup groupOf(const FactGroup& group) {
  Markup facts;
  for (const Fact& each : group.facts) facts += factMarkup(each.name, each.value);
  return (group.title.empty() ? Markup() : element("h3", group.title)) + phasesBar(group.phases) + element("dl", facts);
}

Markup legend() {
  Markup items;
  for (std::size_t i = 0; i < kPhaseClasses.size(); ++i) {
    items += classed("li", kPhaseClasses[i], kPhaseWords[i].text);
  }
  return classed("ol", L"legend", items + classed("li", L"failure", L"failed"));
}

Markup headOf(const std::wstring& title) {
  return element(
      "head", emptyElement("meta", {{"charset", L"utf-8"}}) +
                  emptyElement("meta", {{"http-equiv", L"Content-Security-Policy"}, {"content", kPolicy}}) +
                  emptyElement("meta", {{"name", L"viewport"}, {"content", L"width=device-width, initial-scale=1"}}) +
                  emptyElement("meta", {{"name", L"color-scheme"}, {"content", L"light dark"}}) +
                  element("title", title) + styleElement(kReportStyle));
}

}  // namespace

Markup classed(std::string_view name, const std::wstring& kind, const Markup& content) {
  return element(name, {{"class", kind}}, content);
}

Markup section(const wchar_t* kind, const wchar_t* heading, const Markup& content) {
  return classed("section", kind, element("h2", heading) + content);
}

Markup factMarkup(const std::wstring& name, const std::wstring& value) {
  const bool none = value.empty();
  return element("dt", name) + classed("dd", none ? L"none" : L"value", none ? std::wstring(L"none") : value);
}

Markup sheetSection(const Sheet& sheet) {
  if (sheet.isEmpty()) return {};
  Markup content = sheet.note.empty() ? Markup() : classed("p", L"note", sheet.note);
  const bool hasTimeLine =
      std::ranges::any_of(sheet.groups, [](const FactGroup& group) { return !group.phases.empty(); });
  if (hasTimeLine) content += legend();
  for (const FactGroup& group : sheet.groups) content += groupOf(group);
  return section(sheet.kind, sheet.heading, content);
}

Markup sheetSections(const std::vector<Sheet>& sheets) {
  Markup sections;
  for (const Sheet& sheet : sheets) sections += sheetSection(sheet);
  return sections;
}

std::string pageOf(const std::wstring& title, const Markup& content) {
  const Markup foot = element("footer", L"kiv-resolve " + toWide(KIV_VERSION));
  const Markup body = element("body", element("main", content) + foot);
  return "<!DOCTYPE html>\n" + element("html", {{"lang", L"en"}}, headOf(title) + body).html() + "\n";
}

std::string pageOf(const ReportHead& head, const std::vector<Sheet>& sheets) {
  const Markup outcome = classed("section", head.good ? L"outcome good" : L"outcome bad",
                                 classed("p", L"badge", head.badge) + classed("h1", L"target", head.subject) +
                                     classed("p", L"reason", head.reason));
  return pageOf(head.badge + L": " + head.subject + L" - kiv-resolve",
                element("article", outcome + sheetSections(sheets)));
}

}  // namespace kiv::tool
