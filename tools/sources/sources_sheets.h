// Sources as names and values, for the page of `sources` and for reports on resolutions.
#pragma once

#include <vector>

#include "resolve/report_sheets.h"
#include "sources/sources.h"

namespace kiv::tool {

// Warnings and notes, what applies, PAC scripts, lists that are read differently, and the places.
std::vector<Sheet> sourcesSheets(const Sources& sources);

Sheet sourcesTargetSheet(const Resolution& resolution);
Sheet programsSheet();

}  // namespace kiv::tool
