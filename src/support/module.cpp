// This DLL as a module of the process. Only the DLL itself contains this file.
#include "support/module.h"

#include "support/platform.h"

void kiv::support::keepLoaded() noexcept {
  HMODULE self = nullptr;
  // If it fails, the application can unload the DLL as it can any other.
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&keepLoaded), &self);
}
