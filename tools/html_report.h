// A report on resolutions as one HTML page that needs nothing else: no network, no script.
#pragma once

#include <string>
#include <vector>

#include "resolution.h"

namespace kiv::tool {

std::string htmlReport(const std::vector<Resolution>& resolutions);

}  // namespace kiv::tool
