// A report on resolutions, in the form that its file's name asks for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/redaction.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// Plain text for FILE.txt, else HTML. `redaction` is null if names are shown.
std::string reportFor(std::wstring_view file, const std::vector<Resolution>& resolutions, Redaction* redaction);

}  // namespace kiv::tool
