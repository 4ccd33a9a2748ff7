// The encodings that credentials have in a header.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "config/secure_string.h"

namespace kiv::session {

using SecureBytes = std::vector<std::uint8_t, impl::WipingAllocator<std::uint8_t>>;

// UTF-8; half a surrogate pair is written as U+FFFD. All of these throw std::bad_alloc.
void appendUtf8(std::wstring_view text, SecureBytes& bytes);
// Base64 (RFC 4648, 4), with padding.
void appendBase64(std::span<const std::uint8_t> bytes, impl::SecureWideBuffer& text);
// Nothing for a text that is not base64, or whose padding is not whole.
std::optional<std::vector<std::uint8_t>> fromBase64(std::wstring_view text);

}  // namespace kiv::session
