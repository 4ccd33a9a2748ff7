// Small operations on text that several rooms need.
#include "support/text.h"

#include <algorithm>

namespace kiv::support {

std::wstring toLower(std::wstring_view text) {
  std::wstring lower(text);
  std::ranges::transform(lower, lower.begin(), [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
  return lower;
}

std::wstring_view trim(std::wstring_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::wstring decimal(int number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

}  // namespace kiv::support
