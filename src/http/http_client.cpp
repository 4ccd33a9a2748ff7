// The test client: one URL, its connection, and what its requests use.
#include "http/http_client.h"

#include <stdexcept>
#include <utility>

#include "http/client_description.h"
#include "http/request_cycle.h"

namespace kiv::impl {
namespace {

// Nothing for a URL that the client cannot test, one with an unreadable port included.
std::optional<ParsedAddress> parseServer(std::wstring_view url) {
  std::optional<ParsedAddress> server =
      support::onException<std::logic_error>(std::optional<ParsedAddress>(), [&] { return parseAddress(url, false); });
  if (server && server->kind != AddressScheme::Http && server->kind != AddressScheme::Https) server.reset();
  return server;
}

}  // namespace

HttpClient::HttpClient(std::wstring_view url, std::wstring_view userAgent, bool ignoreCertErrors)
    : settings_{std::wstring(userAgent), parseServer(url), std::nullopt, ProxyConfig(), ignoreCertErrors} {
  if (!settings_.server) return;
  settings_.serverCred = take(settings_.server->cred);
  connect();
}

void HttpClient::connect() {
  session_ = support::UniqueInternet(WinHttpOpen(settings_.userAgent.c_str(), WINHTTP_ACCESS_TYPE_NO_PROXY,
                                                 WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
  if (!session_) return;
  const ParsedAddress& server = *settings_.server;
  connection_ = support::UniqueInternet(
      WinHttpConnect(session_.get(), server.host.c_str(), server.port.value_or(defaultPort(*server.kind)), 0));
}

HttpClient::HttpClient(HttpClient&& other) noexcept
    : settings_(std::exchange(other.settings_, {})),
      schemes_(std::exchange(other.schemes_, {})),
      session_(std::move(other.session_)),
      connection_(std::move(other.connection_)) {}

HttpClient& HttpClient::operator=(HttpClient&& other) noexcept {
  HttpClient moved(std::move(other));
  swap(moved);
  return *this;
}

void HttpClient::swap(HttpClient& other) noexcept {
  std::swap(settings_, other.settings_);
  std::swap(schemes_, other.schemes_);
  session_.swap(other.session_);
  connection_.swap(other.connection_);
}

int HttpClient::request(const wchar_t* verb, const Logger& logger) const {
  if (!settings_.server) {
    logger.error(L"Invalid client.");
    return -1;
  }
  logger.debug(describe(settings_));
  return runRequest(connection_.get(), verb, settings_, schemes_, logger);
}

}  // namespace kiv::impl
