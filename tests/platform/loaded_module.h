// Stands in for the DLL as a module of the process, which a test program is not.
#pragma once

#include <cstddef>

namespace kiv::test {

// How often the library has asked to stay loaded, in this process.
std::size_t timesKeptLoaded();

}  // namespace kiv::test
