// The environment of a program to be started, as CreateProcess takes it.
#pragma once

#include <string_view>
#include <vector>

#include "environment/variables.h"

namespace kiv::tool {

// `inherited` are texts "name=value", each with its NUL. Variables replace all that have their name in any case: two
// names that differ only in case stop .NET programs. Sorted by name, as Windows wants it, and ended by a second NUL.
Wiped<wchar_t> mergedBlock(std::wstring_view inherited, const std::vector<Variable>& variables);

// This process's environment, in the form that mergedBlock takes.
Wiped<wchar_t> ownEnvironment();

}  // namespace kiv::tool
