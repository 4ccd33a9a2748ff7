// What the simulated system makes of a password, so that tests can look for it.
#pragma once

#include <string>
#include <string_view>

#include "support/platform.h"

namespace kiv::test {

// The password's characters, as they look in a credential. To be called before a guard or a scope watches the heap.
inline std::wstring ciphertextOf(std::wstring_view password) {
  std::wstring block(password);
  constexpr std::size_t kUnit = CRYPTPROTECTMEMORY_BLOCK_SIZE / sizeof(wchar_t);
  block.resize((password.size() / kUnit + 1) * kUnit);
  CryptProtectMemory(block.data(), static_cast<DWORD>(block.size() * sizeof(wchar_t)), CRYPTPROTECTMEMORY_SAME_PROCESS);
  block.resize(password.size());
  return block;
}

}  // namespace kiv::test
