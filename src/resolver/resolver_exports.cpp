// The C function of a resolution: checks its arguments and turns the application's C callbacks into function objects.
#include "kiv/proxy_resolver.h"

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "log/logger.h"
#include "resolver/resolve.h"
#include "support/border.h"
#include "support/foreign_exceptions.h"

namespace {

using kiv::impl::ApplicationCallbacks;
using kiv::impl::Cred;
using kiv::impl::ProxyConfig;
using namespace kiv::support;

// What the application's callbacks borrow: a copy that ends with the call.
class Borrowed {
 public:
  explicit Borrowed(ProxyConfig config) : config_(std::move(config)) {}
  KivProxyConfig* handle() { return toHandle<KivProxyConfig>(&config_); }

 private:
  ProxyConfig config_;
};

// Takes over a handle that a credential callback made.
std::optional<Cred> adopt(KivCred* handle) {
  const std::unique_ptr<std::optional<Cred>> cred(toObject(handle));
  return std::move(*cred);
}

ProxyConfig configOrNone(const KivProxyConfig* config) { return config ? *toObject(config) : ProxyConfig::makeNone(); }

template <class... Pointers>
bool anyNull(Pointers... pointers) {
  return (... || (pointers == nullptr));
}

}  // namespace

extern "C" KivProxyConfig* KivProxyResolver_Resolve(
    const wchar_t* targetUrl, const wchar_t* userAgent, const wchar_t* bypassList, KivProxyConfig* preferred,
    KivProxyConfig* fallback, const void* filterContext, KivCandidateFilter filter, const void* serverCredContext,
    KivServerCredSource serverCred, const void* proxyCredContext, KivProxyCredSource proxyCred, void* client,
    KivTestConnection testConnection, KivSetServerCred setServerCred, KivSetProxy setProxy, const void* logContext,
    KivLoggerGetter getLogger) {
  if (anyNull(targetUrl, userAgent, filterContext, filter, serverCredContext, serverCred, proxyCredContext, proxyCred,
              client, testConnection, setServerCred, setProxy, logContext)) {
    return nullptr;
  }
  return guarded<KivProxyConfig*>(nullptr, [&] {
    const std::optional<std::wstring_view> bypassOverride =
        bypassList ? std::optional<std::wstring_view>(bypassList) : std::nullopt;
    ProxyConfig first = configOrNone(preferred);
    ProxyConfig last = configOrNone(fallback);
    const KivLogger* logger = callApplication(getLogger, logContext);
    ApplicationCallbacks application{
        .filter =
            [&](const ProxyConfig& candidate) {
              return callApplication(filter, filterContext, Borrowed(candidate).handle()) != 0;
            },
        .serverCred = [&](const wchar_t* url) { return adopt(callApplication(serverCred, serverCredContext, url)); },
        .proxyCred =
            [&](const ProxyConfig& proxy) {
              return adopt(callApplication(proxyCred, proxyCredContext, Borrowed(proxy).handle()));
            },
        .testConnection = [&] { return callApplication(testConnection, client, logContext); },
        .setServerCred =
            [&](std::optional<Cred>&& cred) {
              callApplication(setServerCred, client, newHandle<KivCred>(std::move(cred)));
            },
        .setProxy = [&](const ProxyConfig& proxy) { callApplication(setProxy, client, Borrowed(proxy).handle()); }};
    return newHandle<KivProxyConfig>(kiv::impl::resolveProxyConfig(targetUrl, userAgent, bypassOverride,
                                                                   std::move(first), std::move(last),
                                                                   std::move(application), *toObject(logger)));
  });
}
