// The one parser for proxy addresses and URLs.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "config/address_grammar.h"
#include "config/cred.h"
#include "support/platform.h"

namespace kiv::impl {

// Numbered as WinHTTP numbers them. Whether Socks means version 4 or 5, the scheme word tells.
enum class AddressScheme : std::uint32_t {
  Http = INTERNET_SCHEME_HTTP,
  Https = INTERNET_SCHEME_HTTPS,
  Socks = INTERNET_SCHEME_SOCKS
};

struct DefaultPort {
  AddressScheme kind;
  std::uint16_t port;
};

inline constexpr std::array kDefaultPorts = {
    DefaultPort{AddressScheme::Http, 80},
    DefaultPort{AddressScheme::Https, 443},
    DefaultPort{AddressScheme::Socks, 1080},
};

// The port of an address that names none; 0 for any other kind.
constexpr std::uint16_t defaultPort(AddressScheme kind) {
  for (const DefaultPort& known : kDefaultPorts) {
    if (known.kind == kind) return known.port;
  }
  return 0;
}

struct ParsedAddress {
  ParsedAddress() = default;
  // "proxy" is a scheme word (for http) only if `acceptProxyWord`.
  ParsedAddress(const AddressParts& parts, bool acceptProxyWord);

  std::wstring scheme;                // as written, in lower case; empty if none was written
  std::optional<AddressScheme> kind;  // absent for an unknown scheme word
  std::wstring host;                  // in ASCII form; empty if it has none
  std::optional<std::uint16_t> port;
  std::wstring path;   // without the leading "/"
  std::wstring query;  // without the leading "?"
  std::optional<Cred> cred;
};

// Reads an address; nothing if the text is none. A port is kept modulo 65536; one beyond the signed 32-bit range throws
// (see toSigned32).
std::optional<ParsedAddress> parseAddress(std::wstring_view text, bool acceptProxyWord);

// Writes the address as a URL, without credentials.
std::wstring urlText(const ParsedAddress& address);

}  // namespace kiv::impl
