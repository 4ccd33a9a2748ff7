// Results as one self-contained HTML page, without scripts.
#pragma once

#include <string>

#include "results/results.h"

namespace selfcheck {

std::string pageText(const Results& results);

}  // namespace selfcheck
