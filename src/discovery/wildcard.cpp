// Patterns of bypass rules: literal text in which "*" stands for any characters.
//
// A pattern is defined by the regular expression (ECMAScript, case-insensitive, matched against the whole text) that
// results from putting a backslash in front of each of
//
//   \ + . ? { } ( ) [ ] ^ $ |       ([\\\+\.\?\{\}\(\)\[\]\^\$\|])
//
// and replacing each "*" by ".*". So "*" covers anything but line ends, which "." does not match. Bypass lists come
// from the network, and a backtracking matcher takes exponential time on a handful of stars; hence this one.
#include "discovery/wildcard.h"

#include "support/text.h"

namespace kiv::impl {
namespace {

// The line terminators of ECMAScript.
bool endsLine(wchar_t c) { return c == L'\n' || c == L'\r' || c == L'\x2028' || c == L'\x2029'; }

}  // namespace

WildcardPattern::WildcardPattern(std::wstring_view pattern) : pattern_(support::toLower(pattern)) {}

// Lets each star cover as little as possible, and only the last one seen grow when the text does not go on as the
// pattern does: what an earlier star could cover in its place, the last one covers as well. Where a star would have to
// cover a line end, giving the earlier ones more does not help either, since they would have to cover the same.
bool WildcardPattern::matches(std::wstring_view text) const {
  const std::wstring lower = support::toLower(text);
  std::size_t at = 0;
  std::size_t patternAt = 0;
  std::size_t star = std::wstring::npos;  // behind the last star seen
  std::size_t covered = 0;                // up to where that star covers the text
  while (true) {
    if (patternAt < pattern_.size() && pattern_[patternAt] == L'*') {
      star = ++patternAt;
      covered = at;
    } else if (at == lower.size() && patternAt == pattern_.size()) {
      return true;
    } else if (at < lower.size() && patternAt < pattern_.size() && pattern_[patternAt] == lower[at]) {
      ++at;
      ++patternAt;
    } else if (star != std::wstring::npos && covered < lower.size() && !endsLine(lower[covered])) {
      at = ++covered;
      patternAt = star;
    } else {
      return false;
    }
  }
}

WildcardPattern WildcardToRegex(std::wstring_view pattern) { return WildcardPattern(pattern); }

}  // namespace kiv::impl
