// What Windows returns to programs that ask for the proxy settings.
#pragma once

#include <vector>

#include "sources/place.h"

namespace kiv::tool {

constexpr const char* kUserCall = "call-user";
constexpr const char* kMachineCall = "call-machine";

// For the current user, which kiv.dll asks for, and for WinHTTP's default proxy.
std::vector<Place> readCalls();

}  // namespace kiv::tool
