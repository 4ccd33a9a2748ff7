// The encodings that credentials have in a header.
#include "credentials/base64.h"

#include <array>
#include <cstddef>
#include <type_traits>

namespace kiv::session {
namespace {

constexpr std::wstring_view kDigits = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr wchar_t kPadding = L'=';

constexpr std::uint32_t codeOf(wchar_t c) { return static_cast<std::make_unsigned_t<wchar_t>>(c); }
constexpr bool isHighSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool isLowSurrogate(std::uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The first code point of a text that is not empty, which is taken off it.
std::uint32_t takeCodePoint(std::wstring_view& text) {
  const auto first = codeOf(text.front());
  text.remove_prefix(1);
  if (isHighSurrogate(first) && !text.empty() && isLowSurrogate(codeOf(text.front()))) {
    const auto second = codeOf(text.front());
    text.remove_prefix(1);
    return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
  }
  return isHighSurrogate(first) || isLowSurrogate(first) ? 0xFFFD : first;
}

}  // namespace

void appendUtf8(std::wstring_view text, SecureBytes& bytes) {
  while (!text.empty()) {
    const std::uint32_t c = takeCodePoint(text);
    const int following = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr std::array<std::uint32_t, 4> kLeads = {0x00, 0xC0, 0xE0, 0xF0};
    bytes.push_back(static_cast<std::uint8_t>(kLeads[static_cast<std::size_t>(following)] | (c >> (6 * following))));
    for (int left = following - 1; left >= 0; --left) {
      bytes.push_back(static_cast<std::uint8_t>(0x80 | ((c >> (6 * left)) & 0x3F)));
    }
  }
}

void appendBase64(std::span<const std::uint8_t> bytes, impl::SecureWideBuffer& text) {
  text.reserve(text.size() + (bytes.size() + 2) / 3 * 4 + 1);
  for (; !bytes.empty(); bytes = bytes.subspan(bytes.size() < 3 ? bytes.size() : 3)) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (i < bytes.size() ? bytes[i] : 0U);
    for (std::size_t i = 0; i < 4; ++i) {
      text.push_back(i <= bytes.size() ? kDigits[group >> (6 * (3 - i)) & 0x3F] : kPadding);
    }
  }
}

std::optional<std::vector<std::uint8_t>> fromBase64(std::wstring_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  for (; padding < 2 && !text.empty() && text.back() == kPadding; ++padding) text.remove_suffix(1);
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t group = 0;
  int bits = 0;
  for (const wchar_t c : text) {
    const std::size_t digit = kDigits.find(c);
    if (digit == std::wstring_view::npos) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(digit);
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes.push_back(static_cast<std::uint8_t>(group >> bits));
  }
  return bytes;
}

}  // namespace kiv::session
