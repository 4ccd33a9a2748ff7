// A way to connect: directly, or through one proxy.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::session {

enum class RouteKind : std::uint8_t { Direct, Http, Https, Socks4, Socks5 };

struct Route {
  RouteKind kind = RouteKind::Direct;
  std::wstring host;       // in ASCII form, in lower case, an IPv6 address without brackets; empty if direct
  std::uint16_t port = 0;  // 1 to 65535; 0 if direct

  // Reads [scheme://]host[:port]: http, https, socks4, socks5, and socks, which is `socks`. Nothing for a text that
  // names no proxy, or a port outside 1 to 65535, or credentials. A missing scheme is http, a missing port the
  // scheme's.
  static std::optional<Route> parse(std::wstring_view text, RouteKind socks);

  // The proxy of a kind with a host as it was written, an IPv6 address in brackets; nothing if that is no host. Without
  // a port it has its scheme's.
  static std::optional<Route> proxy(RouteKind kind, std::wstring_view host, std::optional<std::uint16_t> port);

  bool isDirect() const noexcept { return kind == RouteKind::Direct; }
  // "http", "https", "socks4", "socks5"; empty if direct.
  const wchar_t* scheme() const noexcept;
  // scheme://host:port; empty if direct.
  std::wstring url() const;
  auto operator<=>(const Route&) const = default;  // NOLINT(modernize-use-nullptr): no pointer is in it
};

}  // namespace kiv::session
