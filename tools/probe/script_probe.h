// The PAC script, fetched once more: what it is, not what it says.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "probe/findings.h"

namespace kiv::tool {

struct ScriptPlan {
  bool detect = false;       // look for it with WPAD first
  std::wstring scriptUrl{};  // of the settings
  std::wstring userAgent{};
  std::chrono::milliseconds limit{};
};

// Directly and without credentials, as WinHTTP's documentation has it for its own download. Nothing if no place names a
// script.
std::optional<ScriptFindings> probeScript(const ScriptPlan& plan);

}  // namespace kiv::tool
