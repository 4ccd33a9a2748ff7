// The report that --report writes after resolutions: what they found, and what this machine's settings say.
#pragma once

#include <vector>

#include "common/command_line.h"
#include "common/output_files.h"
#include "resolve/request_options.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// Does nothing if no report is wanted. Reads the sources of proxies, which asks the network.
void writeReport(OutputFiles& files, const RequestOptions& options, std::vector<Resolution> resolutions);

}  // namespace kiv::tool
