// Patterns of bypass rules: literal text in which "*" stands for any characters.
#pragma once

#include <string>
#include <string_view>

namespace kiv::impl {

// A compiled pattern. Matching ignores case and takes, at worst, the product of both lengths in time and no memory.
class WildcardPattern {
 public:
  explicit WildcardPattern(std::wstring_view pattern);

  // Whether the pattern covers the whole text.
  bool matches(std::wstring_view text) const;

 private:
  std::wstring pattern_;  // in lower case
};

WildcardPattern WildcardToRegex(std::wstring_view pattern);

}  // namespace kiv::impl
