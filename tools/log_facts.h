// What the library's log lines say, for those facts that no callback tells.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kiv::tool {

enum class FactKind : std::uint8_t {
  Other,
  DiscoveryFailed,
  BypassList,        // text: the list in force
  Bypassed,          // the list names the target
  Turn,              // number: the candidate that the line is about
  InvalidCandidate,  // number: the candidate that cannot be tried
};

struct Fact {
  FactKind kind = FactKind::Other;
  std::size_t number = 0;
  std::wstring_view text{};
};

// `url` is the resolution's target. Views into `message`.
Fact factOf(std::wstring_view message, std::wstring_view url);

// The system's error code at the end of a line about a call that failed.
std::optional<unsigned> errorCodeOf(std::wstring_view message);

}  // namespace kiv::tool
