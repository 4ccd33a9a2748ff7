// A proxy configuration: how one connection is made, and the credentials for the proxy server that it names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "config/cred.h"
#include "config/secure_string.h"
#include "kiv/proxy_config.h"
#include "support/border.h"

namespace kiv::impl {

enum class ProxyKind : std::uint8_t { None, Direct, Http, Https, Socks4, Socks5 };

// What a configuration of a proxy server holds; each kind of server is a type of its own.
struct ProxyServer {
  std::wstring host;                 // as given
  std::optional<std::int32_t> port;  // absent if the scheme's default applies
};

class ProxyConfig {
 public:
  struct None {};
  struct Direct {};
  template <ProxyKind>
  struct ServerOf : ProxyServer {};
  using Http = ServerOf<ProxyKind::Http>;
  using Https = ServerOf<ProxyKind::Https>;
  using Socks4 = ServerOf<ProxyKind::Socks4>;
  using Socks5 = ServerOf<ProxyKind::Socks5>;
  // The index is the kind.
  using Server = std::variant<None, Direct, Http, Https, Socks4, Socks5>;

  ProxyConfig() = default;
  ProxyConfig(const ProxyConfig&) = default;
  ProxyConfig& operator=(const ProxyConfig&) = default;
  // A moved-from configuration keeps its kind; its host and its credentials are gone.
  ProxyConfig(ProxyConfig&& other) noexcept;
  ProxyConfig& operator=(ProxyConfig&& other) noexcept;
  ~ProxyConfig() = default;

  static ProxyConfig makeNone() { return {}; }
  static ProxyConfig makeDirect();
  // A negative port means that none was given.
  static ProxyConfig makeHttp(std::wstring host, std::int32_t port, std::optional<Cred> cred);
  static ProxyConfig makeHttps(std::wstring host, std::int32_t port, std::optional<Cred> cred);
  static ProxyConfig makeSocks4(std::wstring host, std::int32_t port, std::optional<Cred> cred);
  static ProxyConfig makeSocks5(std::wstring host, std::int32_t port, std::optional<Cred> cred);
  // By scheme word; None for a word that is not known.
  static ProxyConfig make(std::wstring_view scheme, std::wstring host, std::int32_t port, std::optional<Cred> cred);
  // By text form; None for a text that cannot be read. `cred` wins over credentials in the text.
  static ProxyConfig parse(std::wstring_view text, std::optional<Cred> cred);

  // Every query of the kind throws std::bad_variant_access if a failed assignment left the configuration without one.
  ProxyKind kind() const;
  bool isNone() const { return kind() == ProxyKind::None; }
  bool isDirect() const { return kind() == ProxyKind::Direct; }
  bool isHttp() const { return kind() == ProxyKind::Http; }
  bool isHttps() const { return kind() == ProxyKind::Https; }
  bool isSocks4() const { return kind() == ProxyKind::Socks4; }
  bool isSocks5() const { return kind() == ProxyKind::Socks5; }
  // Whether a proxy server is named.
  bool isValid() const { return !isNone() && !isDirect(); }

  // Static text; empty for None.
  const wchar_t* scheme() const;
  // The configuration's own characters; static empty text for None and Direct.
  const wchar_t* host() const;
  std::int32_t port(bool withDefault) const;
  bool hasExplicitPort() const;

  bool hasCred() const noexcept { return cred_.has_value(); }
  const std::optional<Cred>& cred() const noexcept { return cred_; }
  void setCred(std::optional<Cred> cred) noexcept { cred_ = std::move(cred); }

  // The text form, NUL-terminated; empty if no proxy server is named. Protected, since it can hold the password.
  SecureString toString(bool withScheme, bool withCred) const;
  // The text form that goes into the log: with the scheme word, without credentials.
  std::wstring display() const;
  // The same, behind a text.
  void appendTo(std::wstring& text) const;

 private:
  friend struct ProxyConfigAccess;

  static ProxyConfig makeServer(ProxyKind kind, std::wstring host, std::int32_t port, std::optional<Cred> cred);
  // Null for None and Direct.
  const ProxyServer* proxyServer() const;

  std::optional<Cred> cred_;
  Server server_;
};

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivProxyConfig> {
  using Type = kiv::impl::ProxyConfig;
};
