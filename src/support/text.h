// Small operations on text that several rooms need.
#pragma once

#include <cwctype>
#include <string>
#include <string_view>

namespace kiv::support {

// Whether the C library classifies a character as white space; without asking it where every locale gives one answer.
inline bool isSpace(wchar_t c) {
  constexpr wchar_t kLastAscii = 0x7F;
  return (c <= L' ' || c >= kLastAscii) && std::iswspace(c) != 0;
}

// Lower-cases every character as the C library does.
std::wstring toLower(std::wstring_view text);

// Drops white space, as the C library classifies it, at both ends.
std::wstring_view trim(std::wstring_view text);

// Writes a number in plain decimal digits.
std::wstring decimal(int number);

}  // namespace kiv::support
