// Patterns of bypass rules, evaluated literally as the regular expressions that they are translated to.
#include "oracle/wildcard_oracle.h"

#include <cstdint>
#include <optional>
#include <regex>

#include "oracle/whole_match.h"

namespace kiv::test {
namespace {

// The standard library tells special characters by narrowing them, and on Windows a full-width star narrows to a star.
// The escape of a character leaves no doubt that it stands for itself.
std::wstring unmistakable(std::wstring_view expression) {
  constexpr std::wstring_view digits = L"0123456789ABCDEF";
  std::wstring text;
  for (const wchar_t c : expression) {
    const auto code = static_cast<std::uint32_t>(c);
    if (code < 0x80 || code > 0xFFFF) {
      text += c;
    } else {
      text += L"\\u";
      for (const int shift : {12, 8, 4, 0}) text += digits[code >> shift & 0xF];
    }
  }
  return text;
}

}  // namespace

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
    compiled.emplace(unmistakable(translate(pattern)), std::regex_constants::ECMAScript | std::regex_constants::icase |
                                                           std::regex_constants::__polynomial);
    expressions_->pattern = pattern;
  }
  return matchesWhole(text, *compiled);
}

}  // namespace kiv::test
