// This DLL as a module of the process.
#pragma once

namespace kiv::support {

// Keeps the DLL loaded until the process ends; calling it again changes nothing. Two things would outlive the code that
// an application unloads: a notification of WinHTTP that is still returning from it, and an index of thread-local
// storage, which the C++ run-time takes at the first exception and never gives back. A process has 1,088 of those.
void keepLoaded() noexcept;

}  // namespace kiv::support
