// The candidates that come from the system's proxy settings.
#pragma once

#include <string>
#include <vector>

#include "config/proxy_config.h"
#include "log/logger.h"

namespace kiv::impl {

struct SystemProxySettings {
  std::wstring bypassList;
  std::vector<ProxyConfig> candidates;
};

// Never fails: settings that cannot be read give a line in the log and, as a rule, no candidates.
SystemProxySettings readSystemProxySettings(const std::wstring& targetUrl, const std::wstring& userAgent,
                                            const Logger& logger);

}  // namespace kiv::impl
