// Whether the process is about to end.
#pragma once

namespace kiv::session {

// At process exit the system has ended all other threads, wherever they were: a lock may be held for ever, and nothing
// that is waited for will come ("ExitProcess function").
bool processEnds() noexcept;

}  // namespace kiv::session
