// Counts what the program allocates with new.
#pragma once

#include <cstddef>

namespace kiv::bench {

// How often memory was allocated so far. Not for several threads.
std::size_t allocations();

}  // namespace kiv::bench
