// How long to wait for what is expected to happen at once.
#pragma once

#include <cstdint>

#include "support/platform.h"

namespace selfcheck {

class Patience {
 public:
  // In milliseconds; 0 when it is over.
  std::uint32_t left() const {
    constexpr std::uint64_t kAll = 20'000;
    const std::uint64_t passed = GetTickCount64() - began_;
    return passed < kAll ? static_cast<std::uint32_t>(kAll - passed) : 0;
  }

 private:
  std::uint64_t began_ = GetTickCount64();
};

}  // namespace selfcheck
