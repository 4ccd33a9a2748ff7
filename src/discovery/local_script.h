// Proxy scripts in local files, which WinHTTP does not fetch.
#pragma once

#include <string>
#include <vector>

#include "discovery/proxy_list.h"

namespace kiv::impl {

// Runs the script that `autoConfigUrl` names ("file://C:/proxy.pac") in the system's script engine and reads its answer
// into `candidates`, up to `longestAnswer` characters of it. False, with `candidates` untouched, if the engine or the
// script cannot be had or gives no answer.
bool EvaluateLocalPacScript(const std::wstring& autoConfigUrl, const std::wstring& targetUrl, const std::wstring& host,
                            std::vector<ProxyListEntry>& candidates, std::size_t longestAnswer = std::wstring::npos);

}  // namespace kiv::impl
