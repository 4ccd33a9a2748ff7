// Looking for one of a few characters, in the texts of which a resolution reads many.
#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <string_view>

namespace kiv::support {

// As many characters as the processor compares at once: every x64 processor has these instructions.
constexpr std::size_t kBlockLength = sizeof(__m128i) / sizeof(wchar_t);

inline __m128i whereEqual(__m128i block, wchar_t wanted) {
  if constexpr (sizeof(wchar_t) == sizeof(short)) {
    return _mm_cmpeq_epi16(block, _mm_set1_epi16(static_cast<short>(wanted)));
  } else {
    return _mm_cmpeq_epi32(block, _mm_set1_epi32(static_cast<int>(wanted)));
  }
}

// The bytes of a block that belong to one of `kWanted`, a bit for each.
template <wchar_t... kWanted>
unsigned bytesOfAny(const wchar_t* characters) {
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(characters));
  __m128i found = _mm_setzero_si128();
  ((found = _mm_or_si128(found, whereEqual(block, kWanted))), ...);
  return static_cast<unsigned>(_mm_movemask_epi8(found));
}

// Where the first of `kWanted` is in a text; the text's length if none of them is.
template <wchar_t... kWanted>
std::size_t findAny(std::wstring_view text) {
  const auto first = [](unsigned bytes) { return static_cast<std::size_t>(std::countr_zero(bytes)) / sizeof(wchar_t); };
  std::size_t at = 0;
  for (; at + kBlockLength <= text.size(); at += kBlockLength) {
    if (const unsigned bytes = bytesOfAny<kWanted...>(text.data() + at)) return at + first(bytes);
  }
  // What is left is looked at together with what is in front of it, unless the whole text is that short.
  if (text.size() >= kBlockLength) {
    const std::size_t lastBlock = text.size() - kBlockLength;
    const unsigned bytes = bytesOfAny<kWanted...>(text.data() + lastBlock);
    return bytes ? lastBlock + first(bytes) : text.size();
  }
  const auto wanted = [](wchar_t c) { return (... || (c == kWanted)); };
  return static_cast<std::size_t>(std::ranges::find_if(text, wanted) - text.begin());
}

}  // namespace kiv::support
