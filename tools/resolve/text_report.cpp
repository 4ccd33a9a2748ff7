// A report on resolutions as plain text, and the parts of it that the console shows.
#include "resolve/text_report.h"

#include <algorithm>

#include "common/console.h"
#include "resolve/advice.h"
#include "resolve/report_sheets.h"
#include "resolve/table.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

std::wstring headed(std::wstring_view heading, const std::wstring& body) {
  return L"\n" + std::wstring(heading) + L"\n" + body;
}

std::wstring withoutBackticks(std::wstring_view text) {
  std::wstring plain(text);
  std::erase(plain, L'`');
  return plain;
}

// A paragraph in lines that are not too long to read; the first begins with `mark`, and all are indented like it.
std::wstring wrapped(std::wstring_view mark, std::wstring_view text) {
  constexpr std::size_t kWidth = 100;
  std::wstring lines;
  std::wstring line(mark);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(L' '), text.size());
    if (line.size() + end > kWidth) {
      lines += line.substr(0, line.size() - 1) + L"\n";
      line = std::wstring(mark.size(), L' ');
    }
    line += std::wstring(text.substr(0, end)) + L" ";
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines + line.substr(0, line.size() - 1) + L"\n";
}

std::wstring linesOf(const FactGroup& group) {
  const std::wstring indent = group.title.empty() ? L"  " : L"    ";
  std::size_t width = 0;
  for (const Fact& fact : group.facts) width = std::max(width, fact.name.size());
  std::wstring lines = group.title.empty() ? L"" : L"  " + group.title + L"\n";
  for (const Fact& fact : group.facts) {
    lines += indent + fact.name + std::wstring(width - fact.name.size() + 2, L' ') +
             (fact.value.empty() ? L"none" : fact.value) + L"\n";
  }
  return lines;
}

std::wstring sheetText(const Sheet& sheet) {
  std::wstring body = sheet.note.empty() ? L"" : wrapped(L"  ", sheet.note);
  for (const FactGroup& group : sheet.groups) body += linesOf(group);
  return headed(sheet.heading, body);
}

std::wstring adviceText(const Resolution& resolution) {
  std::wstring body;
  for (const Advice* advice : adviceFor(resolution)) {
    body += wrapped(L"  - ", withoutBackticks(advice->meaning) + L" " + withoutBackticks(advice->advice));
  }
  return body.empty() ? L"" : headed(L"What to try next", body);
}

std::wstring logText(const Resolution& resolution) {
  std::wstring body;
  for (const Record& record : resolution.log) {
    body += L"  " + timeText(record.time) + L" " + toWide(idOf(record.level)) + L": ";
    for (const wchar_t c : record.message) (body += c) += c == L'\n' ? L"      " : L"";
    body += L"\n";
  }
  return headed(L"Log", body);
}

std::wstring sheetsText(const std::vector<Sheet>& sheets) {
  std::wstring text;
  for (const Sheet& sheet : sheets) text += sheet.isEmpty() ? L"" : sheetText(sheet);
  return text;
}

// `sources` is empty if they are told elsewhere.
std::wstring reportOn(const Resolution& resolution, const ThisRun& run, const std::vector<Sheet>& sources) {
  const std::wstring route = resolution.outcome.text.empty() ? L"" : resolution.outcome.text + L" ";
  return std::wstring(outcomeText(resolution.outcome.kind)) + L": " + route + L"to " + resolution.url + L"\n" +
         wrapped(L"", reasonText(resolution)) + adviceText(resolution) + sheetText(whoSheet(resolution, run)) +
         sheetsText(sources) + L"\n" + settingsText(resolution) + sheetText(bypassSheet(resolution)) +
         sheetText(discoverySheet(resolution)) + headed(L"Candidates in test order", summaryText(resolution, false)) +
         sheetsText(probeSheets(resolution)) + logText(resolution);
}

}  // namespace

std::string textReport(const std::vector<Resolution>& resolutions, const std::vector<Sheet>& sources,
                       Redaction* redaction) {
  const ThisRun run = shownRun(redaction);
  const bool single = resolutions.size() == 1;
  std::wstring text = L"kiv-resolve report\n";
  for (const Resolution& resolution : resolutions)
    text += L"\n" + reportOn(resolution, run, single ? sources : std::vector<Sheet>());
  if (!single) text += sheetsText(sources);
  return toUtf8(text + sheetText(versionsSheet(run)) + sheetText(removedSheet(redaction)));
}

std::wstring probeText(const Resolution& resolution) {
  std::wstring text = sheetText(discoverySheet(resolution));
  for (const Sheet& sheet : probeSheets(resolution)) {
    if (!sheet.groups.empty()) text += sheetText(sheet);
  }
  return text + adviceText(resolution);
}

}  // namespace kiv::tool
