// Hosts and ports, as URLs and proxy lists write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace kiv::session {

inline constexpr std::size_t kLongestHost = 255;  // in ASCII form, the brackets of an IPv6 address included

struct HostAndPort {
  std::wstring_view host;  // an IPv6 address in brackets
  std::wstring_view port;  // empty if there is none
};

// Splits host[:port]; nothing if something else follows a closing bracket.
std::optional<HostAndPort> splitHostAndPort(std::wstring_view text) noexcept;

// Writes a host in the one form in which hosts are compared: ASCII, in lower case. Gives its length; 0 for a text that
// is no host, or one that is too long. Only a host that is not ASCII makes it call the system.
std::size_t writeHost(std::wstring_view text, std::span<wchar_t, kLongestHost> out) noexcept;

// Reads a port, 1 to 65535, in decimal digits; `missing` for an empty text.
std::optional<std::uint16_t> readPort(std::wstring_view digits, std::uint16_t missing) noexcept;

}  // namespace kiv::session
