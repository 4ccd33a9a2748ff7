// Sources for programs: a JSON document, which docs/kiv-resolve.schema.json describes.
#pragma once

#include <string>
#include <string_view>

#include "sources/sources.h"

namespace kiv::tool {

std::string sourcesDocument(const Sources& sources, bool redacted);

std::string_view idOf(PlaceState state);  // "nothing-there"

}  // namespace kiv::tool
