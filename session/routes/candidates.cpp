// Which routes are attempted for an origin, and in which order.
#include "routes/candidates.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "config/address.h"
#include "discovery/bypass_rules.h"
#include "support/border.h"
#include "support/text.h"

namespace kiv::session {
namespace {

using impl::ProxyListEntry;

struct TypeWord {
  std::wstring_view word;
  RouteKind kind;
};

// A list that the system made of a script's answer has entries without a type.
constexpr std::array kScriptWords = {
    TypeWord{L"", RouteKind::Http},         TypeWord{L"proxy", RouteKind::Http},
    TypeWord{L"http", RouteKind::Http},     TypeWord{L"https", RouteKind::Https},
    TypeWord{L"socks", RouteKind::Socks4},  TypeWord{L"socks4", RouteKind::Socks4},
    TypeWord{L"socks5", RouteKind::Socks5}, TypeWord{L"direct", RouteKind::Direct},
};

std::optional<RouteKind> kindInScript(const ProxyListEntry& entry) {
  if (entry == ProxyListEntry()) return RouteKind::Direct;
  const auto found = std::ranges::find(kScriptWords, std::wstring_view(support::toLower(entry.type)), &TypeWord::word);
  if (found == kScriptWords.end()) return std::nullopt;
  return found->kind;
}

std::optional<RouteKind> kindInManualList(const ProxyListEntry& entry, const Origin& origin) {
  const std::wstring type = support::toLower(entry.type);
  if (type.empty() || type == (origin.isHttps() ? L"https" : L"http")) return RouteKind::Http;
  if (type == L"socks") return RouteKind::Socks4;
  return std::nullopt;
}

std::optional<Route> routeOf(const ProxyListEntry& entry, std::optional<RouteKind> kind) {
  if (!kind) return std::nullopt;
  if (*kind == RouteKind::Direct) return Route();
  if (entry.port < 0 || entry.port > 0xFFFF) return std::nullopt;
  const auto port = static_cast<std::uint16_t>(entry.port);
  return Route::proxy(*kind, entry.host, port == 0 ? std::nullopt : std::optional(port));
}

// The routes of the settings, in the order in which Windows uses them.
template <class Add>
void forEachOfSettings(const Origin& origin, const CandidateSources& sources, Add add) {
  if (sources.source == ListSource::Nothing || !sources.entries || sources.entries->empty()) {
    add(Route());
    return;
  }
  if (sources.source == ListSource::Script) {
    for (const ProxyListEntry& entry : *sources.entries) {
      if (std::optional<Route> route = routeOf(entry, kindInScript(entry))) add(std::move(*route));
    }
    return;
  }
  for (const RouteKind turn : {RouteKind::Http, RouteKind::Socks4}) {
    for (const ProxyListEntry& entry : *sources.entries) {
      const std::optional<RouteKind> kind = kindInManualList(entry, origin);
      if (kind != turn) continue;
      if (std::optional<Route> route = routeOf(entry, kind)) add(std::move(*route));
    }
  }
}

// A port that cannot be read makes an entry one that cannot be read.
impl::BypassRule readRule(std::wstring_view entry) {
  return support::onException<std::logic_error>(impl::BypassRule(impl::BypassInvalidRule()),
                                                [&] { return impl::MakeBypassRule(entry); });
}

}  // namespace

std::vector<Route> candidatesFor(const Origin& origin, const CandidateSources& sources) {
  const bool directIsLast = sources.direct == DirectPolicy::LastResort;
  const std::size_t most = sources.most - (directIsLast ? 1 : 0);  // the last resort has its place
  std::vector<Route> candidates;
  const auto isUnwanted = [&](const Route& route) {
    if (route.isDirect()) return sources.direct != DirectPolicy::Settings;
    return sources.leftOut && sources.leftOut->names(route);
  };
  const auto add = [&](Route route) {
    if (candidates.size() == most || isUnwanted(route)) return;
    if (std::ranges::find(candidates, route) == candidates.end()) candidates.push_back(std::move(route));
  };
  if (sources.preferred) add(*sources.preferred);
  forEachOfSettings(origin, sources, add);
  if (sources.fallback) add(*sources.fallback);
  if (directIsLast) candidates.emplace_back();
  return candidates;
}

bool isBypassed(const Origin& origin, std::wstring_view bypassList) {
  if (bypassList.empty()) return false;
  std::vector<impl::BypassRule> rules;
  for (const std::wstring_view entry : impl::SplitBypassList(bypassList)) rules.push_back(readRule(entry));
  impl::removeInvalidRules(rules);
  impl::ParsedAddress target;  // a parser of addresses does not know IPv6 literals
  target.scheme = origin.isHttps() ? L"https" : L"http";
  target.host = origin.host();
  target.port = origin.port();
  return impl::anyRuleMatches(rules, target);
}

}  // namespace kiv::session
