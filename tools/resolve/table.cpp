// A resolution as text for a console: the table of its candidates, the settings, the list of candidates.
#include "resolve/table.h"

#include <algorithm>
#include <array>
#include <vector>

#include "resolve/colours.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

constexpr std::size_t kColumns = 5;
using Row = std::array<std::wstring, kColumns>;

// Columns of numbers are right-aligned.
constexpr std::array<bool, kColumns> kRight = {true, false, false, true, false};
constexpr const wchar_t* kGap = L"  ";

Row rowOf(std::size_t number, const Candidate& candidate) {
  return {std::to_wstring(number), candidate.text, responsesText(candidate),
          candidate.requests.empty() ? L"-" : durationText(candidate.duration()), explanationText(candidate)};
}

std::vector<Row> rowsOf(const Resolution& resolution) {
  std::vector<Row> rows = {{L"No.", L"candidate", L"responses", L"time", L"verdict"}};
  for (std::size_t i = 0; i < resolution.candidates.size(); ++i) rows.push_back(rowOf(i, resolution.candidates[i]));
  return rows;
}

std::array<std::size_t, kColumns> widthsOf(const std::vector<Row>& rows) {
  std::array<std::size_t, kColumns> widths{};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  return widths;
}

std::wstring lineOf(const Row& row, const std::array<std::size_t, kColumns>& widths) {
  std::wstring line;
  for (std::size_t i = 0; i < kColumns; ++i) {
    const std::wstring padding(widths[i] - row[i].size(), L' ');
    line += (i == 0 ? L"" : kGap) + (kRight[i] ? padding + row[i] : row[i] + padding);
  }
  return line.substr(0, line.find_last_not_of(L' ') + 1);
}

std::wstring tableText(const Resolution& resolution, bool coloured) {
  const std::vector<Row> rows = rowsOf(resolution);
  const auto widths = widthsOf(rows);
  const auto winner = resolution.winner();
  std::wstring text;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const bool won = winner && i == *winner + 1;
    const wchar_t* const colour = i == 0 ? kBold : won ? kGreen : nullptr;
    const std::wstring line = lineOf(rows[i], widths);
    text += coloured && colour ? colour + line + kPlain : line;
    text += L'\n';
  }
  return text;
}

std::wstring orNone(const std::wstring& text) { return text.empty() ? L"none" : text; }

std::wstring bypassText(const Resolution& resolution) {
  const Bypass& bypass = resolution.bypass;
  const wchar_t* const source = bypass.given ? L" (from --bypass)" : L"";
  if (bypass.list.empty()) return std::wstring(L"no list") + source;
  return (bypass.matches ? L"matches the URL: " : L"does not match the URL: ") + bypass.list + source;
}

std::wstring discoveryText(const Resolution& resolution) {
  if (resolution.discoveryFailed) return L"failed after " + durationText(resolution.discoveryDuration);
  const auto count = std::ranges::count(resolution.candidates, Origin::System, &Candidate::origin);
  return (resolution.bypass.matches ? L"done"
                                    : std::to_wstring(count) + (count == 1 ? L" candidate" : L" candidates")) +
         L" in " + durationText(resolution.discoveryDuration);
}

}  // namespace

std::wstring summaryText(const Resolution& resolution, bool coloured) {
  std::wstring text = remark(resolution);
  if (!text.empty()) text += L'\n';
  return resolution.candidates.empty() ? text : text + tableText(resolution, coloured);
}

std::wstring settingsText(const Resolution& resolution) {
  const UserSettings& user = resolution.settings;
  std::wstring text = user.found ? L"The user's proxy settings\n" : L"The user's proxy settings (none are stored)\n";
  text += std::wstring(L"  automatic detection (WPAD)  ") + (user.automaticDetection ? L"on" : L"off") + L'\n';
  text += L"  PAC script                  " + orNone(user.scriptUrl) + L'\n';
  text += L"  manual proxy list           " + orNone(user.manualList) + L'\n';
  text += L"  bypass list                 " + orNone(user.bypassList) + L'\n';
  return text + targetText(resolution);
}

std::wstring targetText(const Resolution& resolution) {
  std::wstring text = L"For " + resolution.url + L'\n';
  text += L"  discovery                   " + discoveryText(resolution) + L'\n';
  text += L"  bypass                      " + bypassText(resolution) + L'\n';
  for (std::size_t i = 0; i < resolution.candidates.size(); ++i) {
    const Candidate& candidate = resolution.candidates[i];
    text += i == 0 ? L"  candidates                  " : L"                              ";
    text += candidate.text + L"  " + std::wstring(originText(candidate.origin)) + L'\n';
  }
  return text;
}

std::wstring candidatesText(const Resolution& resolution) {
  if (resolution.candidates.empty()) return resolution.outcome.text + L'\n';
  std::wstring text;
  for (const Candidate& candidate : resolution.candidates) text += candidate.text + L'\n';
  return text;
}

}  // namespace kiv::tool
