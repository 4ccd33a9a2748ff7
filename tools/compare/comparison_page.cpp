// A comparison as one self-contained HTML page, without scripts.
#include "compare/comparison_page.h"

#include "resolve/report_page.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

Sheet sheetOf(const wchar_t* kind, const wchar_t* heading, const std::vector<ComparedRow>& rows) {
  Sheet sheet{kind, heading};
  for (const ComparedRow& row : rows)
    sheet.groups.push_back({row.where, {{L"A", row.left.value_or(L"-")}, {L"B", row.right.value_or(L"-")}}});
  return sheet;
}

}  // namespace

std::string comparisonPage(const Comparison& comparison, const std::wstring& subject, Redaction* redaction) {
  const std::size_t count = comparison.differences.size();
  const ReportHead head = {.good = comparison.same(),
                           .badge = comparison.same() ? L"No differences" : counted(count, L"difference"),
                           .subject = subject,
                           .reason = noteOn(comparison)};
  const ThisRun run = shownRun(redaction);
  return pageOf(head, {sheetOf(L"differences", L"Differences", comparison.differences),
                       sheetOf(L"origin", L"Where they are from", comparison.origin),
                       whoSheet(run, std::chrono::system_clock::now()), versionsSheet(run), removedSheet(redaction)});
}

}  // namespace kiv::tool
