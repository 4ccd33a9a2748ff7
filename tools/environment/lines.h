// Lines to paste, which make shells and programs use the routes that were found.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "environment/log_on.h"
#include "environment/no_proxy.h"
#include "environment/variables.h"

namespace kiv::tool {

// Whom the lines are for.
enum class Reader : std::uint8_t { Cmd, Batch, PowerShell, Bash, Git, Npm, Pip, Curl };

// As --for names it; nothing for another name.
std::optional<Reader> readerNamed(std::wstring_view name);
std::wstring_view nameOf(Reader reader);

// Nothing if the reader does not need a list of exceptions, or has none.
std::optional<ExceptionsRead> exceptionsReadBy(Reader reader);

struct Lines {
  std::vector<std::wstring> lines{};
  std::vector<std::wstring> remarks{};
  std::wstring problem{};  // why there are no lines; empty if there are
};

// `exceptions` is a NO_PROXY list; `logOn` is what the proxies ask for.
Lines linesFor(Reader reader, const std::vector<Route>& routes, const std::wstring& exceptions, LogOn logOn);

// What is to be known of a proxy that is not a plain HTTP proxy, when variables name it. Empty if there is nothing.
std::wstring schemeRemark(const ProxyServer& proxy);

}  // namespace kiv::tool
