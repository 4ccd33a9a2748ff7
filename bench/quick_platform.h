// A platform that answers at once and keeps no record.
#pragma once

#include <string>

namespace kiv::bench {

struct QuickPlatform {
  std::wstring manualList;  // the user's proxies
  std::wstring bypassList;  // the user's exceptions
  bool protectsMemory = false;
};

// What it answers from now on. Not for several threads.
QuickPlatform& platform();

}  // namespace kiv::bench
