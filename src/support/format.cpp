// Printf-style formatting into a text of just the needed size.
#include "support/format.h"

#include <algorithm>
#include <charconv>

namespace kiv::support {
namespace {

constexpr std::array<std::wstring_view, 3> kConversions = {L"%d", L"%lu", L"%ls"};
constexpr std::wstring_view kPercent = L"%%";

// The length of the conversion at the start of a text; 0 if there is none.
std::size_t conversionLength(std::wstring_view text) {
  for (const std::wstring_view conversion : kConversions) {
    if (text.starts_with(conversion)) return conversion.size();
  }
  return 0;
}

// Calls `visit` with each piece of the result, in order.
template <class Visit>
void forEachPiece(std::wstring_view text, std::initializer_list<FormatArgument> arguments, Visit visit) {
  const FormatArgument* next = arguments.begin();
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find(L'%'), text.size());
    visit(text.substr(0, plain));
    text.remove_prefix(plain);
    const std::size_t length = conversionLength(text);
    if (length > 0 && next != arguments.end()) {
      visit((next++)->view());
      text.remove_prefix(length);
    } else if (!text.empty()) {
      visit(text.substr(0, 1));
      text.remove_prefix(text.starts_with(kPercent) ? kPercent.size() : 1);
    }
  }
}

}  // namespace

template <class Number>
void FormatArgument::write(Number number) {
  std::array<char, std::tuple_size_v<decltype(digits_)>> digits;
  const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  length_ = static_cast<std::size_t>(end - digits.data());
  std::copy_n(digits.begin(), length_, digits_.begin());
}

FormatArgument::FormatArgument(int number) { write(number); }
FormatArgument::FormatArgument(unsigned long number) { write(number); }

std::wstring format(std::wstring_view text, std::initializer_list<FormatArgument> arguments) {
  std::size_t length = 0;
  forEachPiece(text, arguments, [&](std::wstring_view piece) { length += piece.size(); });
  std::wstring result;
  result.reserve(length);
  forEachPiece(text, arguments, [&](std::wstring_view piece) { result += piece; });
  return result;
}

std::wstring failureOf(const wchar_t* call, DWORD error) {
  return format(L"%ls failed. ErrorCode = %lu", call, static_cast<unsigned long>(error));
}

}  // namespace kiv::support
