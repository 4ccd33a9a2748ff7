// The answers of PAC scripts as one self-contained HTML page, without scripts.
#include "pac/pac_page.h"

#include "probe/sha256.h"
#include "resolve/report_page.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

FactGroup groupOf(const wchar_t* title, const PacScript& script) {
  return {title,
          {{L"Script", script.name},
           {L"Size", std::to_wstring(script.text.size()) + L" bytes"},
           {L"SHA-256", sha256Of({reinterpret_cast<const std::uint8_t*>(script.text.data()), script.text.size()})}}};
}

Sheet scriptsSheet(const PacResult& result) {
  Sheet sheet{L"scripts", result.against ? L"PAC scripts" : L"PAC script", {}, pacRemarks(result)};
  if (result.against) sheet.groups.push_back(groupOf(L"OLD", *result.against));
  sheet.groups.push_back(groupOf(result.against ? L"NEW" : L"", result.script));
  return sheet;
}

FactGroup groupOf(const PacRow& row) {
  if (!row.before) return {row.url, {{L"Windows returns", answerText(row.now)}, {L"kiv tests", readingText(row.now)}}};
  return {row.url,
          {{L"Verdict", std::wstring(textOf(row.verdict()))},
           {L"OLD", answerText(*row.before)},
           {L"NEW", answerText(row.now)}}};
}

ReportHead headOf(const PacResult& result) {
  const std::size_t failed = result.count(PacVerdict::Failed);
  const std::size_t different = result.count(PacVerdict::Differs);
  std::wstring badge = result.against ? L"No differences" : L"Every URL has an answer";
  if (different > 0) badge = counted(different, L"URL") + (different == 1 ? L" differs" : L" differ");
  if (failed > 0) badge = counted(failed, L"URL") + L" failed";
  return {.good = failed + different == 0,
          .badge = badge,
          .subject = result.script.name + (result.against ? L" against " + result.against->name : std::wstring()),
          .reason = counted(result.rows.size(), L"URL") + L". Nothing was sent to them."};
}

}  // namespace

std::string pacPage(const PacResult& result, Redaction* redaction) {
  const ThisRun run = shownRun(redaction);
  Sheet answers{L"answers", L"Answers"};
  for (const PacRow& row : result.rows) answers.groups.push_back(groupOf(row));
  return pageOf(headOf(result), {scriptsSheet(result), answers, whoSheet(run, std::chrono::system_clock::now()),
                                 versionsSheet(run), removedSheet(redaction)});
}

}  // namespace kiv::tool
