// The environment variables that tell programs which proxy to use.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "environment/proxy_server.h"

namespace kiv::tool {

struct Variable {
  std::wstring_view name;
  std::optional<Wiped<wchar_t>> value;  // nothing: the variable is removed
};

// The names are in lower case. Windows ignores their case, but bash and other programs of Cygwin and MSYS2 do not, and
// curl reads http_proxy in lower case only, because web servers give CGI programs a client's header as HTTP_PROXY.
inline constexpr std::wstring_view kHttpProxy = L"http_proxy";
inline constexpr std::wstring_view kHttpsProxy = L"https_proxy";
inline constexpr std::wstring_view kAllProxy = L"all_proxy";
inline constexpr std::wstring_view kNoProxy = L"no_proxy";

// How a URL is reached, and with it those of its scheme.
struct Route {
  std::wstring url;                    // without user name and password
  std::optional<ProxyServer> proxy{};  // nothing: direct
  Wiped<wchar_t> userInfo{};           // of the proxy, for programs that get its password
};

bool isHttps(const Route& route);
bool allDirect(const std::vector<Route>& routes);

// `exceptions` is a NO_PROXY list. It counts only if one of the routes has a proxy.
std::vector<Variable> variablesFor(const std::vector<Route>& routes, std::wstring_view exceptions);

}  // namespace kiv::tool
