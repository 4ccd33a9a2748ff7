// A proxy configuration: how one connection is made, and the credentials for the proxy server that it names.
#include "config/proxy_config.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <type_traits>
#include <utility>

#include "config/address.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

struct KindFacts {
  const wchar_t* scheme;
  std::int32_t defaultPort;
};

// Indexed by kind.
constexpr std::array kKinds = {
    KindFacts{L"", -1},
    KindFacts{L"direct", -1},
    KindFacts{L"http", defaultPort(AddressScheme::Http)},
    KindFacts{L"https", defaultPort(AddressScheme::Https)},
    KindFacts{L"socks4", defaultPort(AddressScheme::Socks)},
    KindFacts{L"socks5", defaultPort(AddressScheme::Socks)},
};

const KindFacts& factsOf(ProxyKind kind) { return kKinds.at(static_cast<std::size_t>(kind)); }

// The words that name a kind of proxy, in lower case; several may name the same.
struct KindWord {
  std::wstring_view word;
  ProxyKind kind;
};

constexpr std::array kKindWords = {
    KindWord{L"http", ProxyKind::Http},     KindWord{L"proxy", ProxyKind::Http},
    KindWord{L"https", ProxyKind::Https},   KindWord{L"socks4", ProxyKind::Socks4},
    KindWord{L"socks5", ProxyKind::Socks5}, KindWord{L"socks", ProxyKind::Socks5},
    KindWord{L"direct", ProxyKind::Direct},
};

// In any case of its letters.
ProxyKind kindOf(std::wstring_view scheme) {
  for (const KindWord& known : kKindWords) {
    if (std::ranges::equal(scheme, known.word, {}, [](wchar_t c) { return support::toLower(c); })) return known.kind;
  }
  return ProxyKind::None;
}

// Joins the pieces into a buffer of just the size.
SecureString join(std::initializer_list<std::wstring_view> pieces) {
  std::size_t length = 0;
  for (const std::wstring_view piece : pieces) length += piece.size();
  SecureWideBuffer text;
  text.reserve(length + 1);
  for (const std::wstring_view piece : pieces) text.insert(text.end(), piece.begin(), piece.end());
  text.push_back(L'\0');
  return {std::move(text), length};
}

}  // namespace

ProxyConfig::ProxyConfig(ProxyConfig&& other) noexcept : cred_(take(other.cred_)), server_(std::move(other.server_)) {}

ProxyConfig& ProxyConfig::operator=(ProxyConfig&& other) noexcept {
  cred_ = take(other.cred_);
  server_ = std::move(other.server_);
  return *this;
}

ProxyConfig ProxyConfig::makeDirect() { return makeServer(ProxyKind::Direct, {}, -1, {}); }

ProxyConfig ProxyConfig::makeHttp(std::wstring host, std::int32_t port, std::optional<Cred> cred) {
  return makeServer(ProxyKind::Http, std::move(host), port, std::move(cred));
}

ProxyConfig ProxyConfig::makeHttps(std::wstring host, std::int32_t port, std::optional<Cred> cred) {
  return makeServer(ProxyKind::Https, std::move(host), port, std::move(cred));
}

ProxyConfig ProxyConfig::makeSocks4(std::wstring host, std::int32_t port, std::optional<Cred> cred) {
  return makeServer(ProxyKind::Socks4, std::move(host), port, std::move(cred));
}

ProxyConfig ProxyConfig::makeSocks5(std::wstring host, std::int32_t port, std::optional<Cred> cred) {
  return makeServer(ProxyKind::Socks5, std::move(host), port, std::move(cred));
}

ProxyConfig ProxyConfig::make(std::wstring_view scheme, std::wstring host, std::int32_t port,
                              std::optional<Cred> cred) {
  return makeServer(kindOf(support::trim(scheme)), std::move(host), port, std::move(cred));
}

ProxyConfig ProxyConfig::parse(std::wstring_view text, std::optional<Cred> cred) {
  std::optional<ParsedAddress> address = parseAddress(text, true);
  if (!address || !address->kind) return makeNone();
  if (!cred) cred = take(address->cred);
  const std::wstring_view word = address->scheme.empty() ? std::wstring_view(L"http") : address->scheme;
  return makeServer(kindOf(word), std::move(address->host), address->port ? *address->port : -1, std::move(cred));
}

ProxyConfig ProxyConfig::makeServer(ProxyKind kind, std::wstring host, std::int32_t port, std::optional<Cred> cred) {
  ProxyConfig config;
  const auto emplace = [&]<class Alternative>(std::type_identity<Alternative>) {
    Alternative server;
    server.host = std::move(host);
    if (port >= 0) server.port = port;
    config.server_ = std::move(server);
    config.cred_ = std::move(cred);
  };
  switch (kind) {
    case ProxyKind::None:
      break;
    case ProxyKind::Direct:
      config.server_ = Direct();
      break;
    case ProxyKind::Http:
      emplace(std::type_identity<Http>());
      break;
    case ProxyKind::Https:
      emplace(std::type_identity<Https>());
      break;
    case ProxyKind::Socks4:
      emplace(std::type_identity<Socks4>());
      break;
    case ProxyKind::Socks5:
      emplace(std::type_identity<Socks5>());
      break;
  }
  return config;
}

ProxyKind ProxyConfig::kind() const {
  if (server_.valueless_by_exception()) throw std::bad_variant_access();
  return static_cast<ProxyKind>(server_.index());
}

const ProxyServer* ProxyConfig::proxyServer() const {
  (void)kind();  // throws for a configuration without one
  return std::visit(
      []<class Alternative>(const Alternative& server) -> const ProxyServer* {
        if constexpr (std::is_base_of_v<ProxyServer, Alternative>)
          return &server;
        else
          return nullptr;
      },
      server_);
}

const wchar_t* ProxyConfig::scheme() const { return factsOf(kind()).scheme; }

const wchar_t* ProxyConfig::host() const {
  const ProxyServer* server = proxyServer();
  return server ? server->host.c_str() : L"";
}

std::int32_t ProxyConfig::port(bool withDefault) const {
  const ProxyServer* server = proxyServer();
  if (server && server->port) return *server->port;
  return withDefault ? factsOf(kind()).defaultPort : -1;
}

bool ProxyConfig::hasExplicitPort() const {
  const ProxyServer* server = proxyServer();
  return server && server->port.has_value();
}

SecureString ProxyConfig::toString(bool withScheme, bool withCred) const {
  const ProxyServer* server = proxyServer();
  if (!server) return join({});
  std::wstring_view user, colon, at;
  SecureString password;
  if (withCred && cred_) {
    user = cred_->username();
    colon = L":";
    password = cred_->password();
    at = L"@";
  }
  const support::Decimal port(server->port.value_or(0));
  return join({withScheme ? scheme() : L"", withScheme ? L"://" : L"", user, colon, password.view(), at, server->host,
               server->port ? L":" : L"", server->port ? port.view() : L""});
}

std::wstring ProxyConfig::display() const {
  std::wstring text;
  appendTo(text);
  return text;
}

void ProxyConfig::appendTo(std::wstring& text) const {
  const ProxyServer* server = proxyServer();
  if (!server) return;
  constexpr std::size_t kMostOfSchemeAndPort = std::wstring_view(L"socks5://:2147483647").size();
  text.reserve(text.size() + server->host.size() + kMostOfSchemeAndPort);
  text.append(scheme()).append(L"://").append(server->host);
  if (server->port) text.append(L":").append(support::Decimal(*server->port).view());
}

}  // namespace kiv::impl
