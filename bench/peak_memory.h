// How much of what new handed out was in use at most.
#pragma once

#include <cstddef>
#include <functional>

namespace kiv::bench {

// At any time during the work, beyond what was in use before it. Not for several threads.
std::size_t peakBytesOf(const std::function<void()>& work);

}  // namespace kiv::bench
