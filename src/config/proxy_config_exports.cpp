// The C functions of proxy configurations.
#include <stdexcept>

#include "config/proxy_config.h"
#include "support/foreign_exceptions.h"

namespace {

using kiv::impl::Cred;
using kiv::impl::ProxyConfig;
using namespace kiv::support;

std::optional<Cred> credentialsOf(const KivCred* cred) { return cred ? *toObject(cred) : std::nullopt; }

using ServerFactory = ProxyConfig (*)(std::wstring, std::int32_t, std::optional<Cred>);

KivProxyConfig* createServer(ServerFactory make, const wchar_t* host, int port, const KivCred* cred) {
  if (!host) return nullptr;
  return guarded<KivProxyConfig*>(nullptr,
                                  [&] { return newHandle<KivProxyConfig>(make(host, port, credentialsOf(cred))); });
}

// Asks a configuration for one of its properties; `fallback` answers for a null handle, and for a configuration that a
// failed assignment left without a kind.
template <class Result, class... Parameters>
Result ask(const KivProxyConfig* config, Result fallback, Result (ProxyConfig::*query)(Parameters...) const,
           Parameters... arguments) {
  if (!config) return fallback;
  return guarded(fallback, [&] { return (toObject(config)->*query)(arguments...); });
}

}  // namespace

extern "C" {

KivProxyConfig* KivProxyConfig_None() { return newHandle<KivProxyConfig>(ProxyConfig::makeNone()); }
KivProxyConfig* KivProxyConfig_Direct() { return newHandle<KivProxyConfig>(ProxyConfig::makeDirect()); }

KivProxyConfig* KivProxyConfig_Http(const wchar_t* host, int port, const KivCred* cred) {
  return createServer(ProxyConfig::makeHttp, host, port, cred);
}
KivProxyConfig* KivProxyConfig_Https(const wchar_t* host, int port, const KivCred* cred) {
  return createServer(ProxyConfig::makeHttps, host, port, cred);
}
KivProxyConfig* KivProxyConfig_Socks4(const wchar_t* host, int port, const KivCred* cred) {
  return createServer(ProxyConfig::makeSocks4, host, port, cred);
}
KivProxyConfig* KivProxyConfig_Socks5(const wchar_t* host, int port, const KivCred* cred) {
  return createServer(ProxyConfig::makeSocks5, host, port, cred);
}

KivProxyConfig* KivProxyConfig_Create(const wchar_t* scheme, const wchar_t* host, int port, const KivCred* cred) {
  if (!scheme || !host) return nullptr;
  return guarded<KivProxyConfig*>(
      nullptr, [&] { return newHandle<KivProxyConfig>(ProxyConfig::make(scheme, host, port, credentialsOf(cred))); });
}

// A port that cannot be read, or is too large, is one more way for a text to name no proxy.
KivProxyConfig* KivProxyConfig_Parse(const wchar_t* text, const KivCred* cred) {
  return guarded<KivProxyConfig*>(nullptr, [&] {
    return newHandle<KivProxyConfig>(onException<std::logic_error>(
        ProxyConfig::makeNone(), [&] { return ProxyConfig::parse(text, credentialsOf(cred)); }));
  });
}

void KivProxyConfig_ToString(const KivProxyConfig* config, int withScheme, int withCred, void* context,
                             void (*sink)(void* context, const wchar_t* text)) {
  if (!config || !context || !sink) return;
  guarded([&] { callApplication(sink, context, toObject(config)->toString(withScheme != 0, withCred != 0).c_str()); });
}

// The application relies on a copy being whole: running out of memory inside it ends the process.
KivProxyConfig* KivProxyConfig_CopyConstruct(const KivProxyConfig* source) {
  const auto copied = [](const ProxyConfig& config) noexcept { return new (std::nothrow) ProxyConfig(config); };
  return source ? toHandle<KivProxyConfig>(copied(*toObject(source))) : nullptr;
}
KivProxyConfig* KivProxyConfig_MoveConstruct(KivProxyConfig* source) { return moveConstruct(source); }
void KivProxyConfig_Copy(const KivProxyConfig* source, KivProxyConfig* target) { copy(source, target); }
void KivProxyConfig_Move(KivProxyConfig* source, KivProxyConfig* target) { move(source, target); }
void KivProxyConfig_Destruct(KivProxyConfig* config) { destruct(config); }

bool KivProxyConfig_IsNone(const KivProxyConfig* config) { return ask(config, true, &ProxyConfig::isNone); }
bool KivProxyConfig_IsDirect(const KivProxyConfig* config) { return ask(config, false, &ProxyConfig::isDirect); }
bool KivProxyConfig_IsHttp(const KivProxyConfig* config) { return ask(config, false, &ProxyConfig::isHttp); }
bool KivProxyConfig_IsHttps(const KivProxyConfig* config) { return ask(config, false, &ProxyConfig::isHttps); }
bool KivProxyConfig_IsSocks4(const KivProxyConfig* config) { return ask(config, false, &ProxyConfig::isSocks4); }
bool KivProxyConfig_IsSocks5(const KivProxyConfig* config) { return ask(config, false, &ProxyConfig::isSocks5); }
bool KivProxyConfig_IsValid(const KivProxyConfig* config) { return ask(config, false, &ProxyConfig::isValid); }

const wchar_t* KivProxyConfig_Scheme(const KivProxyConfig* config) {
  return ask<const wchar_t*>(config, nullptr, &ProxyConfig::scheme);
}
const wchar_t* KivProxyConfig_Host(const KivProxyConfig* config) {
  return ask<const wchar_t*>(config, nullptr, &ProxyConfig::host);
}
int KivProxyConfig_Port(const KivProxyConfig* config, int withDefault) {
  return ask<std::int32_t, bool>(config, -1, &ProxyConfig::port, withDefault != 0);
}
bool KivProxyConfig_HasExplicitPort(const KivProxyConfig* config) {
  return ask(config, false, &ProxyConfig::hasExplicitPort);
}
bool KivProxyConfig_HasCred(const KivProxyConfig* config) { return config && toObject(config)->hasCred(); }

KivCred* KivProxyConfig_Cred(const KivProxyConfig* config) {
  return config ? newHandle<KivCred>(toObject(config)->cred()) : nullptr;
}

}  // extern "C"
