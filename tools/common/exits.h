// The exit codes that the commands share, and what is said before one of them.
#pragma once

#include <string>

#include "common/command_line.h"

namespace kiv::tool {

constexpr int kDone = 0;
constexpr int kNoneFound = 2;
constexpr int kOutOfResources = 71;
constexpr int kFileNotWritten = 74;

void complain(const std::wstring& problem);

// Prints the text of an exit, and returns its code.
int leave(const Exit& exit);

}  // namespace kiv::tool
