// SHA-256 of bytes, with Windows' own implementation.
#pragma once

#include <windows.h>

#include <bcrypt.h>

#include <cstdint>
#include <span>
#include <string>

#include "support/owners.h"

namespace kiv::tool {

class Sha256 {
 public:
  Sha256();

  void add(std::span<const std::uint8_t> bytes);
  // In hexadecimal digits; empty if Windows cannot hash.
  std::wstring finish();

 private:
  struct DestroyHash {
    void operator()(BCRYPT_HASH_HANDLE hash) const noexcept { BCryptDestroyHash(hash); }
  };
  struct CloseAlgorithm {
    void operator()(BCRYPT_ALG_HANDLE algorithm) const noexcept { BCryptCloseAlgorithmProvider(algorithm, 0); }
  };

  support::Unique<BCRYPT_ALG_HANDLE, CloseAlgorithm> algorithm_;
  support::Unique<BCRYPT_HASH_HANDLE, DestroyHash> hash_;
  bool good_ = false;
};

std::wstring sha256Of(std::span<const std::uint8_t> bytes);

}  // namespace kiv::tool
