// Resolutions for programs: a JSON document, which docs/kiv-resolve.schema.json describes, and trace lines.
#pragma once

#include <string>
#include <vector>

#include "resolve/choices.h"
#include "resolve/resolution.h"

namespace kiv::tool {

std::string jsonDocument(Task task, const std::vector<Resolution>& resolutions);

// A log record as one line: its time, level, URL and message.
std::string traceLine(const Resolution& resolution, const Record& record);

}  // namespace kiv::tool
