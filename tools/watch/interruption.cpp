// Ctrl-C, Ctrl-Break and a closed window, as an event.
#include "watch/interruption.h"

#include "common/exits.h"

namespace kiv::tool {
namespace {

// How long the program may take for its own steps. A resolution cannot be cancelled, and may take longer.
constexpr DWORD kPatience = 1'000;

support::UniqueEvent interrupted;
support::UniqueEvent over;

// Windows calls it on a thread of its own. When the window is closed, it ends the process as soon as this returns.
BOOL WINAPI onInterrupt(DWORD /*event*/) {
  SetEvent(interrupted.get());
  if (WaitForSingleObject(over.get(), kPatience) == WAIT_TIMEOUT) ExitProcess(kDone);
  return TRUE;
}

support::UniqueEvent newEvent() { return support::UniqueEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)); }

}  // namespace

Interruption::Interruption() {
  interrupted = newEvent();
  over = newEvent();
  SetConsoleCtrlHandler(onInterrupt, TRUE);
}

Interruption::~Interruption() {
  SetEvent(over.get());
  SetConsoleCtrlHandler(onInterrupt, FALSE);
}

HANDLE Interruption::event() const { return interrupted.get(); }

}  // namespace kiv::tool
