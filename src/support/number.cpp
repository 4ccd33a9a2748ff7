// Decimal text to number, with limits of 32 bits whatever the width of the platform's `long`.
#include "support/number.h"

#include <cerrno>
#include <cwchar>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

namespace kiv::support {
namespace {

// The C library's reader of one width, and the two texts of its failures.
template <class Wide>
struct Reader {
  Wide (*read)(const wchar_t*, wchar_t**, int);
  const char* unreadable;
  const char* outOfRange;
};

// Reads a few digits of ASCII; nothing for any other text. Nearly every port is such a one, and is so spared the copy
// that the C library's reader needs, which expects a NUL behind the digits.
template <class Narrow>
std::optional<Narrow> shortNumber(std::wstring_view digits) {
  constexpr std::size_t kShort = 9;
  if (digits.empty() || digits.size() > kShort) return std::nullopt;
  Narrow value = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return std::nullopt;
    value = value * 10 + static_cast<Narrow>(digit - L'0');
  }
  return value;
}

template <class Narrow, class Wide>
Narrow toNumber(std::wstring_view digits, const Reader<Wide>& reader) {
  if (const std::optional<Narrow> number = shortNumber<Narrow>(digits)) return *number;
  const std::wstring text(digits);
  wchar_t* end = nullptr;
  errno = 0;
  const Wide value = reader.read(text.c_str(), &end, 10);
  if (end == text.c_str()) throw std::invalid_argument(reader.unreadable);
  using Limits = std::numeric_limits<Narrow>;
  if (errno == ERANGE || value < Limits::min() || value > Limits::max()) throw std::out_of_range(reader.outOfRange);
  return static_cast<Narrow>(value);
}

}  // namespace

std::int32_t toSigned32(std::wstring_view digits) {
  return toNumber<std::int32_t, long>(digits, {std::wcstol, "invalid stoi argument", "stoi argument out of range"});
}

std::uint32_t toUnsigned32(std::wstring_view digits) {
  return toNumber<std::uint32_t, unsigned long>(
      digits, {std::wcstoul, "invalid stoul argument", "stoul argument out of range"});
}

}  // namespace kiv::support
