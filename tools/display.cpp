// What people see on standard error while URLs are resolved: the log or a line per candidate, and the table at the end.
#include "display.h"

#include <array>
#include <string>

#include "console.h"
#include "table.h"
#include "wording.h"

namespace kiv::tool {
namespace {

// In the order of the levels.
constexpr std::array<const wchar_t*, 4> kColours = {L"\x1b[31m", L"\x1b[33m", L"\x1b[32m", L"\x1b[90m"};
constexpr const wchar_t* kPlain = L"\x1b[0m";

// Response headers come as lines: each goes on its own, indented under the record.
std::wstring indented(const std::wstring& message) {
  std::wstring text;
  for (const wchar_t c : message) {
    text += c;
    if (c == L'\n') text += L"    ";
  }
  return text;
}

std::wstring turnText(std::size_t number, const Candidate& candidate) {
  return L"Testing No. " + std::to_wstring(number) + L": " + candidate.text;
}

}  // namespace

Display::Display(Detail detail)
    : detail_(detail), coloured_(detail != Detail::Nothing && showsColours(Stream::Error)), live_(coloured_) {}

void Display::discoveryBegins(const Resolution& resolution) {
  if (detail_ == Detail::Brief) print(Stream::Error, L"Finding a way out to " + resolution.url + L"\n");
  live_.begin(L"Asking the system's settings");
}

void Display::testBegins(std::size_t number, const Candidate& candidate) {
  // On a console the live line says so, with the time.
  const bool retried = !candidate.requests.empty();
  if (detail_ == Detail::Brief && !coloured_ && !retried) print(Stream::Error, turnText(number, candidate) + L"\n");
  live_.begin(turnText(number, candidate));
}

void Display::record(const Record& record) {
  if (detail_ != Detail::Log) return;
  live_.pause();
  std::wstring line = toWide(idOf(record.level)) + L": ";
  if (coloured_) line = kColours[static_cast<std::size_t>(record.level)] + line + kPlain;
  print(Stream::Error, line + indented(record.message) + L"\n");
  live_.resume();
}

void Display::finished(const Resolution& resolution) {
  live_.end();
  if (detail_ == Detail::Nothing) return;
  const std::wstring summary = summaryText(resolution, coloured_);
  // The table stands apart from the log above it.
  print(Stream::Error, detail_ == Detail::Log ? L"\n" + summary : summary);
}

}  // namespace kiv::tool
