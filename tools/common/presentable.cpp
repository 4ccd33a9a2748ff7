// Text as it may be shown to people: without passwords, and without characters that steer a console or a viewer.
#include "common/presentable.h"

namespace kiv::tool {
namespace {

constexpr wchar_t kReplacement = L'\xFFFD';

// Control characters, and those that change the direction of text.
bool isControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

// Everything between a ":" and an "@" is masked, back to the last character that no user name contains: too much is
// masked rather than too little.
std::wstring withoutPasswords(std::wstring_view text) {
  constexpr std::wstring_view kBefore = L" \t\r\n/\"";
  std::wstring masked;
  while (true) {
    const std::size_t at = text.find(L'@');
    if (at == std::wstring_view::npos) return masked.append(text);
    const std::size_t before = text.substr(0, at).find_last_of(kBefore);
    const std::size_t start = before == std::wstring_view::npos ? 0 : before + 1;
    const std::size_t colon = text.substr(0, at).find(L':', start);
    masked += text.substr(0, colon == std::wstring_view::npos ? at : colon + 1);
    if (colon != std::wstring_view::npos) masked += L"****";
    masked += L'@';
    text.remove_prefix(at + 1);
  }
}

}  // namespace

std::wstring presentable(std::wstring_view text) {
  std::wstring shown;
  for (const wchar_t c : withoutPasswords(text.substr(0, text.find_last_not_of(L"\r\n") + 1))) {
    if (c == L'\n') {
      shown += c;
    } else if (c != L'\r') {
      shown += isControl(c) ? kReplacement : c;
    }
  }
  return shown;
}

}  // namespace kiv::tool
