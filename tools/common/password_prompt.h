// Asks for a password at the console.
#pragma once

#include <optional>
#include <string_view>

#include "common/wiped.h"

namespace kiv::tool {

// Shows `prompt` at the console and reads one line without showing what is typed, also when standard input, output and
// error are redirected. Nothing if the process has no console, or after Ctrl-C.
std::optional<Wiped<wchar_t>> readPassword(std::wstring_view prompt);

}  // namespace kiv::tool
