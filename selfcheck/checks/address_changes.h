// Whether the system would say that the machine's addresses have changed.
#pragma once

#include <cstdint>

namespace selfcheck {

enum class Registration : std::uint8_t { Failed, Silent, Reported };

// A change itself needs an administrator. The registration's own first report, which the documentation of
// NotifyUnicastIpAddressChange promises, comes the same way.
Registration registerForAddressChanges();

}  // namespace selfcheck
