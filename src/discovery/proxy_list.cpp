// The two text forms in which the system names proxies, read into raw candidates.
//
// The forms look alike but differ in separators, keywords and in what they accept, so each has its own tokenizer and
// parser.
#include "discovery/proxy_list.h"

#include <algorithm>
#include <limits>
#include <span>

#include "support/find_any.h"

namespace kiv::impl {
namespace {

using Tokens = std::span<const std::wstring_view>;

bool isBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// For how many tokens, and entries, there is room from the start.
constexpr std::size_t kUsualTokenLength = 6;
constexpr std::size_t kUsualTokens = 4;

// The word at the start of a text.
std::wstring_view pacWord(std::wstring_view rest) {
  return rest.substr(0, support::findAny<L':', L';', L' ', L'\t'>(rest));
}
std::wstring_view winHttpWord(std::wstring_view rest) {
  return rest.substr(0, support::findAny<L':', L';', L'=', L' ', L'\t'>(rest));
}

std::wstring_view upToNul(std::wstring_view text) { return text.substr(0, text.find(L'\0')); }

bool isDirect(std::wstring_view token) {
  const auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; };
  return std::ranges::equal(token, std::wstring_view(L"DIRECT"), {}, upper);
}

// A name is any token of the WinHTTP form that is not a symbol.
bool isName(std::wstring_view token) { return token != L";" && token != L"=" && token != L":" && token != L"://"; }

ProxyListEntry entry(std::wstring_view type, std::wstring_view host, std::int32_t port) {
  return {std::wstring(type), std::wstring(host), port};
}

// Value of a digit; 16 for anything else.
std::int32_t digitValue(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'a' && c <= L'f') return c - L'a' + 10;
  if (c >= L'A' && c <= L'F') return c - L'A' + 10;
  return 16;
}

// Reads one group of tokens between ";" of the WinHTTP form, which must be one entry.
bool parseWinHttpEntry(Tokens tokens, std::vector<ProxyListEntry>& out) {
  std::wstring_view type;
  const auto startsWith = [&](std::wstring_view symbol) { return tokens.size() > 2 && tokens[1] == symbol; };
  if (startsWith(L"=")) {
    if (!isName(tokens[0])) return false;
    type = tokens[0];
    tokens = tokens.subspan(2);
  }
  if (startsWith(L"://")) {
    if (!isName(tokens[0])) return false;
    tokens = tokens.subspan(2);
  }
  const bool hasPort = tokens.size() == 3 && tokens[1] == L":";
  if ((tokens.size() != 1 && !hasPort) || !isName(tokens[0])) return false;
  out.push_back(entry(type, tokens[0], hasPort ? PortNumber(tokens[2]) : 0));
  return true;
}

}  // namespace

std::int32_t PortNumber(std::wstring_view token) {
  const bool negative = token.starts_with(L'-');
  if (negative || token.starts_with(L'+')) token.remove_prefix(1);
  const bool hexadecimal = token.starts_with(L"0x") || token.starts_with(L"0X");
  if (hexadecimal) token.remove_prefix(2);
  if (token.empty()) return 0;

  using Limits = std::numeric_limits<std::int32_t>;
  const std::int64_t base = hexadecimal ? 16 : 10;
  const std::int64_t limit = negative ? -std::int64_t{Limits::min()} : Limits::max();
  std::int64_t value = 0;
  for (const wchar_t c : token) {
    const std::int64_t digit = digitValue(c);
    if (digit >= base) return 0;
    value = std::min(value * base + digit, limit);
  }
  return static_cast<std::int32_t>(negative ? -value : value);
}

std::vector<std::wstring_view> TokenizePacProxyList(std::wstring_view text) {
  std::vector<std::wstring_view> tokens;
  tokens.reserve(text.size() / kUsualTokenLength + 1);
  for (std::wstring_view rest = upToNul(text); !rest.empty();) {
    const wchar_t c = rest.front();
    const std::wstring_view token = c == L';' || c == L':' || isBlank(c) ? rest.substr(0, 1) : pacWord(rest);
    if (!isBlank(c)) tokens.push_back(token);
    rest.remove_prefix(token.size());
  }
  return tokens;
}

bool ParsePacProxyList(std::wstring_view text, std::vector<ProxyListEntry>& out) {
  out.clear();
  const std::vector<std::wstring_view> tokens = TokenizePacProxyList(text);
  out.reserve(tokens.size() / kUsualTokens + 1);
  const auto is = [&](std::size_t at, std::wstring_view symbol) { return at < tokens.size() && tokens[at] == symbol; };
  const auto endsAt = [&](std::size_t at) { return at == tokens.size() || is(at, L";"); };
  for (std::size_t i = 0; i < tokens.size();) {
    if (is(i, L";")) {
      ++i;
    } else if (isDirect(tokens[i])) {
      if (!endsAt(i + 1)) return false;
      out.emplace_back();
      i += 2;
    } else {
      if (!is(i + 2, L":") || i + 3 >= tokens.size() || !endsAt(i + 4)) return false;
      const std::int32_t port = PortNumber(tokens[i + 3]);
      if (port == 0) return false;
      out.push_back(entry(tokens[i], tokens[i + 1], port));
      i += 5;
    }
  }
  return true;
}

std::vector<std::wstring_view> TokenizeWinHttpProxyList(std::wstring_view text) {
  std::vector<std::wstring_view> tokens;
  tokens.reserve(text.size() / kUsualTokenLength + 1);
  for (std::wstring_view rest = upToNul(text); !rest.empty();) {
    const wchar_t c = rest.front();
    std::size_t length = 1;
    if (isBlank(c) || c == L';') {
      tokens.emplace_back(L";");
    } else {
      if (rest.starts_with(L"://")) {
        length = 3;
      } else if (c != L'=' && c != L':') {
        length = winHttpWord(rest).size();
      }
      tokens.push_back(rest.substr(0, length));
    }
    rest.remove_prefix(length);
  }
  return tokens;
}

bool ParseWinHttpProxyList(std::wstring_view text, std::vector<ProxyListEntry>& out) {
  out.clear();
  const std::vector<std::wstring_view> tokens = TokenizeWinHttpProxyList(text);
  out.reserve(tokens.size() / kUsualTokens + 1);
  for (Tokens rest = tokens; !rest.empty();) {
    const std::size_t length = static_cast<std::size_t>(std::ranges::find(rest, L";") - rest.begin());
    if (length > 0 && !parseWinHttpEntry(rest.first(length), out)) return false;
    rest = rest.subspan(std::min(length + 1, rest.size()));
  }
  return true;
}

}  // namespace kiv::impl
