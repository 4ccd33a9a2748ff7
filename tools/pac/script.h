// A PAC script: read from a file, or fetched over http or https.
#pragma once

#include <string>
#include <string_view>

#include "common/time_limits.h"

namespace kiv::tool {

struct PacScript {
  std::wstring name{};     // the file or URL, as given
  std::string text{};      // as it was read: the system finds out its encoding
  std::wstring problem{};  // why it could not be read, for users; empty if it was
};

// What is wrong with the name of a script; empty if nothing is.
std::string mustBeScript(std::wstring_view name);

// Fetches directly, as Windows fetches scripts, and without credentials. Scripts above one MiB are refused.
PacScript readScript(std::wstring_view name, const TimeLimits& limits);

}  // namespace kiv::tool
