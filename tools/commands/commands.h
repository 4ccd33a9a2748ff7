// The commands of kiv-resolve. Each reads its own command line, does what it says, and returns the exit code.
#pragma once

#include <span>
#include <string_view>

#include "common/command_line.h"

namespace kiv::tool {

struct Command {
  std::wstring_view name;
  std::wstring_view use;  // for --help
  int (*run)(ArgumentList arguments);
};

// All of them, in the order of --help. The first is the one that is meant without a name.
std::span<const Command> commands();

int resolveCommand(ArgumentList arguments);
int sourcesCommand(ArgumentList arguments);
int compareCommand(ArgumentList arguments);
int envCommand(ArgumentList arguments);
int execCommand(ArgumentList arguments);
int pacCommand(ArgumentList arguments);
int watchCommand(ArgumentList arguments);

// Not a command by name: what --completion does, for all commands.
int completionCommand(ArgumentList arguments);

}  // namespace kiv::tool
