// The second look at a resolution: each route that was tested, and the PAC script, with requests of the tool's own.
#pragma once

#include <vector>

#include "resolve/display.h"
#include "resolve/request_options.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// Probes what `resolution` found for `target`.
ProbeFindings probed(const RequestOptions& options, const Target& target, const Resolution& resolution,
                     Display& display);

// Marks the probes of hosts whose TLS connections are likely inspected on some route.
void findInspection(std::vector<Resolution>& resolutions);

}  // namespace kiv::tool
