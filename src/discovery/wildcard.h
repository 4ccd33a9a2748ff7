// Patterns of bypass rules: literal text in which "*" stands for any characters.
#pragma once

#include <cstdint>
#include <string_view>

namespace kiv::impl {

// A pattern, which points into the text that it was made of. Matching ignores case and takes, at worst, the product of
// both lengths in time and no memory.
class WildcardPattern {
 public:
  explicit WildcardPattern(std::wstring_view pattern);

  // Whether the pattern covers the whole text.
  bool matches(std::wstring_view text) const;

 private:
  enum class Shape : std::uint8_t { Name, StarAndSuffix, Any };

  std::wstring_view pattern_;
  Shape shape_ = Shape::Any;
};

WildcardPattern WildcardToRegex(std::wstring_view pattern);

}  // namespace kiv::impl
