// Text as it may be shown to people: without passwords, and without characters that steer a console or a viewer.
#include "common/presentable.h"

#include <algorithm>
#include <cstddef>

#include "common/ascii.h"

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

// A long run with a capital letter inside: no word.
bool isToken(std::wstring_view run) {
  constexpr std::size_t kShortest = 16;
  return run.size() >= kShortest && std::ranges::any_of(run.substr(1), isAsciiCapital<wchar_t>);
}

// The messages of NTLM and Negotiate hold names of domain, machine and user.
std::wstring withoutMessages(std::wstring text) {
  for (const std::wstring_view scheme : {L"NTLM ", L"Negotiate "}) {
    for (std::size_t at = text.find(scheme); at != std::wstring::npos; at = text.find(scheme, at)) {
      at += scheme.size();
      const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
      const auto length = static_cast<std::size_t>(std::find_if_not(begin, text.end(), isBase64) - begin);
      if (isToken(std::wstring_view(text).substr(at, length))) text.replace(at, length, L"(removed)");
    }
  }
  return text;
}

}  // namespace

std::wstring presentable(std::wstring_view text) {
  std::wstring shown;
  for (const wchar_t c : withoutMessages(withoutPasswords(text.substr(0, text.find_last_not_of(L"\r\n") + 1)))) {
    if (c == L'\n') {
      shown += c;
    } else if (c != L'\r') {
      shown += isControl(c) ? kReplacement : c;
    }
  }
  return shown;
}

}  // namespace kiv::tool
