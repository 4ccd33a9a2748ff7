// Patterns of bypass rules: literal text in which "*" stands for any characters.
#pragma once

#include <cstdint>
#include <string_view>

#include "support/find_any.h"

namespace kiv::impl {

// Whether no locale makes one of two characters of the other: they are of ASCII, and not the two cases of a letter.
constexpr bool differWhateverTheCase(wchar_t a, wchar_t b) {
  constexpr wchar_t kAsciiEnd = 0x80;
  constexpr wchar_t kCaseBit = 0x20;
  return a < kAsciiEnd && b < kAsciiEnd && (a | kCaseBit) != (b | kCaseBit);
}

// A pattern, which points into the text that it was made of. Matching ignores case and takes, at worst, the product of
// both lengths in time and no memory.
//
// Every resolution reads the whole bypass list to ask it once, and nearly all that lists hold is names, and suffixes
// behind a star, that are not the target's. So patterns are made without a call, and the lengths and one character,
// which is kept here, rule out most of them.
class WildcardPattern {
 public:
  // The pattern of whoever does not mind: it covers everything.
  WildcardPattern() : WildcardPattern({}, Shape::Everything) {}
  explicit WildcardPattern(std::wstring_view pattern) : WildcardPattern(pattern, Shape::Any) {
    const bool startsWithStar = pattern.starts_with(kStar);
    const std::wstring_view literal = pattern.substr(startsWithStar ? 1 : 0);
    if (literal.empty() || support::findAny<kStar>(literal) != literal.size()) return;
    *this = {literal, startsWithStar ? Shape::StarAndSuffix : Shape::Name};
  }

  // Whether the pattern covers the whole text.
  bool matches(std::wstring_view text) const { return !rulesOut(text) && covers(text); }

  // Whether a first look tells that it does not.
  bool rulesOut(std::wstring_view text) const {
    if (shape() >= Shape::Any) return false;
    if (shape() == Shape::Name ? text.size() != length_ : text.size() < length_) return true;
    return differWhateverTheCase(static_cast<wchar_t>(first_), text[text.size() - length_]);
  }

 private:
  enum class Shape : std::uint8_t { Name, StarAndSuffix, Any, Everything };
  static constexpr wchar_t kStar = L'*';

  WildcardPattern(std::wstring_view literal, Shape shape)
      : literal_(literal.data()),
        length_(literal.size()),
        first_(literal.empty() || literal.front() > kNotAscii ? kNotAscii : literal.front()),
        shape_(static_cast<std::uint64_t>(shape)) {}

  Shape shape() const { return static_cast<Shape>(shape_); }
  std::wstring_view literal() const { return {literal_, length_}; }
  bool covers(std::wstring_view text) const;

  static constexpr wchar_t kNotAscii = 0x80;

  // Packed: with thousands of rules, the memory that they take is what takes the time.
  const wchar_t* literal_;  // what follows the star if the shape has one; otherwise the pattern
  std::uint64_t length_ : 48;
  std::uint64_t first_ : 8;  // the literal's first character if that is of ASCII
  std::uint64_t shape_ : 8;
};

inline WildcardPattern WildcardToRegex(std::wstring_view pattern) { return WildcardPattern(pattern); }

}  // namespace kiv::impl
