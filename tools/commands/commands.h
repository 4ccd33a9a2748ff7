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

// For --help: how to make the file of another account.
inline constexpr std::string_view kAsAnotherAccount =
    "For the file of a service's account, in an administrator's console:\n"
    "  schtasks /create /tn kiv /ru \"NT AUTHORITY\\LocalService\" /sc once /st 00:00 ^\n"
    "    /tr \"cmd /c C:\\kiv\\kiv-resolve.exe sources --json > C:\\kiv\\out\\it.json\"\n"
    "  schtasks /run /tn kiv\n"
    "  schtasks /delete /tn kiv /f     (when it has ended)\n";

// Not a command by name: what --completion does, for all commands.
int completionCommand(ArgumentList arguments);

}  // namespace kiv::tool
