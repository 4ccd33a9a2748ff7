// Takes names, addresses, queries and cookies out of texts, so that they can be shown to strangers.
#include "common/redaction.h"

#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "common/ascii.h"

namespace kiv::tool {
namespace {

constexpr std::wstring_view kRemoved = L"(removed)";

// Words of kiv's own texts: as the name of a host they are replaced in addresses alone.
constexpr std::wstring_view kOwnWords[] = {L"direct", L"gateway", L"host",   L"http",  L"https",  L"kiv",    L"none",
                                           L"port",   L"proxy",   L"server", L"socks", L"socks4", L"socks5", L"url"};

// Endings of files that texts of kiv and of Windows name.
constexpr std::wstring_view kFileEndings[] = {L"cpp",  L"css", L"dat",  L"dll", L"exe", L"htm",
                                              L"html", L"js",  L"json", L"pac", L"txt"};

constexpr bool isHexDigit(wchar_t c) { return isAsciiDigit(c) || (c >= L'a' && c <= L'f') || (c >= L'A' && c <= L'F'); }
constexpr bool isWord(wchar_t c) {
  return isAsciiDigit(c) || isAsciiLetter(c) || c == L'-' || c == L'_' || c == L'.' || c == L'%' || c >= 0xA0;
}
constexpr bool isInAddress6(wchar_t c) { return isHexDigit(c) || c == L':' || c == L'.'; }

bool among(const auto& words, std::wstring_view word) {
  return std::ranges::find(words, word) != std::ranges::end(words);
}

std::wstring lower(std::wstring_view text) {
  std::wstring result(text);
  const auto length = static_cast<int>(text.size());
  LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, text.data(), length, result.data(), length, nullptr, nullptr,
                0);
  return result;
}

// Calls `use` with each longest run of characters that `belongs` takes, and `other` with each character between.
template <class Belongs, class Use, class Other>
void eachRun(std::wstring_view text, Belongs belongs, Use use, Other other) {
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = at;
    while (end < text.size() && belongs(text[end])) ++end;
    if (end == at) {
      other(text[at++]);
    } else {
      use(at, text.substr(at, end - at));
      at = end;
    }
  }
}

int hexValue(wchar_t c) { return isAsciiDigit(c) ? c - L'0' : (c | 0x20) - L'a' + 10; }

// UTF-8 in percent-encoding, as text; what is not encoded stays.
std::wstring percentDecoded(std::wstring_view text) {
  if (text.find(L'%') == std::wstring_view::npos) return std::wstring(text);
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == L'%' && i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2])) {
      bytes += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      bytes += text[i] < 0x80 ? static_cast<char>(text[i]) : '?';
    }
  }
  const auto length = static_cast<int>(bytes.size());
  std::wstring decoded(bytes.size(), L'\0');
  decoded.resize(
      static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, bytes.data(), length, decoded.data(), length)));
  return decoded;
}

std::wstring_view withoutOuterDots(std::wstring_view word) {
  while (word.starts_with(L'.')) word.remove_prefix(1);
  while (word.ends_with(L'.')) word.remove_suffix(1);
  return word;
}

// Also the beginning of one, as in "10.1.*".
bool isAddress4(std::wstring_view word) {
  return std::ranges::count(word, L'.') == 3 &&
         std::ranges::all_of(word, [](wchar_t c) { return isAsciiDigit(c) || c == L'.'; });
}

bool isAddress6(std::wstring_view run) {
  const auto colons = std::ranges::count(run, L':');
  return colons >= 2 && colons <= 7 && (colons == 7 || run.find(L"::") != std::wstring_view::npos) && run != L"::";
}

bool isLoopback(std::wstring_view host) {
  return host == L"localhost" || host == L"::1" || (isAddress4(host) && host.starts_with(L"127."));
}

// "gate.example": the last label is of letters and no file's ending, and no label is empty.
bool isDottedName(std::wstring_view word) {
  const std::size_t dot = word.rfind(L'.');
  if (dot == std::wstring_view::npos || word.find(L"..") != std::wstring_view::npos) return false;
  const std::wstring_view last = word.substr(dot + 1);
  const bool letters = std::ranges::none_of(last, isAsciiDigit<wchar_t>) || last.starts_with(L"xn--");
  return last.size() >= 2 && letters && !among(kFileEndings, lower(last));
}

