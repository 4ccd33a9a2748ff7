// A report on resolutions: one self-contained HTML page, without scripts.
#pragma once

#include <string>
#include <vector>

#include "common/redaction.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// `redaction` is null if names are shown.
std::string htmlReport(const std::vector<Resolution>& resolutions, Redaction* redaction);

}  // namespace kiv::tool
