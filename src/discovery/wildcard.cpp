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

#include "support/find_any.h"

namespace kiv::impl {
namespace {

constexpr wchar_t kStar = L'*';

// The line terminators of ECMAScript.
bool endsLine(wchar_t c) { return c == L'\n' || c == L'\r' || c == L'\x2028' || c == L'\x2029'; }

// Whether two characters differ in every locale, whatever their case: both are of ASCII, and they are not the capital
// and the small form of one letter.
bool differWhateverTheCase(wchar_t a, wchar_t b) {
  constexpr wchar_t kAsciiEnd = 0x80;
  constexpr wchar_t kCaseBit = 0x20;
  return a < kAsciiEnd && b < kAsciiEnd && (a | kCaseBit) != (b | kCaseBit);
}

// The locale is asked only where it decides, since asking it costs more than all the rest.
bool sameButForCase(wchar_t a, wchar_t b) {
  return a == b || (!differWhateverTheCase(a, b) && std::towlower(a) == std::towlower(b));
}

bool sameButForCase(std::wstring_view a, std::wstring_view b) {
  return std::ranges::equal(a, b, [](wchar_t x, wchar_t y) { return sameButForCase(x, y); });
}

// Lets each star cover as little as possible, and only the last one seen grow when the text does not go on as the
// pattern does: what an earlier star could cover in its place, the last one covers as well. Where a star would have to
// cover a line end, giving the earlier ones more does not help either, since they would have to cover the same.
bool coversInPieces(std::wstring_view pattern, std::wstring_view text) {
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

WildcardPattern::WildcardPattern(std::wstring_view pattern) : shape_(Shape::General), literal_(pattern) {
  const bool startsWithStar = pattern.starts_with(kStar);
  const std::wstring_view rest = pattern.substr(startsWithStar ? 1 : 0);
  if (support::findAny<kStar>(rest) != rest.size()) return;
  shape_ = startsWithStar ? Shape::StarAndSuffix : Shape::Name;
  literal_ = rest;
}

bool WildcardPattern::matches(std::wstring_view text) const {
  switch (shape_) {
    case Shape::Everything:
      return true;
    case Shape::Name:
      return sameButForCase(literal_, text);
    case Shape::StarAndSuffix: {
      if (text.size() < literal_.size()) return false;
      const std::size_t covered = text.size() - literal_.size();  // by the star
      return sameButForCase(literal_, text.substr(covered)) && std::ranges::none_of(text.substr(0, covered), endsLine);
    }
    case Shape::General:
      break;
  }
  return coversInPieces(literal_, text);
}

}  // namespace kiv::impl