// The end of a URL that stands in a text.
std::size_t endOfUrl(std::wstring_view text, std::size_t from) {
  return std::min(text.find_first_of(L" \t\n\"'<>", from), text.size());
}

bool portFollows(std::wstring_view rest) { return rest.size() >= 2 && rest[0] == L':' && isAsciiDigit(rest[1]); }

// Whether what stands before and after a word makes it the host of an address.
bool isInAddress(std::wstring_view before, std::wstring_view after) {
  return before.ends_with(L"://") || before.ends_with(L"@") || portFollows(after);
}

std::optional<std::string> base64Decoded(std::wstring_view text) {
  std::string bytes(text.size(), '\0');
  auto size = static_cast<DWORD>(bytes.size());
  if (!CryptStringToBinaryW(text.data(), static_cast<DWORD>(text.size()), CRYPT_STRING_BASE64,
                            reinterpret_cast<BYTE*>(bytes.data()), &size, nullptr, nullptr)) {
    return std::nullopt;
  }
  bytes.resize(size);
  return bytes;
}

// The characters of a text in ASCII or UTF-16, in lower case: bytes of zero are left out.
std::string plainLower(std::string_view bytes) {
  std::string plain;
  for (const char c : bytes) {
    if (c != '\0') plain += asciiLower(c);
  }
  return plain;
}

}  // namespace

void Redaction::learn(Kind kind, std::wstring_view name) {
  const std::wstring key = lower(name);
  if (key.empty() || isLoopback(key) || words_.contains(key)) return;
  constexpr std::array<const wchar_t*, 3> kWords = {L"host-", L"user-", L"address-"};
  const auto index = static_cast<std::size_t>(kind);
  words_.emplace(key, kWords[index] + std::to_wstring(++counts_[index]));
}

void Redaction::learn(std::wstring_view name, const wchar_t* word) {
  const std::wstring key = lower(name);
  if (!key.empty() && !isLoopback(key)) words_.emplace(key, word);
}

void Redaction::learnHost(std::wstring_view host) {
  const std::wstring decoded = percentDecoded(host);
  const std::wstring_view name = withoutOuterDots(decoded);
  // The letter of a drive, as in "file://C:/proxy.pac".
  if (name.size() == 1) return;
  learn(isAddress4(name) || isAddress6(name) ? Kind::Address : Kind::Host, name);
}

void Redaction::learnUser(std::wstring_view user) { learn(Kind::User, percentDecoded(user)); }

void Redaction::learnUrls(std::wstring_view text) {
  for (std::size_t at = text.find(L"://"); at != std::wstring_view::npos; at = text.find(L"://", at)) {
    at += 3;
    std::wstring_view authority = text.substr(at, endOfUrl(text, at) - at);
    authority = authority.substr(0, authority.find_first_of(L"/?#,;)"));
    if (const std::size_t user = authority.rfind(L'@'); user != std::wstring_view::npos) {
      learnUser(authority.substr(0, std::min(user, authority.find(L':'))));
      authority.remove_prefix(user + 1);
    }
    // An IPv6 address is learned with all others.
    if (!authority.starts_with(L'[')) learnHost(authority.substr(0, authority.find(L':')));
  }
}

void Redaction::learnWords(std::wstring_view text) {
  const auto word = [&](std::size_t at, std::wstring_view run) {
    const std::wstring_view name = withoutOuterDots(run);
    if (isAddress4(name) || isDottedName(name) ||
        (isAsciiLetter(name.empty() ? L'0' : name.front()) && portFollows(text.substr(at + run.size())))) {
      learnHost(name);
    }
  };
  eachRun(text, isWord, word, [](wchar_t) {});
  const auto address = [&](std::size_t at, std::wstring_view run) {
    if (isAddress6(run) && (at == 0 || !isWord(text[at - 1]))) learn(Kind::Address, run);
  };
  eachRun(text, isInAddress6, address, [](wchar_t) {});
}

std::wstring Redaction::withoutCookies(std::wstring_view text) {
  const std::wstring searched = lower(text);
  constexpr std::wstring_view kCookie = L"cookie:";
  std::wstring kept;
  std::size_t from = 0;
  for (std::size_t at = searched.find(kCookie); at != std::wstring::npos; at = searched.find(kCookie, from)) {
    kept.append(text, from, at + kCookie.size() - from).append(L" ").append(kRemoved);
    from = std::min(text.find(L'\n', at), text.size());
    removed_[static_cast<std::size_t>(Part::Cookies)] = true;
  }
  return kept.append(text, from);
}

