// What standard error shows while URLs are resolved: the log or a line per candidate, and the table at the end.
#include "resolve/display.h"

#include <array>
#include <string>

#include "resolve/colours.h"
#include "resolve/table.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

// In the order of the levels.
constexpr std::array<const wchar_t*, 4> kColours = {kRed, kYellow, kGreen, kGrey};

// A record of response headers has several lines: all but the first are indented.
std::wstring indented(const std::wstring& message) {
  std::wstring text;
  for (const wchar_t c : message) {
    text += c;
    if (c == L'\n') text += L"    ";
  }
  return text;
}

std::wstring testText(std::size_t number, const Candidate& candidate) {
  return L"Testing No. " + std::to_wstring(number) + L": " + candidate.text;
}

}  // namespace

Display::Display(Detail detail)
    : detail_(detail),
      console_(detail == Detail::Nothing ? std::nullopt : std::make_optional<StyledConsole>()),
      coloured_(console_ && console_->showsColours()),
      hasLiveLine_(console_ && console_->understandsMoves()),
      live_(hasLiveLine_) {}

void Display::discoveryBegins(const Resolution& resolution) {
  if (detail_ == Detail::Brief) print(Stream::Error, L"Finding a route to " + resolution.url + L"\n");
  live_.begin(L"Finding candidates (settings, WPAD, PAC script)");
}

void Display::testBegins(std::size_t number, const Candidate& candidate) {
  // On a console the live line shows it, with the time.
  const bool retried = !candidate.requests.empty();
  if (detail_ == Detail::Brief && !hasLiveLine_ && !retried) print(Stream::Error, testText(number, candidate) + L"\n");
  live_.begin(testText(number, candidate));
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
  // A blank line separates the table from the log above it.
  print(Stream::Error, detail_ == Detail::Log ? L"\n" + summary : summary);
}

}  // namespace kiv::tool
