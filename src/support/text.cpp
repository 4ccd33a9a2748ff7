// Small operations on text that several modules need.
#include "support/text.h"

#include <algorithm>
#include <charconv>

namespace kiv::support {

std::wstring toLower(std::wstring_view text) {
  std::wstring lower(text);
  std::ranges::transform(lower, lower.begin(), [](wchar_t c) { return toLower(c); });
  return lower;
}

Decimal::Decimal(int number) {
  std::array<char, std::tuple_size_v<decltype(digits_)>> digits;
  char* const begin = digits.data();
  char* const end = std::to_chars(begin, begin + digits.size(), number).ptr;
  std::copy(begin, end, digits_.begin());
  length_ = static_cast<std::size_t>(end - begin);
}

}  // namespace kiv::support
