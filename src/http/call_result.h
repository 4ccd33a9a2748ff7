// How a call of the system ended.
#pragma once

#include "support/platform.h"

namespace kiv::impl {

struct [[nodiscard]] CallResult {
  bool succeeded = true;
  DWORD error = ERROR_SUCCESS;  // what the system said if it failed, which may be 0 even then

  static constexpr CallResult failed(DWORD error) { return {.succeeded = false, .error = error}; }
  bool operator==(const CallResult&) const = default;
};

}  // namespace kiv::impl
