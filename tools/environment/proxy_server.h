// A resolved proxy as the URL that programs read in their settings.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/wiped.h"
#include "kiv/kiv.hpp"

namespace kiv::tool {

struct ProxyServer {
  std::wstring scheme;  // http, https, socks4 or socks5
  std::wstring host;
  int port = 0;

  bool isHttp() const { return scheme == L"http"; }
  // With SOCKS the host name of a target can be looked up by the program or by the proxy, unlike with HTTP.
  bool isSocks() const { return scheme.starts_with(L"socks"); }
};

// Nothing if no program could use it: without a host, or with a port that is not one.
std::optional<ProxyServer> readProxyServer(const ProxyConfig& proxy);

// "scheme://host:port", always with the port. `userInfo` comes before the host, with its "@".
Wiped<wchar_t> urlOf(const ProxyServer& proxy, std::wstring_view userInfo = {});

// "user:password@", each byte that is not plain as "%" and two digits; empty without credentials.
Wiped<wchar_t> userInfoOf(const Credential& cred);

}  // namespace kiv::tool
