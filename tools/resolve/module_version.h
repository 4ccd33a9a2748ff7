// The versions of files that take part.
#pragma once

#include <string>

namespace kiv::tool {

// Of a module that this process has loaded, such as L"winhttp.dll": "10.0.19041.3636". Empty if it says none.
std::wstring versionOf(const wchar_t* module);

}  // namespace kiv::tool
