// Results for programs: a JSON document, which docs/kiv-selfcheck.schema.json describes. It is a baseline too.
#pragma once

#include <string>

#include "results/results.h"

namespace selfcheck {

std::string jsonText(const Results& results);

}  // namespace selfcheck
