// What this process has of what the system lends.
#pragma once

#include <cstddef>
#include <functional>

namespace selfcheck {

struct Resources {
  std::size_t handles = 0;
  std::size_t bytes = 0;  // of private memory
  std::size_t threads = 0;

  static Resources now();
};

// By how much each grows at least in a round, which is repeated: what is kept for a while, or freed late, does not grow
// in every round; what is lost does.
Resources leastGrowth(const std::function<void()>& round);

}  // namespace selfcheck
