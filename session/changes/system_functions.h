// Functions of the system that not every Windows has.
#pragma once

#include "support/owners.h"

namespace kiv::session {

// A library of the system, from the system's folder; null if it is not there.
inline support::UniqueModule loadFromSystem(const wchar_t* name) noexcept {
  return support::UniqueModule(LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
}

// Null if the module, which may be null, does not have it.
template <class Function>
Function lookUp(HMODULE module, const char* name) noexcept {
  return module ? reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

}  // namespace kiv::session
