// The system's own words for its error codes.
#pragma once

#include <string>

namespace kiv::tool {

// "The system cannot find the file specified", without the full stop; "error 4711" if the system has no text.
std::wstring systemText(unsigned long error);

}  // namespace kiv::tool
