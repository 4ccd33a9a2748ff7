// Which entry of a bypass list matches a URL. The library only says that one does.
#pragma once

#include <string>

namespace kiv::tool {

// Empty if none does.
std::wstring matchingEntry(const std::wstring& list, const std::wstring& url);

}  // namespace kiv::tool
