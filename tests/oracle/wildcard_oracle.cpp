// Patterns of bypass rules, evaluated literally as the regular expressions that they are translated to.
#include "oracle/wildcard_oracle.h"

#include <optional>
#include <regex>

namespace kiv::test {

struct WildcardOracle::Expressions {
  std::wregex escaping{LR"(([\\\+\.\?\{\}\(\)\[\]\^\$\|]))", std::regex_constants::optimize};
  std::wregex star{LR"(\*)", std::regex_constants::optimize};
  // Of the last pattern.
  std::wstring pattern;
  std::optional<std::wregex> compiled;
};

WildcardOracle::WildcardOracle() : expressions_(std::make_unique<Expressions>()) {}
WildcardOracle::~WildcardOracle() = default;

std::wstring WildcardOracle::translate(std::wstring_view pattern) const {
  const std::wstring escaped = std::regex_replace(std::wstring(pattern), expressions_->escaping, L"\\$1");
  return std::regex_replace(escaped, expressions_->star, L".*");
}

bool WildcardOracle::matches(std::wstring_view pattern, std::wstring_view text) {
  std::optional<std::wregex>& compiled = expressions_->compiled;
  if (!compiled || expressions_->pattern != pattern) {
    compiled.emplace(translate(pattern), std::regex_constants::ECMAScript | std::regex_constants::icase |
                                             std::regex_constants::__polynomial);
    expressions_->pattern = pattern;
  }
  return std::regex_match(text.data(), text.data() + text.size(), *compiled);
}

}  // namespace kiv::test
