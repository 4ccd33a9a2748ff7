// Reads every place that can name a proxy. Nothing is changed.
#pragma once

#include <vector>

#include "sources/network.h"
#include "sources/place.h"
#include "sources/registry.h"

namespace kiv::tool {

// A program's environment: names and values as they are.
using Environment = std::vector<PlaceValue>;

// That of this process.
Environment processEnvironment();

// In the order of the table in places.cpp, each VPN connection after the user's settings. `network` is asked for the
// PAC scripts that automatic detection (WPAD) finds.
std::vector<Place> readPlaces(const Registry& registry, const Environment& process, const Network& network);

// Null if there is none.
const Place* placeWith(const std::vector<Place>& places, std::string_view id);

}  // namespace kiv::tool
