// What the command line chooses.
#pragma once

#include <cstdint>

namespace kiv::tool {

// What to find out: a proxy configuration that works, or, without a test request, only what there is to test.
enum class Task : std::uint8_t { Resolve, ShowSettings, ListCandidates };

// What standard error shows: nothing, a line per candidate and the table, or the log and the table.
enum class Detail : std::uint8_t { Nothing, Brief, Log };

}  // namespace kiv::tool
