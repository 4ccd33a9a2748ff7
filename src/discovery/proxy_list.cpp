// The two text forms in which the system names proxies, read into raw candidates.
//
// The forms look alike but differ in separators, keywords and in what they accept, so each has its own tokenizer and
// parser.
#include "discovery/proxy_list.h"

#include <algorithm>
#include <limits>
#include <span>

#include "support/find_any.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

using Tokens = std::span<const std::wstring_view>;

constexpr std::wstring_view kSeparator = L";";
constexpr std::wstring_view kSchemeEnd = L"://";

bool isBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// Memory is reserved for as many tokens as a text has if they are of the usual length, and for as many entries as they
// then make.
constexpr std::size_t kUsualTokenLength = 6;
constexpr std::size_t kUsualTokens = 4;

// The length of the token, or the blank, at the start of a text: a separator is one of its own, anything else extends
// to the next separator.
std::size_t pacTokenLength(std::wstring_view rest) {
  return std::max<std::size_t>(1, support::findAny<L':', L';', L' ', L'\t'>(rest));
}
std::size_t winHttpTokenLength(std::wstring_view rest) {
  if (rest.starts_with(kSchemeEnd)) return kSchemeEnd.size();
  return std::max<std::size_t>(1, support::findAny<L':', L';', L'=', L' ', L'\t'>(rest));
}

bool isDirect(std::wstring_view token) {
  const auto upper = [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; };
  return std::ranges::equal(token, std::wstring_view(L"DIRECT"), {}, upper);
}

// A name is any token of the WinHTTP form that is not a symbol.
bool isName(std::wstring_view token) {
  return token != kSeparator && token != L"=" && token != L":" && token != kSchemeEnd;
}

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

// How many tokens an entry of the PAC form has, by the first of them.
std::size_t pacEntryLength(std::wstring_view keyword) { return isDirect(keyword) ? 1 : 4; }

// Reads the tokens of one entry of the PAC form. Its keyword can be any: candidates are made only of those that name a
// kind of proxy.
bool parsePacEntry(Tokens tokens, std::vector<ProxyListEntry>& out) {
  if (tokens.size() == 1) {
    out.emplace_back();
    return true;
  }
  const std::int32_t port = portNumber(tokens[3]);
  if (tokens[2] != L":" || port == 0) return false;
  out.push_back(entry(tokens[0], tokens[1], port));
  return true;
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
  if (startsWith(kSchemeEnd)) {
    if (!isName(tokens[0])) return false;
    tokens = tokens.subspan(2);
  }
  const bool hasPort = tokens.size() == 3 && tokens[1] == L":";
  if ((tokens.size() != 1 && !hasPort) || !isName(tokens[0])) return false;
  out.push_back(entry(type, tokens[0], hasPort ? portNumber(tokens[2]) : 0));
  return true;
}

}  // namespace

std::int32_t portNumber(std::wstring_view token) {
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
  for (std::wstring_view rest = support::upToNul(text); !rest.empty();) {
    const std::size_t length = pacTokenLength(rest);
    if (!isBlank(rest.front())) tokens.push_back(rest.substr(0, length));
    rest.remove_prefix(length);
  }
  return tokens;
}

bool ParsePacProxyList(std::wstring_view text, std::vector<ProxyListEntry>& out) {
  out.clear();
  const std::vector<std::wstring_view> tokens = TokenizePacProxyList(text);
  out.reserve(tokens.size() / kUsualTokens + 1);
  for (Tokens rest = tokens; !rest.empty();) {
    if (rest.front() == kSeparator) {
      rest = rest.subspan(1);
      continue;
    }
    const std::size_t length = pacEntryLength(rest.front());
    const bool ends = rest.size() == length || (rest.size() > length && rest[length] == kSeparator);
    if (!ends || !parsePacEntry(rest.first(length), out)) return false;
    rest = rest.subspan(length);
  }
  return true;
}

std::vector<std::wstring_view> TokenizeWinHttpProxyList(std::wstring_view text) {
  std::vector<std::wstring_view> tokens;
  tokens.reserve(text.size() / kUsualTokenLength + 1);
  for (std::wstring_view rest = support::upToNul(text); !rest.empty();) {
    const std::size_t length = winHttpTokenLength(rest);
    tokens.push_back(isBlank(rest.front()) ? kSeparator : rest.substr(0, length));
    rest.remove_prefix(length);
  }
  return tokens;
}

bool ParseWinHttpProxyList(std::wstring_view text, std::vector<ProxyListEntry>& out) {
  out.clear();
  const std::vector<std::wstring_view> tokens = TokenizeWinHttpProxyList(text);
  out.reserve(tokens.size() / kUsualTokens + 1);
  for (Tokens rest = tokens; !rest.empty();) {
    const auto length = static_cast<std::size_t>(std::ranges::find(rest, kSeparator) - rest.begin());
    if (length > 0 && !parseWinHttpEntry(rest.first(length), out)) return false;
    rest = rest.subspan(std::min(length + 1, rest.size()));
  }
  return true;
}

}  // namespace kiv::impl
