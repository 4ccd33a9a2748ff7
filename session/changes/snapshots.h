// What is compared when the system says that something has changed: the user's proxy settings, and this machine's
// addresses.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "support/platform.h"

namespace kiv::session {

struct ProxySettings {
  DWORD error = 0;  // of a reading that failed
  bool autoDetect = false;
  std::wstring autoConfigUrl;
  std::wstring proxy;
  std::wstring bypass;

  bool operator==(const ProxySettings&) const = default;

  // Of the user that the thread works as. May block. Throws std::bad_alloc.
  static ProxySettings read();
};

// Addresses that can be used, in order. Loopback and link-local ones are left out: they come and go with interfaces,
// and no proxy is reached through them. Neither do lifetimes count, which run down.
struct Addresses {
  struct Address {
    std::uint64_t interfaceId = 0;
    std::array<std::uint8_t, 16> bytes{};  // of IPv4, the first four
    std::uint8_t prefix = 0;
    bool isIpv6 = false;

    auto operator<=>(const Address&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is in it
  };

  std::vector<Address> all;

  bool operator==(const Addresses&) const = default;

  // None if the system cannot tell. May block. Throws std::bad_alloc.
  static Addresses read();
};

}  // namespace kiv::session
