// What every fuzz target needs: the bytes as text, and a check that ends the run with its own words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kiv::fuzz {

// Ends the run, which is how a fuzzer learns of a finding.
inline void require(bool holds, const char* what) {
  if (holds) return;
  (void)std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// Reads the input piece by piece, so that one input can hold several texts.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), end_(data + size) {}

  // The bytes up to the next line feed, or all that is left.
  std::string line() {
    std::string bytes;
    while (data_ != end_ && *data_ != '\n') bytes += static_cast<char>(*data_++);
    if (data_ != end_) ++data_;
    return bytes;
  }
  std::wstring wideLine() { return widened(line()); }
  std::wstring wideRest() { return widened(std::string(data_, end_)); }
  std::string rest() { return {data_, end_}; }

 private:
  // Two-byte sequences of UTF-8 and three-byte ones become one character; every other byte is one as it stands.
  static std::wstring widened(const std::string& bytes) {
    std::wstring text;
    const auto at = [&](std::size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U; };
    const auto continues = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80U; };
    for (std::size_t i = 0; i < bytes.size();) {
      if ((at(i) & 0xE0U) == 0xC0U && continues(i + 1)) {
        text += static_cast<wchar_t>((at(i) & 0x1FU) << 6U | (at(i + 1) & 0x3FU));
        i += 2;
      } else if ((at(i) & 0xF0U) == 0xE0U && continues(i + 1) && continues(i + 2)) {
        text += static_cast<wchar_t>((at(i) & 0x0FU) << 12U | (at(i + 1) & 0x3FU) << 6U | (at(i + 2) & 0x3FU));
        i += 3;
      } else {
        text += static_cast<wchar_t>(at(i));
        i += 1;
      }
    }
    return text;
  }

  const std::uint8_t* data_;
  const std::uint8_t* end_;
};

}  // namespace kiv::fuzz
