// Decimal text to number, with limits of 32 bits whatever the width of the platform's `long`.
#pragma once

#include <cstdint>
#include <string_view>

namespace kiv::support {

// Reads what the C library reads as a decimal number at the start of `digits`.
// Throws std::invalid_argument ("invalid stoi argument") if that is nothing: some characters that the C library
// classifies as digits, it does not read as such. Throws std::out_of_range ("stoi argument out of range") beyond the
// signed 32-bit range.
std::int32_t toSigned32(std::wstring_view digits);

// The same for the unsigned 32-bit range; the texts name "stoul".
std::uint32_t toUnsigned32(std::wstring_view digits);

}  // namespace kiv::support
