// The exit codes that the commands share, and what is said before one of them.
#include "common/exits.h"

#include "common/console.h"

namespace kiv::tool {

void complain(const std::wstring& problem) { print(Stream::Error, L"kiv-resolve: " + problem + L"\n"); }

int leave(const Exit& exit) {
  print(exit.code == kDone ? Stream::Output : Stream::Error, toWide(exit.text));
  return exit.code;
}

}  // namespace kiv::tool
