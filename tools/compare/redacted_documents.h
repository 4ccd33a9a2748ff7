// Two documents without names, addresses and queries, for strangers. The same name is the same word in both.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "common/redaction.h"

namespace kiv::tool {

// Of documents that are not nested deeply.
void redact(nlohmann::ordered_json& left, nlohmann::ordered_json& right, Redaction& redaction);

}  // namespace kiv::tool
