// kiv-resolve: diagnoses how the current user reaches URLs, with kiv.dll.
#include <algorithm>
#include <exception>
#include <string_view>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"

namespace {

using namespace kiv::tool;

// The first argument may be a command. Anything else is for the first command, `resolve`.
int run(ArgumentList arguments) {
  const std::wstring_view first = arguments.empty() ? L"" : arguments.front();
  if (first == L"--completion") return completionCommand(arguments.subspan(1));
  const auto known = commands();
  const auto command = std::ranges::find(known, first, &Command::name);
  return command == known.end() ? known.front().run(arguments) : command->run(arguments.subspan(1));
}

}  // namespace

int wmain(int count, wchar_t** arguments) try {
  return run({arguments + std::min(count, 1), arguments + count});
} catch (const std::exception& failure) {
  complain(L"cannot continue: " + toWide(failure.what()));
  return kOutOfResources;
}
