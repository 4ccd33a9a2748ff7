// A program to be started: where it is, its command line, and its run.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/command_line.h"
#include "common/wiped.h"

namespace kiv::tool {

// The full path of a program: of the name as given, or else with .exe, .com, .cmd or .bat. A name without a folder is
// looked for where Windows looks for programs, in the current folder last. Empty if there is none.
std::wstring findProgram(std::wstring_view name);

// Batch files are run by cmd, which reads their arguments in its own way.
bool isBatchFile(std::wstring_view path);

// An argument as CommandLineToArgvW and the C library of Visual C++ read it.
std::wstring quotedArgument(std::wstring_view argument);

struct CommandText {
  std::wstring application{};  // the full path of what is started
  std::wstring line{};
  std::wstring problem{};  // why the program cannot be run; empty if it can
};

// `commandProcessor` is the full path of cmd.exe. An argument is refused that could mean something else to cmd, or to a
// batch file that passes it on: with one of " % ! & | < > ^ or a line end.
CommandText commandTextOf(const std::wstring& program, ArgumentList arguments, const std::wstring& commandProcessor);

struct ProgramEnd {
  std::uint32_t exitCode = 0;
  std::uint32_t error = 0;  // of Windows, if it could not be started
};

// Runs a program in this process's console and with its standard streams, and waits for its end. Ctrl-C is for the
// program alone meanwhile.
ProgramEnd runProgram(const CommandText& command, Wiped<wchar_t> environmentBlock);

// What such an error means, with its name and number.
std::wstring startProblem(std::uint32_t error);

std::wstring pathOfCommandProcessor();

}  // namespace kiv::tool
