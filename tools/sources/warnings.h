// What is probably wrong with proxy settings, and what to do.
#pragma once

#include <string_view>
#include <vector>

#include "sources/sources.h"

namespace kiv::tool {

std::vector<SourceWarning> warningsAbout(const Sources& sources);

// What is no problem, and explains what users may see.
std::vector<SourceWarning> notesAbout(const Sources& sources);

// What to do about a warning or a note with this id, in a sentence.
std::wstring_view adviceFor(std::string_view id);

// The policies of a browser have a grammar of their own.
bool isOfBrowser(const Place& place);

}  // namespace kiv::tool
