// Conversion of text: the code page of the simulated system, which is UTF-8, and names of hosts to ASCII.
#include <algorithm>
#include <cstring>
#include <cwchar>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr bool kSurrogates = sizeof(wchar_t) == 2;

bool isSurrogate(char32_t point) { return point >= 0xD800 && point < 0xE000; }

// Takes one code point off the front.
char32_t takePoint(std::wstring_view& wide) {
  const auto unit = [&](std::size_t at) {
    return static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(wide[at]));
  };
  char32_t point = unit(0);
  std::size_t taken = 1;
  if (kSurrogates && point >= 0xD800 && point < 0xDC00 && wide.size() > 1 && unit(1) >= 0xDC00 && unit(1) < 0xE000) {
    point = 0x10000 + ((point - 0xD800) << 10) + (unit(1) - 0xDC00);
    taken = 2;
  }
  wide.remove_prefix(taken);
  return isSurrogate(point) || point > 0x10FFFF ? kReplacement : point;
}

void appendNarrow(std::string& narrow, char32_t point) {
  const auto byte = [&](char32_t value) { narrow.push_back(static_cast<char>(static_cast<unsigned char>(value))); };
  const auto tail = [&](int shift) { byte(0x80 | ((point >> shift) & 0x3F)); };
  if (point < 0x80) return byte(point);
  if (point < 0x800) {
    byte(0xC0 | (point >> 6));
  } else if (point < 0x10000) {
    byte(0xE0 | (point >> 12));
    tail(6);
  } else {
    byte(0xF0 | (point >> 18));
    tail(12);
    tail(6);
  }
  tail(0);
}

char32_t takePoint(std::string_view& narrow) {
  const auto unit = [&](std::size_t at) { return static_cast<char32_t>(static_cast<unsigned char>(narrow[at])); };
  const char32_t lead = unit(0);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length == 1) {
    narrow.remove_prefix(1);
    return lead;
  }
  char32_t point = length ? lead & (0x7F >> length) : kReplacement;
  std::size_t taken = 1;
  for (; taken < length; ++taken) {
    if (taken >= narrow.size() || (unit(taken) & 0xC0) != 0x80) break;
    point = (point << 6) | (unit(taken) & 0x3F);
  }
  const bool whole = length != 0 && taken == length;
  narrow.remove_prefix(taken);
  return whole && !isSurrogate(point) && point <= 0x10FFFF ? point : kReplacement;
}

void appendWide(std::wstring& wide, char32_t point) {
  if (kSurrogates && point >= 0x10000) {
    wide.push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)));
    point = 0xDC00 + ((point - 0x10000) & 0x3FF);
  }
  wide.push_back(static_cast<wchar_t>(point));
}

// Hands out a result by the rules of the conversion functions: no capacity means that the size is asked for.
template <class Character>
int handOut(Entry& call, std::basic_string_view<Character> result, Character* buffer, int size, DWORD tooSmall) {
  const int needed = static_cast<int>(result.size());
  if (size == 0) return call.succeed(needed);
  if (!buffer) return call.fail(ERROR_INVALID_PARAMETER, 0);
  if (needed > size) return call.fail(tooSmall, 0);
  std::ranges::copy(result, buffer);
  return call.succeed(needed);
}

// The bias of RFC 3492, section 6.1.
std::uint32_t adapt(std::uint32_t delta, std::uint32_t points, bool first) {
  delta = first ? delta / 700 : delta / 2;
  delta += delta / points;
  std::uint32_t k = 0;
  for (; delta > 455; k += 36) delta /= 35;
  return k + 36 * delta / (delta + 38);
}

char punycodeDigit(std::uint32_t digit) { return static_cast<char>(digit < 26 ? 'a' + digit : '0' + (digit - 26)); }

void appendDelta(std::string& output, std::uint32_t delta, std::uint32_t bias) {
  for (std::uint32_t k = 36;; k += 36) {
    const std::uint32_t threshold = k <= bias ? 1 : std::min(k - bias, 26U);
    if (delta < threshold) break;
    output.push_back(punycodeDigit(threshold + (delta - threshold) % (36 - threshold)));
    delta = (delta - threshold) / (36 - threshold);
  }
  output.push_back(punycodeDigit(delta));
}

// RFC 3492, section 6.3. A label is short, which is why the search for the next code point may be simple.
std::string punycode(const std::u32string& label) {
  std::string output;
  for (const char32_t point : label) {
    if (point < 0x80) output.push_back(static_cast<char>(point));
  }
  const auto basic = static_cast<std::uint32_t>(output.size());
  std::uint32_t handled = basic, delta = 0, bias = 72;
  char32_t next = 0x80;
  if (basic) output.push_back('-');
  while (handled < label.size()) {
    char32_t smallest = 0x10FFFF;
    for (const char32_t point : label) smallest = point >= next ? std::min(smallest, point) : smallest;
    delta += static_cast<std::uint32_t>(smallest - next) * (handled + 1);
    next = smallest;
    for (const char32_t point : label) {
      if (point < next) ++delta;
      if (point != next) continue;
      appendDelta(output, delta, bias);
      bias = adapt(delta, handled + 1, handled == basic);
      delta = 0;
      ++handled;
    }
    ++delta;
    ++next;
  }
  return output;
}

