// What a proxy answers to a program without credentials. WinHTTP may log on silently with those of the user, which most
// other programs cannot.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "environment/proxy_server.h"

namespace kiv::tool {

struct ProxyAnswer {
  int status = 0;                       // 0 if there was no answer
  std::vector<std::wstring> schemes{};  // of authentication, that a 407 offers, in its order
};

// The head of a request to a proxy for a target: CONNECT for https, else HEAD. Empty for a host name that cannot be
// sent as it is.
std::string questionFor(std::wstring_view url, std::wstring_view userAgent);

// Reads the head of a response.
ProxyAnswer readAnswer(std::string_view head);

// Asks over a socket of its own. Returns after `limit` at the latest, but for the time that Windows takes to look up
// the proxy's name.
ProxyAnswer askProxy(const ProxyServer& proxy, const std::string& question, std::chrono::milliseconds limit);

}  // namespace kiv::tool
