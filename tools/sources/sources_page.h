// Sources as one self-contained HTML page, without scripts.
#pragma once

#include <string>

#include "sources/sources.h"

namespace kiv::tool {

std::string sourcesPage(const Sources& sources);

}  // namespace kiv::tool
