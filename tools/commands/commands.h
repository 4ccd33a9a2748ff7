// The commands of kiv-resolve. Each reads its own command line, does what it says, and returns the exit code.
#pragma once

#include "common/command_line.h"

namespace kiv::tool {

int resolveCommand(ArgumentList arguments);
int envCommand(ArgumentList arguments);
int execCommand(ArgumentList arguments);

}  // namespace kiv::tool
