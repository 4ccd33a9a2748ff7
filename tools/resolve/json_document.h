// Resolutions for programs: a JSON document, which docs/kiv-resolve.schema.json describes, and trace lines.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "resolve/choices.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// A document of a command, to which it may add members of its own, and its text.
nlohmann::ordered_json documentOf(std::string_view task, bool redacted, const std::vector<Resolution>& resolutions);
std::string textOf(const nlohmann::ordered_json& document);

std::string jsonDocument(Task task, bool redacted, const std::vector<Resolution>& resolutions);

// A log record as one line: its time, level, URL and message.
std::string traceLine(const Resolution& resolution, const Record& record);

}  // namespace kiv::tool
