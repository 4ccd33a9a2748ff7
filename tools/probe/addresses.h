// The addresses of a host, of both families, as every program gets them.
#pragma once

#include <string>

#include "probe/findings.h"

namespace kiv::tool {

Addresses lookUp(const std::wstring& host);

}  // namespace kiv::tool
