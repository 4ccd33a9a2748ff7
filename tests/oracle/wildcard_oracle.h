// Patterns of bypass rules, evaluated literally as the regular expressions that they are translated to.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace kiv::test {

// Classifies characters by the locale that is global when it is made.
class WildcardOracle {
 public:
  WildcardOracle();
  ~WildcardOracle();
  WildcardOracle(const WildcardOracle&) = delete;
  WildcardOracle& operator=(const WildcardOracle&) = delete;

  // The regular expression that a pattern stands for.
  std::wstring translate(std::wstring_view pattern) const;
  // Whether the pattern covers the whole text. Fast when called with the same pattern again.
  bool matches(std::wstring_view pattern, std::wstring_view text);

 private:
  struct Expressions;
  std::unique_ptr<Expressions> expressions_;
};

}  // namespace kiv::test
