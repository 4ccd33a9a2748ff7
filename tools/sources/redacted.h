// Sources without names, addresses and queries, for strangers.
#pragma once

#include "common/redaction.h"
#include "sources/sources.h"

namespace kiv::tool {

// The resolution is as its options said.
Sources redacted(Sources sources, Redaction& redaction);

}  // namespace kiv::tool
