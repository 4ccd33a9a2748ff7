// Prints log records as they happen.
#include "log_printer.h"

#include <string>

#include "console.h"

namespace kiv::tool {
namespace {

struct LevelStyle {
  bool (*is)(const KivLog*);
  const wchar_t* name;
  const wchar_t* colour;
};

constexpr LevelStyle kStyles[] = {
    {KivLog_IsError, L"error", L"\x1b[31m"},
    {KivLog_IsWarn, L"warn", L"\x1b[33m"},
    {KivLog_IsInfo, L"info", L"\x1b[32m"},
    {KivLog_IsDebug, L"debug", L"\x1b[90m"},
};
constexpr const wchar_t* kPlain = L"\x1b[0m";

const LevelStyle& styleOf(const KivLog* log) {
  for (const LevelStyle& style : kStyles) {
    if (style.is(log)) return style;
  }
  return kStyles[0];
}

// A server can put into its headers what would steer the console.
bool isControl(wchar_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

// Response headers come as lines: each goes on its own, indented under the record.
std::wstring indented(std::wstring_view message) {
  constexpr wchar_t kReplacement = L'\xFFFD';
  std::wstring text;
  for (const wchar_t c : message.substr(0, message.find_last_not_of(L"\r\n") + 1)) {
    if (c == L'\n') {
      text += L"\n    ";
    } else if (c != L'\r') {
      text += isControl(c) ? kReplacement : c;
    }
  }
  return text;
}

}  // namespace

LogPrinter::LogPrinter(bool quiet)
    : quiet_(quiet), coloured_(!quiet && showsColours(Stream::Error)), logger_(KivLogger_Construct(this, onRecord)) {}

void LogPrinter::onRecord(void* context, const KivLog* log) {
  const auto* const self = static_cast<const LogPrinter*>(context);
  if (self->quiet_) return;
  const LevelStyle& style = styleOf(log);
  std::wstring line = std::wstring(style.name) + L": ";
  if (self->coloured_) line = style.colour + line + kPlain;
  print(Stream::Error, line + indented(KivLog_Message(log)) + L"\n");
}

}  // namespace kiv::tool