std::wstring Redaction::withoutQueries(std::wstring_view text) {
  std::wstring kept;
  std::size_t from = 0;
  for (std::size_t at = text.find(L"://"); at != std::wstring_view::npos; at = text.find(L"://", from)) {
    const std::size_t end = endOfUrl(text, at);
    const std::size_t query = text.find_first_of(L"?#", at);
    const std::size_t cut = std::min(query, end);
    kept.append(text, from, cut - from);
    if (cut < end) {
      kept.append(1, text[cut]).append(kRemoved);
      removed_[static_cast<std::size_t>(Part::Queries)] = true;
    }
    from = std::max(end, at + 3);
  }
  return kept.append(text, from);
}

bool Redaction::holdsName(std::wstring_view base64) const {
  const auto bytes = base64Decoded(base64);
  if (!bytes) return false;
  const std::string plain = plainLower(*bytes);
  return std::ranges::any_of(words_, [&](const auto& word) {
    std::string utf8(word.first.size() * 3, '\0');
    utf8.resize(
        static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, word.first.data(), static_cast<int>(word.first.size()),
                                                     utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr)));
    return utf8.size() >= 3 && plain.find(utf8) != std::string::npos;
  });
}

std::wstring Redaction::withoutEncodedNames(std::wstring_view text) {
  std::wstring kept;
  const auto token = [&](std::size_t, std::wstring_view run) {
    const bool encoded = run.size() >= 8 && run.find(L"//") == std::wstring_view::npos && holdsName(run);
    if (encoded) removed_[static_cast<std::size_t>(Part::Tokens)] = true;
    kept += encoded ? kRemoved : run;
  };
  eachRun(text, isBase64, token, [&](wchar_t c) { kept += c; });
  return kept;
}

std::wstring Redaction::withoutNames(std::wstring_view text) const {
  std::wstring addresses;
  const auto address = [&](std::size_t, std::wstring_view run) {
    const auto found = isAddress6(run) ? words_.find(lower(run)) : words_.end();
    addresses += found == words_.end() ? run : std::wstring_view(found->second);
  };
  eachRun(text, isInAddress6, address, [&](wchar_t c) { addresses += c; });

  std::wstring kept;
  const std::wstring_view whole = addresses;
  const auto word = [&](std::size_t at, std::wstring_view run) {
    const std::wstring_view name = withoutOuterDots(run);
    const std::wstring key = lower(percentDecoded(name));
    const auto found = words_.find(key);
    const auto start = static_cast<std::size_t>(name.data() - run.data());
    const bool replaced =
        found != words_.end() &&
        (!among(kOwnWords, key) || isInAddress(whole.substr(0, at + start), whole.substr(at + start + name.size())));
    if (!replaced) {
      kept += run;
      return;
    }
    kept.append(run.substr(0, start)).append(found->second).append(run.substr(start + name.size()));
  };
  eachRun(whole, isWord, word, [&](wchar_t c) { kept += c; });
  return kept;
}

std::wstring Redaction::operator()(std::wstring_view text) {
  const std::wstring shortened = withoutQueries(withoutCookies(text));
  learnUrls(shortened);
  learnWords(shortened);
  return withoutNames(withoutEncodedNames(shortened));
}

std::wstring Redaction::summary() const {
  constexpr std::array<const wchar_t*, 3> kOne = {L" host name", L" user name", L" address"};
  constexpr std::array<const wchar_t*, 3> kMany = {L" host names", L" user names", L" addresses"};
  constexpr std::array<const wchar_t*, 3> kParts = {L"queries", L"cookies", L"encoded names"};
  std::vector<std::wstring> all;
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    if (counts_[i] > 0) all.push_back(std::to_wstring(counts_[i]) + (counts_[i] == 1 ? kOne : kMany)[i]);
  }
  for (std::size_t i = 0; i < removed_.size(); ++i) {
    if (removed_[i]) all.emplace_back(kParts[i]);
  }
  std::wstring text;
  for (const std::wstring& one : all) text += (text.empty() ? L"" : L", ") + one;
  return text.empty() ? L"nothing" : text;
}

}  // namespace kiv::tool
