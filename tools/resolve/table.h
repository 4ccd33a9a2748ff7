// A resolution as text for a console: the table of its candidates, the settings, the list of candidates.
#pragma once

#include <string>

#include "resolve/resolution.h"

namespace kiv::tool {

// A remark if there is one, and the table unless there is no candidate.
std::wstring summaryText(const Resolution& resolution, bool coloured);
std::wstring settingsText(const Resolution& resolution);
// What the settings mean for the URL: whether the bypass list matches it, and the candidates.
std::wstring targetText(const Resolution& resolution);
// Each candidate on a line; DIRECT if none is needed.
std::wstring candidatesText(const Resolution& resolution);

}  // namespace kiv::tool
