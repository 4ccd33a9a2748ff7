// The commands of kiv-resolve. Each reads its own command line, does what it says, and returns the exit code.
#pragma once

#include <span>
#include <string_view>

#include "common/command_line.h"

namespace kiv::tool {

struct Command {
  std::wstring_view name;
  int (*run)(ArgumentList arguments);
};

int resolveCommand(ArgumentList arguments);
int envCommand(ArgumentList arguments);
int execCommand(ArgumentList arguments);
int pacCommand(ArgumentList arguments);
int watchCommand(ArgumentList arguments);

// Not a command by name: what --completion does, for all commands.
int completionCommand(ArgumentList arguments, std::span<const Command> commands);

}  // namespace kiv::tool
