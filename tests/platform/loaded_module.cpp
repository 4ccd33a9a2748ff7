// Stands in for the DLL as a module of the process, which a test program is not.
#include "platform/loaded_module.h"

#include <atomic>

#include "support/module.h"

namespace {

std::atomic<std::size_t> timesKept{0};

}  // namespace

void kiv::support::keepLoaded() noexcept { ++timesKept; }

std::size_t kiv::test::timesKeptLoaded() { return timesKept; }
