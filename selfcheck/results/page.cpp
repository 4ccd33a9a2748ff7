// Results as one self-contained HTML page, without scripts, in the style of kiv-resolve's report.
#include "results/page.h"

#include <array>

#include "common/console.h"
#include "common/markup.h"
#include "resolve/report_style.h"

namespace selfcheck {
namespace {

using kiv::tool::element;
using kiv::tool::emptyElement;
using kiv::tool::Markup;
using kiv::tool::toWide;

// If text escaped the escaping, a browser would neither run nor load it.
constexpr const wchar_t* kPolicy =
    L"default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'";

// The style's classes for the results of candidates, in the order of the verdicts.
constexpr std::array<const wchar_t*, 4> kRowClasses = {L"works", L"failed", L"proxy-wants-credentials", L"not-tested"};

Markup classed(std::string_view name, const std::wstring& kind, const Markup& content) {
  return element(name, {{"class", kind}}, content);
}

std::wstring counted(std::size_t count, const wchar_t* what) { return std::to_wstring(count) + L" " + what; }

std::wstring countsText(const Results& results) {
  return counted(countOf(results, Verdict::Pass), L"passed, ") + counted(countOf(results, Verdict::Fail), L"failed, ") +
         counted(countOf(results, Verdict::Fact), L"facts, ") +
         counted(countOf(results, Verdict::Skipped), L"skipped.");
}

const wchar_t* badgeText(const Results& results) {
  if (results.compared) return isAsExpected(results) ? L"As in the baseline" : L"Not as in the baseline";
  return isAsExpected(results) ? L"Nothing failed" : L"Something failed";
}

std::wstring systemText(const Results& results) {
  const std::wstring windows = L"Windows " + toWide(results.windows);
  return results.wine.empty() ? windows : L"Wine " + toWide(results.wine) + L", as " + windows;
}

Markup outcomeSection(const Results& results) {
  const wchar_t* const kind = isAsExpected(results) ? L"outcome good" : L"outcome bad";
  Markup reason = classed("p", L"reason", countsText(results));
  if (results.compared) {
    reason += classed("p", L"reason", counted(unexpectedCount(results), L"not as in the baseline."));
  }
  return classed("section", kind,
                 classed("p", L"badge", badgeText(results)) + classed("h1", L"target", systemText(results)) + reason);
}

Markup unexpectedNote(const Result& result, bool compared) {
  if (!compared || !isUnexpected(result, compared)) return {};
  if (!result.expected) return classed("p", L"note", L"Unexpected: the baseline does not have this check.");
  return classed("p", L"note",
                 L"Unexpected: the baseline says " + toWide(idOf(result.expected->verdict)) + L": " +
                     toWide(result.expected->text));
}

Markup row(const Result& result, bool compared) {
  const auto verdict = static_cast<std::size_t>(result.finding.verdict);
  const Markup question = classed("p", L"name", toWide(result.question)) +
                          classed("p", L"note", toWide(result.finding.text)) + unexpectedNote(result, compared);
  return element("li", {{"class", std::wstring(L"candidate ") + kRowClasses[verdict]}, {"id", toWide(result.name)}},
                 element("div", question) +
                     classed("p", L"verdict", classed("span", L"chip", toWide(idOf(result.finding.verdict)))));
}

Markup groupSection(const ResultGroup& group, bool compared) {
  Markup rows;
  for (const Result& result : group.results) rows += row(result, compared);
  return classed("section", L"candidates", element("h2", toWide(group.title)) + classed("ol", L"rows", rows));
}

Markup notCheckedSection(const Results& results) {
  if (results.notChecked.empty()) return {};
  Markup names;
  for (const std::string& name : results.notChecked) names += element("li", toWide(name));
  return element("section",
                 element("h2", L"In the baseline, and not checked") + element("ul", {{"class", L"steps"}}, names));
}

Markup headOf(const Results& results) {
  return element(
      "head",
      emptyElement("meta", {{"charset", L"utf-8"}}) +
          emptyElement("meta", {{"http-equiv", L"Content-Security-Policy"}, {"content", kPolicy}}) +
          emptyElement("meta", {{"name", L"viewport"}, {"content", L"width=device-width, initial-scale=1"}}) +
          emptyElement("meta", {{"name", L"color-scheme"}, {"content", L"light dark"}}) +
          element("title", std::wstring(badgeText(results)) + L": " + systemText(results) + L" - kiv-selfcheck") +
          kiv::tool::styleElement(kiv::tool::kReportStyle));
}

}  // namespace

std::string pageText(const Results& results) {
  Markup sections = outcomeSection(results) + notCheckedSection(results);
  for (const ResultGroup& group : results.groups) sections += groupSection(group, results.compared);
  const Markup foot = element("footer", L"kiv-selfcheck " + toWide(KIV_VERSION));
  const Markup body = element("body", element("main", sections) + foot);
  return "<!DOCTYPE html>\n" + element("html", {{"lang", L"en"}}, headOf(results) + body).html() + "\n";
}

}  // namespace selfcheck
