// What it means, in a few words, that a test request failed.
#pragma once

#include <string_view>

#include "resolution.h"

namespace kiv::tool {

// Empty for a failure that is not known.
std::wstring_view meaningOf(const Request& request);

}  // namespace kiv::tool
