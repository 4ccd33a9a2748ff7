// Resolutions for programs: one JSON document, whose form docs/kiv-resolve.schema.json describes, and a trace line.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "resolution.h"

namespace kiv::tool {

std::string jsonDocument(Task task, const std::vector<Resolution>& resolutions);

// A log record as one line: when, how grave, for which URL, what.
std::string traceLine(const Resolution& resolution, const Record& record);

}  // namespace kiv::tool
