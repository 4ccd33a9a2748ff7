// The table of the commands.
#include "commands/commands.h"

namespace kiv::tool {

std::span<const Command> commands() {
  static constexpr Command kCommands[] = {
      {L"resolve", L"how this user reaches a URL (meant without a command)", resolveCommand},
      {L"sources", L"who asks, every place that names a proxy, and what applies", sourcesCommand},
      {L"env", L"lines to paste, so that a shell, git, npm, pip or curl go the same way", envCommand},
      {L"exec", L"runs a program with the result in its environment", execCommand},
      {L"pac", L"what a PAC script answers, and what differs from another", pacCommand},
      {L"watch", L"resolves again at each change, and says since when it works", watchCommand},
      {L"compare", L"what differs between two results, of machines, users or days", compareCommand},
  };
  return kCommands;
}

}  // namespace kiv::tool
