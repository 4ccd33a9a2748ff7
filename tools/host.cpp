// The host of a resolution: the library's own client and dialogs behind its callbacks.
#include "host.h"

#include <windows.h>

#include <string>

#include "console.h"

namespace kiv::tool {
namespace {

KivHttpClient* clientOf(void* client) { return static_cast<KivHttpClient*>(client); }

// Every candidate is worth a try.
int keep(const void*, KivProxyConfig*) { return 1; }

int head(const void* client, const void* log) {
  return KivHttpClient_Head(static_cast<const KivHttpClient*>(client), static_cast<const LogPrinter*>(log)->logger());
}

int get(const void* client, const void* log) {
  return KivHttpClient_Get(static_cast<const KivHttpClient*>(client), static_cast<const LogPrinter*>(log)->logger());
}

// The client takes the credential out of the handle; the handle itself stays to be released.
void setServerCred(void* client, KivCred* cred) {
  const UniqueCred owned(cred);
  KivHttpClient_SetServerCred(clientOf(client), owned.get());
}

void setProxy(void* client, KivProxyConfig* proxy) { KivHttpClient_SetProxy(clientOf(client), proxy); }

KivLogger* loggerOf(const void* log) { return static_cast<const LogPrinter*>(log)->logger(); }

std::wstring display(const KivProxyConfig* proxy) {
  std::wstring text;
  KivProxyConfig_ToString(proxy, 1, 0, &text,
                          [](void* context, const wchar_t* shown) { *static_cast<std::wstring*>(context) = shown; });
  return text;
}

}  // namespace

Host::Host(const Options& options)
    : options_(options),
      log_(options.quiet),
      client_(KivHttpClient_Create(options.url.c_str(), options.userAgent.c_str(), options.ignoreCertErrors)) {}

KivCred* Host::proxyCred(KivProxyConfig* proxy) const {
  if (options_.proxyCred) return KivCred_CopyConstruct(options_.proxyCred.get());
  if (!options_.prompt) return KivCred_None();
  return KivDialogAuthUi_ProxyAuthUi(display(proxy).c_str(), L"kiv-resolve", GetConsoleWindow());
}

KivCred* Host::serverCred(const wchar_t* url) const {
  if (options_.serverCred) return KivCred_CopyConstruct(options_.serverCred.get());
  if (!options_.prompt) return KivCred_None();
  return KivDialogAuthUi_ServerAuthUi(url, L"kiv-resolve", GetConsoleWindow());
}

UniqueProxyConfig Host::resolve() {
  const auto serverSource = [](const void* self, const wchar_t* url) {
    return static_cast<const Host*>(self)->serverCred(url);
  };
  const auto proxySource = [](const void* self, KivProxyConfig* proxy) {
    return static_cast<const Host*>(self)->proxyCred(proxy);
  };
  return UniqueProxyConfig(KivProxyResolver_Resolve(
      options_.url.c_str(), options_.userAgent.c_str(), options_.bypass ? options_.bypass->c_str() : nullptr,
      options_.preferred.get(), options_.fallback.get(), this, keep, this, serverSource, this, proxySource,
      client_.get(), options_.method == Method::Get ? get : head, setServerCred, setProxy, &log_, loggerOf));
}

}  // namespace kiv::tool
