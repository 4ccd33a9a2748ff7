// kiv-resolve: diagnoses how the current user reaches URLs, with kiv.dll.
#include <algorithm>
#include <exception>
#include <string_view>

#include "commands/commands.h"
#include "common/console.h"
#include "common/exits.h"

namespace {

using namespace kiv::tool;

constexpr Command kCommands[] = {
    {L"resolve", resolveCommand},
    {L"pac", pacCommand},
    {L"watch", watchCommand},
    {L"env", envCommand},
    {L"exec", execCommand},
};

// The first argument may be a command. Anything else is for `resolve`.
int run(ArgumentList arguments) {
  const std::wstring_view first = arguments.empty() ? L"" : arguments.front();
  if (first == L"--completion") return completionCommand(arguments.subspan(1), kCommands);
  const auto* const command = std::ranges::find(kCommands, first, &Command::name);
  return command == std::ranges::end(kCommands) ? resolveCommand(arguments) : command->run(arguments.subspan(1));
}

}  // namespace

int wmain(int count, wchar_t** arguments) try {
  return run({arguments + std::min(count, 1), arguments + count});
} catch (const std::exception& failure) {
  complain(L"cannot continue: " + toWide(failure.what()));
  return kOutOfResources;
}
