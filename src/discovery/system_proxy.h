// What the system says: which proxies the current user would use for a URL.
#pragma once

#include <string>
#include <vector>

#include "discovery/discovery_progress.h"
#include "discovery/proxy_list.h"
#include "support/platform.h"

namespace kiv::impl {

// Asks, in this order, automatic detection, the user's script URL (a local script through EvaluateLocalPacScript) and
// the user's manual list; each is asked only if the one before is not set up or failed with a tolerable error.
//
// `winHttp` is an open session. On success, also with an empty answer, `candidates` and `bypassText` are replaced.
// False after a failure that is not tolerable. With a `progress` the lists are limited as it says, and it can give the
// discovery up, which counts as a failure.
bool lorvResolveProxy(HINTERNET winHttp, const std::wstring& targetUrl, std::vector<ProxyListEntry>& candidates,
                      std::wstring& bypassText, DiscoveryProgress* progress = nullptr);

// Whether the next source is asked after automatic configuration failed with `code`.
bool IsTolerableAutoProxyError(DWORD code);

}  // namespace kiv::impl
