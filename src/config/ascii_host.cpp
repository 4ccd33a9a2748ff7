// The ASCII form of host names.
#include "config/ascii_host.h"

#include <algorithm>

#include "support/platform.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

struct CharacterRange {
  wchar_t first;
  wchar_t last;
};

// What the conversion drops from a name: table B.1 of RFC 3454, which nameprep (RFC 3491) maps to nothing.
constexpr std::array kDropped = {
    CharacterRange{0x00AD, 0x00AD}, CharacterRange{0x034F, 0x034F}, CharacterRange{0x1806, 0x1806},
    CharacterRange{0x180B, 0x180D}, CharacterRange{0x200B, 0x200D}, CharacterRange{0x2060, 0x2060},
    CharacterRange{0xFE00, 0xFE0F}, CharacterRange{0xFEFF, 0xFEFF},
};

bool isKept(wchar_t c) {
  return std::ranges::none_of(kDropped, [c](CharacterRange range) { return c >= range.first && c <= range.last; });
}

// Whether a host is too long to have an ASCII form. Unicode's normalization makes one character of at most four, and
// each takes at least one in the ASCII form. Such a host must not reach the system: Wine's conversion takes time that
// grows with the square of the length, minutes for a host of a million characters.
bool isTooLong(std::wstring_view host) {
  constexpr std::size_t kMostKept = 4 * AsciiHost::kLongest;
  return host.size() > kMostKept && static_cast<std::size_t>(std::ranges::count_if(host, isKept)) > kMostKept;
}

}  // namespace

AsciiHost::AsciiHost(std::wstring_view host) noexcept {
  if (isTooLong(host)) return;
  const int length = IdnToAscii(0, host.data(), static_cast<int>(host.size()), characters_.data(),
                                static_cast<int>(characters_.size()));
  length_ = support::upToNul(std::wstring_view(characters_.data(), static_cast<std::size_t>(length))).size();
}

}  // namespace kiv::impl
