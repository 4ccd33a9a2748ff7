// Candidates that are never used.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "routes/route.h"

namespace kiv::session {

// [scheme://]host[:port] with "*" in scheme or host, separated by ";". "socks" as a scheme is both versions. Entries
// that cannot be read name nothing.
class LeftOut {
 public:
  static constexpr std::size_t kLongestText = 65'536;

  LeftOut() = default;
  explicit LeftOut(std::wstring_view text);  // throws std::bad_alloc

  bool names(const Route& proxy) const noexcept;  // never direct

 private:
  struct Entry {
    std::wstring scheme;                // empty: any
    std::wstring host;                  // an IPv6 address without brackets
    std::optional<std::uint16_t> port;  // absent: any
  };

  static std::optional<Entry> read(std::wstring_view text);

  std::vector<Entry> entries_;
};

}  // namespace kiv::session
