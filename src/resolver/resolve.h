// The procedure of a resolution: gathers candidates, filters them, and tests them until one works.
#pragma once

#include <optional>
#include <string_view>

#include "config/proxy_config.h"
#include "log/logger.h"
#include "resolver/application_callbacks.h"

namespace kiv::impl {

// Direct if the bypass list names the target or there is no candidate; None if no candidate worked; otherwise the first
// that did, with the credentials that were obtained for it. `bypassOverride` replaces the system's bypass list, also
// when it is empty. Whatever a callback throws, or memory running out, leaves the procedure after its last log line.
ProxyConfig resolveProxyConfig(std::wstring_view targetUrl, std::wstring_view userAgent,
                               std::optional<std::wstring_view> bypassOverride, ProxyConfig preferred,
                               ProxyConfig fallback, ApplicationCallbacks application, const Logger& logger);

}  // namespace kiv::impl
