// The Proxy-Authenticate headers of a 407.
//
// A header is a list of challenges, and a challenge may hold a list of parameters, both separated by commas (RFC 9110,
// 11.6.1). What stands between two commas begins a new challenge unless it is a name and "=": a scheme is followed by
// blanks or nothing.
#include "credentials/challenges.h"

#include <algorithm>
#include <array>
#include <optional>

#include "kiv/session.h"
#include "support/text.h"

namespace kiv::session {
namespace {

struct SchemeWord {
  std::wstring_view word;
  std::uint32_t scheme;
};

// The strongest first.
constexpr std::array kSchemeWords = {
    SchemeWord{L"negotiate", KIV_SCHEME_NEGOTIATE},
    SchemeWord{L"ntlm", KIV_SCHEME_NTLM},
    SchemeWord{L"digest", KIV_SCHEME_DIGEST},
    SchemeWord{L"basic", KIV_SCHEME_BASIC},
};

constexpr wchar_t kReplacement = 0xFFFD;

bool isAlphanumeric(wchar_t c) {
  return (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z');
}
bool isTokenCharacter(wchar_t c) {
  return isAlphanumeric(c) || (c != L'\0' && std::wstring_view(L"!#$%&'*+-.^_`|~").find(c) != std::wstring_view::npos);
}
bool isToken68Character(wchar_t c) {
  return isAlphanumeric(c) || (c != L'\0' && std::wstring_view(L"-._~+/").find(c) != std::wstring_view::npos);
}
bool isBlank(wchar_t c) { return c == L' ' || c == L'\t'; }
bool isLineEnd(wchar_t c) { return c == L'\n' || c == L'\r'; }
bool isControl(wchar_t c) { return c < L' ' || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0x2029; }
bool isLeadingSurrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }

bool equalsIgnoringCase(std::wstring_view text, std::wstring_view lower) {
  return std::ranges::equal(text, lower, {},
                            [](wchar_t c) { return c > support::kLastAscii ? c : support::toLower(c); });
}

std::uint32_t schemeOf(std::wstring_view word) {
  for (const SchemeWord& known : kSchemeWords) {
    if (equalsIgnoringCase(word, known.word)) return known.scheme;
  }
  return 0;
}

// Reads one header's value from its front.
class Reader {
 public:
  explicit Reader(std::wstring_view line) : rest_(line) {}

  bool atEnd() const { return rest_.empty(); }
  bool accept(wchar_t c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }
  std::wstring_view takeWhile(bool (*belongs)(wchar_t)) {
    const auto length = static_cast<std::size_t>(std::ranges::find_if_not(rest_, belongs) - rest_.begin());
    const std::wstring_view taken = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return taken;
  }
  bool skipBlanks() { return !takeWhile(isBlank).empty(); }

  // Up to and with the next comma that is not quoted.
  void skipElement() {
    while (!atEnd() && !accept(L',')) {
      if (rest_.front() == L'"') {
        quoted();
      } else {
        rest_.remove_prefix(1);
      }
    }
  }

  // A token68 that fills its place between two commas.
  std::optional<std::wstring_view> token68() {
    Reader ahead = *this;
    const std::wstring_view start = ahead.rest_;
    if (ahead.takeWhile(isToken68Character).empty()) return std::nullopt;
    while (ahead.accept(L'=')) continue;
    const std::wstring_view token = start.substr(0, start.size() - ahead.rest_.size());
    ahead.skipBlanks();
    if (!ahead.atEnd() && ahead.rest_.front() != L',') return std::nullopt;
    *this = ahead;
    return token;
  }

  // name = value. Nothing, and nothing read, if no "=" follows a name; a value that is none is empty.
  struct Parameter {
    std::wstring_view name;
    std::wstring value;
  };
  std::optional<Parameter> parameter() {
    Reader ahead = *this;
    Parameter parameter = {ahead.takeWhile(isTokenCharacter), {}};
    ahead.skipBlanks();
    if (parameter.name.empty() || !ahead.accept(L'=')) return std::nullopt;
    ahead.skipBlanks();
    parameter.value = ahead.rest_.starts_with(L'"') ? ahead.quoted() : std::wstring(ahead.takeWhile(isTokenCharacter));
    *this = ahead;
    return parameter;
  }

 private:
  // What stands between quotes, with as much of it as a realm can have. Nothing of one that does not end.
  std::wstring quoted() {
    std::wstring value;
    for (accept(L'"'); !accept(L'"');) {
      accept(L'\\');
      if (atEnd()) return {};
      if (value.size() < kLongestRealm) value += rest_.front();
      rest_.remove_prefix(1);
    }
    return value;
  }

  std::wstring_view rest_;
};

// A realm as it can be shown.
std::wstring shownRealm(std::wstring realm) {
  realm.resize(std::min(realm.size(), kLongestRealm));
  std::ranges::replace_if(realm, isControl, kReplacement);
  if (!realm.empty() && isLeadingSurrogate(realm.back())) realm.pop_back();  // its half was cut off
  return realm;
}

void readParameter(Reader::Parameter parameter, HeaderChallenge& challenge) {
  if (challenge.realm.empty() && equalsIgnoringCase(parameter.name, L"realm")) {
    challenge.realm = shownRealm(std::move(parameter.value));
  }
}

void readLine(std::wstring_view line, std::vector<HeaderChallenge>& challenges) {
  HeaderChallenge* current = nullptr;
  for (Reader reader(line); !reader.atEnd(); reader.skipElement()) {
    reader.skipBlanks();
    if (std::optional<Reader::Parameter> parameter = reader.parameter()) {
      if (current) readParameter(std::move(*parameter), *current);
      continue;
    }
    const std::wstring_view scheme = reader.takeWhile(isTokenCharacter);
    if (scheme.empty()) continue;
    if (challenges.size() == kMostChallenges) return;
    current = &challenges.emplace_back();
    current->scheme = schemeOf(scheme);
    if (!reader.skipBlanks()) continue;
    if (const std::optional<std::wstring_view> token = reader.token68()) {
      if (current->scheme == KIV_SCHEME_NTLM || current->scheme == KIV_SCHEME_NEGOTIATE) current->token = *token;
    } else if (std::optional<Reader::Parameter> parameter = reader.parameter()) {
      readParameter(std::move(*parameter), *current);
    }
  }
}

}  // namespace

std::vector<HeaderChallenge> readChallenges(std::wstring_view headers) {
  std::vector<HeaderChallenge> challenges;
  if (headers.size() > kLongestHeader) return challenges;
  while (!headers.empty()) {
    const auto length = static_cast<std::size_t>(std::ranges::find_if(headers, isLineEnd) - headers.begin());
    readLine(headers.substr(0, length), challenges);
    headers.remove_prefix(std::min(length + 1, headers.size()));
  }
  return challenges;
}

// No loop with a return in it: of that GCC 12 makes Basic, with -O3, where nothing is in common.
std::uint32_t strongestScheme(std::uint32_t offered, std::uint32_t allowed) noexcept {
  const auto found = std::ranges::find_if(
      kSchemeWords, [common = offered & allowed](const SchemeWord& known) { return (common & known.scheme) != 0; });
  return found == kSchemeWords.end() ? 0 : found->scheme;
}

}  // namespace kiv::session
