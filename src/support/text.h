// Small operations on text that several modules need.
#pragma once

#include <array>
#include <cstddef>
#include <cwctype>
#include <string>
#include <string_view>

namespace kiv::support {

constexpr wchar_t kLastAscii = 0x7F;

// What the C library says of a character, without asking it where every locale of Windows gives one answer.

inline bool isSpace(wchar_t c) { return (c <= L' ' || c >= kLastAscii) && std::iswspace(c) != 0; }

inline bool isDigit(wchar_t c) { return (c >= L'0' && c <= L'9') || (c > kLastAscii && std::iswdigit(c) != 0); }

inline wchar_t toLower(wchar_t c) {
  if (c > kLastAscii) return static_cast<wchar_t>(std::towlower(c));
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

// Lower-cases every character.
std::wstring toLower(std::wstring_view text);

// Drops white space, as the C library classifies it, at both ends.
inline std::wstring_view trim(std::wstring_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

// What stands in front of the first NUL; the whole text if it holds none.
template <class Character>
constexpr std::basic_string_view<Character> upToNul(std::basic_string_view<Character> text) {
  return text.substr(0, text.find(Character()));
}

// A number in plain decimal digits.
class Decimal {
 public:
  explicit Decimal(int number);
  std::wstring_view view() const { return {digits_.data(), length_}; }

 private:
  std::array<wchar_t, 11> digits_;  // as many as the smallest number has, with its sign
  std::size_t length_;
};

}  // namespace kiv::support
