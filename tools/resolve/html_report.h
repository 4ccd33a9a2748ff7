// A report on resolutions: one self-contained HTML page, without scripts.
#pragma once

#include <string>
#include <vector>

#include "resolve/resolution.h"

namespace kiv::tool {

std::string htmlReport(const std::vector<Resolution>& resolutions);

}  // namespace kiv::tool
