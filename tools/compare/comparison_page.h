// A comparison as one self-contained HTML page, without scripts.
#pragma once

#include <string>

#include "compare/comparison.h"

namespace kiv::tool {

// `subject` names the documents. `redaction` is null if names are shown.
std::string comparisonPage(const Comparison& comparison, const std::wstring& subject, Redaction* redaction);

}  // namespace kiv::tool
