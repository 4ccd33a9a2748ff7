// Patterns of bypass rules: literal text in which "*" stands for any characters.
#pragma once

#include <cstdint>
#include <string_view>

namespace kiv::impl {

// A pattern, which points into the text that it was made of. Matching ignores case and takes, at worst, the product of
// both lengths in time and no memory.
class WildcardPattern {
 public:
  // Covers every text, line ends included, which no pattern of stars covers.
  WildcardPattern() = default;
  explicit WildcardPattern(std::wstring_view pattern);

  // Whether the pattern covers the whole text.
  bool matches(std::wstring_view text) const;

 private:
  // Nearly all patterns of real lists are a name, or a star and a suffix. Those are compared and need no search.
  enum class Shape : std::uint8_t { Everything, Name, StarAndSuffix, General };

  Shape shape_ = Shape::Everything;
  std::wstring_view literal_;  // the name or the suffix; the whole pattern if it is a general one
};

// Gives the matcher of a pattern, which does what the regular expression at the top of wildcard.cpp would.
inline WildcardPattern WildcardToRegex(std::wstring_view pattern) { return WildcardPattern(pattern); }

}  // namespace kiv::impl
