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

#include <algorithm>
#include <cwctype>

namespace kiv::impl {
namespace {

constexpr wchar_t kStar = L'*';

// The line terminators of ECMAScript.
bool endsLine(wchar_t c) { return c == L'\n' || c == L'\r' || c == L'\x2028' || c == L'\x2029'; }

// Most rules of a list do not match, and most differ here, in two characters of ASCII: no locale makes one of these but
// of the two cases of a letter, and asking it would cost more than all the rest.
bool sameButForCase(wchar_t a, wchar_t b) {
  constexpr wchar_t kAsciiEnd = 0x80;
  constexpr wchar_t kCaseBit = 0x20;
  if (a == b) return true;
  if (a < kAsciiEnd && b < kAsciiEnd && (a | kCaseBit) != (b | kCaseBit)) return false;
  return std::towlower(a) == std::towlower(b);
}

bool sameButForCase(std::wstring_view a, std::wstring_view b) {
  return std::ranges::equal(a, b, [](wchar_t x, wchar_t y) { return sameButForCase(x, y); });
}

// Lets each star cover as little as possible, and only the last one seen grow when the text does not go on as the
// pattern does: what an earlier star could cover in its place, the last one covers as well. Where a star would have to
// cover a line end, giving the earlier ones more does not help either, since they would have to cover the same.
bool covers(std::wstring_view pattern, std::wstring_view text) {
  std::size_t at = 0;
  std::size_t patternAt = 0;
  std::size_t star = std::wstring_view::npos;  // behind the last star seen
  std::size_t covered = 0;                     // up to where that star covers the text
  while (true) {
    if (patternAt < pattern.size() && pattern[patternAt] == kStar) {
      star = ++patternAt;
      covered = at;
    } else if (at == text.size() && patternAt == pattern.size()) {
      return true;
    } else if (at < text.size() && patternAt < pattern.size() && sameButForCase(pattern[patternAt], text[at])) {
      ++at;
      ++patternAt;
    } else if (star != std::wstring_view::npos && covered < text.size() && !endsLine(text[covered])) {
      at = ++covered;
      patternAt = star;
    } else {
      return false;
    }
  }
}

}  // namespace

WildcardPattern::WildcardPattern(std::wstring_view pattern) : pattern_(pattern) {
  const std::size_t star = pattern.find(kStar);
  if (star == std::wstring_view::npos) {
    shape_ = Shape::Name;
  } else if (star == 0 && pattern.find(kStar, 1) == std::wstring_view::npos) {
    shape_ = Shape::StarAndSuffix;
  }
}

// Names, and suffixes behind a star, are nearly all that lists hold; one look at the lengths rules most of them out.
bool WildcardPattern::matches(std::wstring_view text) const {
  if (shape_ == Shape::Name) return text.size() == pattern_.size() && sameButForCase(pattern_, text);
  if (shape_ == Shape::Any) return covers(pattern_, text);
  const std::wstring_view suffix = pattern_.substr(1);
  if (text.size() < suffix.size()) return false;
  const std::size_t covered = text.size() - suffix.size();
  return sameButForCase(suffix, text.substr(covered)) && std::ranges::none_of(text.substr(0, covered), endsLine);
}

WildcardPattern WildcardToRegex(std::wstring_view pattern) { return WildcardPattern(pattern); }

}  // namespace kiv::impl
