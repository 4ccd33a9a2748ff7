// Facts that only the library's log lines contain, because no callback reports them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kiv::tool {

enum class FactKind : std::uint8_t {
  Other,
  DiscoveryFailed,
  BypassList,        // text: the list that is used
  Bypassed,          // the list matches the target
  Attempt,           // number: the candidate that is being tested
  InvalidCandidate,  // number: the candidate that cannot be tested
};

struct LogFact {
  FactKind kind = FactKind::Other;
  std::size_t number = 0;
  std::wstring_view text{};
};

// `url` is the resolution's target. Views into `message`.
LogFact factOf(std::wstring_view message, std::wstring_view url);

// The Windows error code at the end of a line about a failed call.
std::optional<unsigned> errorCodeOf(std::wstring_view message);

}  // namespace kiv::tool
