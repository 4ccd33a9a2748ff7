// Candidates that are never used.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "routes/route.h"

namespace kiv::session {

// [scheme://]host[:port] with "*" in scheme or host, separated by ";". Entries that cannot be read name nothing.
class LeftOut {
 public:
  static constexpr std::size_t kLongestText = 65'536;

  LeftOut() = default;
  explicit LeftOut(std::wstring_view text);  // throws std::bad_alloc

  bool names(const Route& proxy) const;  // never direct
};

}  // namespace kiv::session
