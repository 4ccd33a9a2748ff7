// The environment variables that tell programs which proxy to use.
#include "environment/variables.h"

#include <algorithm>

namespace kiv::tool {
namespace {

Wiped<wchar_t> wipedText(std::wstring_view text) { return {text.begin(), text.end()}; }

Variable removed(std::wstring_view name) { return {name, std::nullopt}; }

std::optional<Wiped<wchar_t>> valueOf(const Route& route) {
  if (!route.proxy) return std::nullopt;
  return urlOf(*route.proxy, viewOf(route.userInfo));
}

}  // namespace

bool isHttps(const Route& route) { return ProxyConfig::parse(route.url).is_https(); }

bool allDirect(const std::vector<Route>& routes) {
  return std::ranges::none_of(routes, [](const Route& route) { return route.proxy.has_value(); });
}

std::vector<Variable> variablesFor(const std::vector<Route>& routes, std::wstring_view exceptions) {
  std::vector<Variable> variables;
  if (allDirect(routes)) {
    for (const std::wstring_view name : {kHttpProxy, kHttpsProxy, kAllProxy}) variables.push_back(removed(name));
    variables.push_back({kNoProxy, wipedText(L"*")});
    return variables;
  }
  for (const Route& route : routes) {
    variables.push_back({isHttps(route) ? kHttpsProxy : kHttpProxy, valueOf(route)});
    // Programs would use it for the scheme that has no variable of its own.
    if (!route.proxy) variables.push_back(removed(kAllProxy));
  }
  variables.push_back(exceptions.empty() ? removed(kNoProxy) : Variable{kNoProxy, wipedText(exceptions)});
  return variables;
}

}  // namespace kiv::tool
