// Small operations on text that several rooms need.
#pragma once

#include <string>
#include <string_view>

namespace kiv::support {

// Lower-cases every character as the C library does.
std::wstring toLower(std::wstring_view text);

// Drops white space, as the C library classifies it, at both ends.
std::wstring_view trim(std::wstring_view text);

// Writes a number in plain decimal digits.
std::wstring decimal(int number);

}  // namespace kiv::support
