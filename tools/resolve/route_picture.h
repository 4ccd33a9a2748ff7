// The route of a resolution as a picture: settings, PAC script, bypass list, candidates.
#pragma once

#include "common/markup.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// Both forms of the picture: from left to right, and from top to bottom for narrow pages. The style shows one.
Markup routePicture(const Resolution& resolution);

}  // namespace kiv::tool
