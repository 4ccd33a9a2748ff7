// Calls of the simulated Windows as lines that a test can compare whole.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "platform/memory_watch.h"
#include "platform/simulated_windows.h"

namespace kiv::test {

// "name(arguments)", and " failed: code" behind a call that failed.
inline std::wstring lineOf(const Call& call) {
  std::wstring line(call.name.begin(), call.name.end());
  line += L"(" + call.arguments + L")";
  if (call.failed) line += L" failed: " + std::to_wstring(call.error);
  return line;
}

// All significant calls but those of the functions named.
inline std::vector<std::wstring> transcriptOf(const SimulatedWindows& windows,
                                              std::initializer_list<std::string_view> without = {}) {
  const MemoryWatch::Pause pause;
  std::vector<std::wstring> lines;
  for (const Call& call : windows.calls()) {
    bool wanted = true;
    for (const std::string_view name : without) wanted = wanted && call.name != name;
    if (wanted) lines.push_back(lineOf(call));
  }
  return lines;
}

}  // namespace kiv::test
