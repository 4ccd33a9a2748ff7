// Whether the process is about to end.
#include "loop/process.h"

#include "support/platform.h"

namespace kiv::session {
namespace {

using ShutdownInProgress = BYTE(WINAPI*)();

// Not in every toolchain's import libraries.
ShutdownInProgress findShutdownInProgress() noexcept {
  const HMODULE system = GetModuleHandleW(L"ntdll.dll");
  if (!system) return nullptr;
  return reinterpret_cast<ShutdownInProgress>(
      reinterpret_cast<void*>(GetProcAddress(system, "RtlDllShutdownInProgress")));
}

}  // namespace

bool processEnds() noexcept {
  const ShutdownInProgress shutdownInProgress = findShutdownInProgress();
  return shutdownInProgress && shutdownInProgress() != 0;
}

}  // namespace kiv::session
