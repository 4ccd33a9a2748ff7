// What a resolution asks of the application, as function objects: the procedure sees neither handles nor C functions.
#pragma once

#include <functional>
#include <optional>

#include "config/cred.h"
#include "config/proxy_config.h"

namespace kiv::impl {

using CandidateFilterFn = std::function<bool(const ProxyConfig& candidate)>;
using ServerCredFn = std::function<std::optional<Cred>(const wchar_t* targetUrl)>;
using ProxyCredFn = std::function<std::optional<Cred>(const ProxyConfig& proxy)>;
using TestConnectionFn = std::function<int()>;
using SetServerCredFn = std::function<void(std::optional<Cred>&& cred)>;
using SetProxyFn = std::function<void(const ProxyConfig& proxy)>;

struct ApplicationCallbacks {
  CandidateFilterFn filter;
  ServerCredFn serverCred;
  ProxyCredFn proxyCred;
  TestConnectionFn testConnection;
  SetServerCredFn setServerCred;
  SetProxyFn setProxy;
};

}  // namespace kiv::impl
