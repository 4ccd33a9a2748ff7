// What probes found, for programs: a part of the JSON document.
#pragma once

#include <nlohmann/json.hpp>

#include "probe/findings.h"

namespace kiv::tool {

nlohmann::ordered_json probeJson(const ProbeFindings& probe);

}  // namespace kiv::tool
