// What a console takes as a change of colour ("Console Virtual Terminal Sequences" in Microsoft's documentation).
#pragma once

namespace kiv::tool {

inline constexpr const wchar_t* kRed = L"\x1b[31m";
inline constexpr const wchar_t* kGreen = L"\x1b[32m";
inline constexpr const wchar_t* kYellow = L"\x1b[33m";
inline constexpr const wchar_t* kGrey = L"\x1b[90m";
inline constexpr const wchar_t* kBold = L"\x1b[1m";
inline constexpr const wchar_t* kPlain = L"\x1b[0m";

}  // namespace kiv::tool
