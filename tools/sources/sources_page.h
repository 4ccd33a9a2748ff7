// Sources as one self-contained HTML page, without scripts.
#pragma once

#include <string>

#include "common/redaction.h"
#include "sources/sources.h"

namespace kiv::tool {

// `redaction` is null if names are shown.
std::string sourcesPage(const Sources& sources, const Redaction* redaction);

}  // namespace kiv::tool
