// Failures of the system, as the exception that they are inside the session.
#pragma once

#include "support/platform.h"

namespace kiv::session {

struct SystemError {
  DWORD code;
};

// To be called on the line after the call that failed.
[[noreturn]] inline void throwLastError() { throw SystemError{GetLastError()}; }

}  // namespace kiv::session
