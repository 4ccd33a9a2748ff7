// The test client: one URL, its connection, and what its requests use.
#pragma once

#include <optional>
#include <string_view>

#include "config/cred.h"
#include "config/proxy_config.h"
#include "http/client_settings.h"
#include "kiv/http_client.h"
#include "log/logger.h"
#include "support/border.h"
#include "support/owners.h"

namespace kiv::impl {

class HttpClient {
 public:
  // A URL that is not a readable http or https URL makes an invalid client, whose requests fail.
  HttpClient(std::wstring_view url, std::wstring_view userAgent, bool ignoreCertErrors);
  // A moved-from client is invalid.
  HttpClient(HttpClient&& other) noexcept;
  HttpClient& operator=(HttpClient&& other) noexcept;
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;
  ~HttpClient() = default;

  void setServerCred(std::optional<Cred> cred) noexcept { settings_.serverCred = std::move(cred); }
  void setProxy(ProxyConfig proxy) noexcept { settings_.proxy = std::move(proxy); }

  // The final HTTP status, or -1. Const, like the client of a resolution's test callback: a request leaves nothing
  // behind but the schemes that it chose.
  int request(const wchar_t* verb, const Logger& logger) const;

 private:
  void swap(HttpClient& other) noexcept;
  void connect();

  ClientSettings settings_;
  mutable ChosenSchemes schemes_;
  // In this order, so that the connection is closed first.
  support::UniqueInternet session_;
  support::UniqueInternet connection_;
};

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivHttpClient> {
  using Type = kiv::impl::HttpClient;
};
