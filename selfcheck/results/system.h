// Which Windows it is, without names of the machine.
#pragma once

#include <string>

namespace selfcheck {

// "10.0.26100", as it is and not as programs without a manifest are told.
std::string windowsVersion();
// "8.0"; empty on Windows.
std::string wineVersion();

}  // namespace selfcheck
