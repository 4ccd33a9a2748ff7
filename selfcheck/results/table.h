// Results as text for a console.
#pragma once

#include <string>

#include "results/results.h"

namespace selfcheck {

std::string titleText(std::string_view title);
// With what was expected, if that is something else.
std::string lineText(const Result& result, bool compared);
std::string summaryText(const Results& results);

}  // namespace selfcheck
