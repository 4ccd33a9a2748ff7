// Which Windows it is, without names of the machine.
#include "results/system.h"

#include "common/console.h"
#include "common/this_run.h"
#include "support/platform.h"

namespace selfcheck {

std::string windowsVersion() { return kiv::tool::toUtf8(kiv::tool::readThisRun().windows); }

// Wine's ntdll.dll has this function for programs that want to know.
std::string wineVersion() {
  using GetVersion = const char*(CDECL*)();
  const FARPROC function = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
  const auto version = reinterpret_cast<GetVersion>(reinterpret_cast<void*>(function));
  return version ? version() : "";
}

}  // namespace selfcheck
