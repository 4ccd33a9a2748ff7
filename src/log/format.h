// Printf-style formatting into a text of just the needed size.
#pragma once

#include <string>

#include "support/platform.h"

namespace kiv::impl {

// The library's messages use "%d" (int), "%lu" (unsigned long) and "%ls" (const wchar_t*).
std::wstring format(const wchar_t* text, ...);

// The line of a failed system call: "<call> failed. ErrorCode = <error>".
std::wstring failureOf(const wchar_t* call, DWORD error);

}  // namespace kiv::impl
