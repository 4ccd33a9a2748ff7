// The candidates that come from the system's proxy settings.
#include "resolver/system_candidates.h"

#include <algorithm>
#include <utility>

#include "discovery/proxy_list.h"
#include "discovery/system_proxy.h"
#include "support/owners.h"

namespace kiv::impl {
namespace {

// An entry without a port has port 0 and DIRECT has no host: both are tested as they stand, and fail as they may.
ProxyConfig candidateFrom(ProxyListEntry&& entry) {
  const std::wstring_view scheme = entry.type.empty() ? std::wstring_view(L"http") : entry.type;
  return ProxyConfig::make(scheme, std::move(entry.host), std::max(entry.port, -1), std::nullopt);
}

}  // namespace

SystemProxySettings readSystemProxySettings(const std::wstring& targetUrl, const std::wstring& userAgent,
                                            const Logger& logger) {
  SystemProxySettings settings;
  std::vector<ProxyListEntry> entries;
  bool read = false;
  {
    const support::UniqueInternet session(WinHttpOpen(userAgent.c_str(), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                                      WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    read = session && lorvResolveProxy(session.get(), targetUrl, entries, settings.bypassList);
  }
  if (!read) logger.warn(L"lorvResolveProxy() returned error status.");
  settings.candidates.reserve(entries.size());
  for (ProxyListEntry& entry : entries) settings.candidates.push_back(candidateFrom(std::move(entry)));
  return settings;
}

}  // namespace kiv::impl
