// A report on resolutions: one self-contained HTML page, without scripts.
#pragma once

#include <string>
#include <vector>

#include "common/redaction.h"
#include "resolve/report_sheets.h"

namespace kiv::tool {

// `redaction` is null if names are shown.
std::string htmlReport(const std::vector<Resolution>& resolutions, const std::vector<Sheet>& sources,
                       Redaction* redaction);

}  // namespace kiv::tool
