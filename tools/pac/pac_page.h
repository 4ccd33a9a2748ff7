// The answers of PAC scripts as one self-contained HTML page, without scripts.
#pragma once

#include <string>

#include "pac/pac_result.h"

namespace kiv::tool {

// `redaction` is null if names are shown.
std::string pacPage(const PacResult& result, Redaction* redaction);

}  // namespace kiv::tool
