// What the failure of a test request means, in a few words.
#pragma once

#include <string>
#include <string_view>

#include "resolve/resolution.h"

namespace kiv::tool {

// Empty for an unknown failure.
std::wstring_view meaningOf(const Request& request);

// The name and number of a Windows error code: "ERROR_WINHTTP_TIMEOUT (12002)". Of an unknown one: "error 4711".
std::wstring errorText(unsigned error);

}  // namespace kiv::tool