bool isDot(wchar_t c) { return c == L'.' || c == L'\x3002' || c == L'\xFF0E' || c == L'\xFF61'; }

// What nameprep maps to nothing: RFC 3454, table B.1.
bool isDropped(wchar_t c) {
  return std::wstring_view(L"\x00AD\x034F\x1806\x180B\x180C\x180D\x200B\x200C\x200D\x2060\xFEFF").find(c) !=
             std::wstring_view::npos ||
         (c >= 0xFE00 && c <= 0xFE0F);
}

// Appends one label in ASCII; false if it is empty or too long.
bool appendLabel(std::wstring& name, std::wstring_view written) {
  std::wstring kept(written);
  std::erase_if(kept, isDropped);
  std::wstring_view label = kept;
  if (label.empty() || label.size() > 63) return false;
  if (std::ranges::all_of(label, [](wchar_t c) { return c > 0 && c < 0x80; })) {
    name.append(label);
    return true;
  }
  std::u32string points;
  while (!label.empty()) {
    const char32_t point = takePoint(label);
    points.push_back(point >= U'A' && point <= U'Z' ? point + 32 : point);
  }
  const std::string encoded = "xn--" + punycode(points);
  name.append(encoded.begin(), encoded.end());
  return encoded.size() <= 63;
}

// Converts label by label; one dot at the end is kept.
std::optional<std::wstring> toAscii(std::wstring_view unicode) {
  std::wstring name;
  for (;;) {
    const auto dot = std::ranges::find_if(unicode, isDot);
    const auto length = static_cast<std::size_t>(dot - unicode.begin());
    if (!appendLabel(name, unicode.substr(0, length))) return std::nullopt;
    if (length == unicode.size()) return name;
    name.push_back(L'.');
    unicode.remove_prefix(length + 1);
    if (unicode.empty()) return name;
  }
}

}  // namespace

std::string toNarrow(std::wstring_view wide) {
  std::string narrow;
  while (!wide.empty()) appendNarrow(narrow, takePoint(wide));
  return narrow;
}

std::wstring toWide(std::string_view narrow) {
  std::wstring wide;
  while (!narrow.empty()) appendWide(wide, takePoint(narrow));
  return wide;
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wide, int wideLength, LPSTR narrow, int narrowSize,
                               LPCCH defaultCharacter, LPBOOL usedDefault) {
  Entry call("WideCharToMultiByte");
  call.number(L"codePage", codePage).flags(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), 0);
  if (!wide || wideLength == 0 || wideLength < -1 || narrowSize < 0) return call.fail(ERROR_INVALID_PARAMETER, 0);
  if (codePage == CP_UTF8 && (defaultCharacter || usedDefault)) return call.fail(ERROR_INVALID_PARAMETER, 0);
  if (usedDefault) *usedDefault = FALSE;
  // A length of -1 takes the terminator along.
  const std::size_t length = wideLength < 0 ? std::wcslen(wide) + 1 : static_cast<std::size_t>(wideLength);
  const std::wstring_view text(wide, length);
  call.text(L"text", text.substr(0, wideLength < 0 ? length - 1 : length)).number(L"size", std::uint64_t(narrowSize));
  const std::string result = toNarrow(text);
  return handOut<char>(call, result, narrow, narrowSize, ERROR_INSUFFICIENT_BUFFER);
}

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH narrow, int narrowLength, LPWSTR wide, int wideSize) {
  Entry call("MultiByteToWideChar");
  call.number(L"codePage", codePage).flags(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), 0);
  if (!narrow || narrowLength == 0 || narrowLength < -1 || wideSize < 0) return call.fail(ERROR_INVALID_PARAMETER, 0);
  const std::size_t length = narrowLength < 0 ? std::strlen(narrow) + 1 : static_cast<std::size_t>(narrowLength);
  const std::wstring result = toWide(std::string_view(narrow, length));
  call.text(L"text", std::wstring_view(result).substr(0, result.find(L'\0')));
  call.number(L"size", std::uint64_t(wideSize));
  return handOut<wchar_t>(call, result, wide, wideSize, ERROR_INSUFFICIENT_BUFFER);
}

int WINAPI IdnToAscii(DWORD flags, LPCWSTR unicode, int unicodeLength, LPWSTR ascii, int asciiSize) {
  Entry call("IdnToAscii");
  call.flags(L"flags", flags);
  if (!unicode || unicodeLength < -1 || asciiSize < 0) return call.fail(ERROR_INVALID_PARAMETER, 0);
  const std::wstring_view text(unicode,
                               unicodeLength < 0 ? std::wcslen(unicode) : static_cast<std::size_t>(unicodeLength));
  call.text(L"text", text).number(L"size", std::uint64_t(asciiSize));
  if (call.fault()) return call.fail(*call.fault(), 0);
  auto result = toAscii(text);
  if (!result) return call.fail(ERROR_INVALID_NAME, 0);
  if (unicodeLength < 0) result->push_back(L'\0');
  return handOut<wchar_t>(call, *result, ascii, asciiSize, ERROR_INVALID_NAME);
}
