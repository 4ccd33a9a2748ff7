// A report on resolutions as plain text, and the parts of it that the console shows.
#pragma once

#include <string>
#include <vector>

#include "common/redaction.h"
#include "resolve/report_sheets.h"

namespace kiv::tool {

// `redaction` is null if names are shown.
std::string textReport(const std::vector<Resolution>& resolutions, const std::vector<Sheet>& sources,
                       Redaction* redaction);

// What the probe found, and what to try next.
std::wstring probeText(const Resolution& resolution);

}  // namespace kiv::tool
