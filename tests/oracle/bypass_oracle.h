// Bypass lists, evaluated entry by entry with the regular expressions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "oracle/address_oracle.h"
#include "oracle/plain_host_oracle.h"
#include "oracle/wildcard_oracle.h"

namespace kiv::test {

// What of a target decides whether a rule matches. Port -1: none, and no known scheme to take one from.
struct BypassTarget {
  std::wstring scheme;  // "http" if none was written
  std::wstring host;
  int port = -1;
};

class BypassOracle {
 public:
  // For each rule of the list, in order, whether it matches. Throws std::out_of_range where the list names a port
  // beyond 32 bits, std::invalid_argument where it names one in digits that the C library does not read.
  std::vector<bool> verdicts(std::wstring_view list, const BypassTarget& target);

 private:
  // Nothing if the entry is no rule.
  std::optional<bool> entryVerdict(std::wstring_view entry, const BypassTarget& target);

  AddressOracle address_;
  WildcardOracle wildcard_;
  PlainHostOracle plain_;
};

}  // namespace kiv::test
