// A report on resolutions, in the form that its file's name asks for.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "common/redaction.h"
#include "resolve/report_sheets.h"

namespace kiv::tool {

// Whether a file of that name gets plain text instead of HTML.
bool isTextReport(std::wstring_view file);

// `sources` says what the settings of this machine are. `redaction` is null if names are shown.
std::string reportFor(std::wstring_view file, const std::vector<Resolution>& resolutions,
                      const std::vector<Sheet>& sources, Redaction* redaction);

}  // namespace kiv::tool
