// What ASCII says of a character, of either width: names of programs, hosts and headers are compared by that alone.
#pragma once

namespace kiv::tool {

template <typename Char>
constexpr bool isAsciiDigit(Char c) {
  return c >= Char{'0'} && c <= Char{'9'};
}

template <typename Char>
constexpr bool isAsciiCapital(Char c) {
  return c >= Char{'A'} && c <= Char{'Z'};
}

template <typename Char>
constexpr Char asciiLower(Char c) {
  return isAsciiCapital(c) ? static_cast<Char>(c - Char{'A'} + Char{'a'}) : c;
}

template <typename Char>
constexpr bool isAsciiLetter(Char c) {
  const Char small = asciiLower(c);
  return small >= Char{'a'} && small <= Char{'z'};
}

constexpr bool isBase64(wchar_t c) {
  return isAsciiDigit(c) || isAsciiLetter(c) || c == L'+' || c == L'/' || c == L'=';
}

}  // namespace kiv::tool
