// Candidates, of both forms of lists and under each policy. First line: the proxies that are left out. Second: the
// fallback proxy. The rest: the list.
#include <algorithm>

#include "fuzz/fuzz_input.h"
#include "platform/simulated_windows.h"
#include "routes/candidates.h"

using namespace kiv;
using session::DirectPolicy;
using session::ListSource;
using session::Route;
using session::RouteKind;

namespace {

void requireOrder(const std::vector<Route>& candidates, const session::CandidateSources& sources) {
  const auto isDirect = [](const Route& route) { return route.isDirect(); };
  const auto directs = std::ranges::count_if(candidates, isDirect);
  if (sources.direct == DirectPolicy::Never) fuzz::require(directs == 0, "never is never");
  if (sources.direct == DirectPolicy::LastResort) {
    fuzz::require(directs == 1 && candidates.back().isDirect(), "the last resort is there, and last");
  }
  if (sources.source != ListSource::Manual) return;
  std::vector<Route> ofSettings = candidates;
  std::erase_if(ofSettings, [&](const Route& route) { return route == sources.fallback; });
  const auto isSocks = [](const Route& route) { return route.kind == RouteKind::Socks4; };
  const auto isHttp = [](const Route& route) { return route.kind == RouteKind::Http; };
  const auto firstSocks = std::ranges::find_if(ofSettings, isSocks);
  fuzz::require(std::none_of(firstSocks, ofSettings.end(), isHttp), "socks= comes last");
}

void requireValid(const std::vector<Route>& candidates, const session::CandidateSources& sources) {
  fuzz::require(candidates.size() <= sources.most, "no more than there may be");
  for (auto route = candidates.begin(); route != candidates.end(); ++route) {
    fuzz::require(std::find(candidates.begin(), route, *route) == route, "none is there twice");
    if (route->isDirect()) continue;
    fuzz::require(!sources.leftOut->names(*route), "none that is left out");
    fuzz::require(!route->host.empty() && route->port != 0, "a proxy has a host and a port");
    fuzz::require(Route::parse(route->url(), RouteKind::Socks5) == *route, "a proxy's URL reads as the proxy");
  }
  requireOrder(candidates, sources);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const test::SimulatedWindows windows;
  fuzz::Input input(data, size);
  const session::LeftOut leftOut(input.wideLine());
  session::CandidateSources sources;
  sources.leftOut = &leftOut;
  sources.fallback = Route::parse(input.wideLine(), RouteKind::Socks5);
  const std::wstring text = input.wideRest();
  std::vector<impl::ProxyListEntry> entries;
  sources.entries = &entries;
  for (const bool script : {false, true}) {
    script ? impl::ParsePacProxyList(text, entries) : impl::ParseWinHttpProxyList(text, entries);
    for (const ListSource source : {ListSource::Nothing, ListSource::Manual, ListSource::Script}) {
      for (const DirectPolicy direct : {DirectPolicy::Settings, DirectPolicy::LastResort, DirectPolicy::Never}) {
        for (const std::size_t most : {1U, 3U, 32U}) {
          sources.source = source;
          sources.direct = direct;
          sources.most = most;
          for (const wchar_t* url : {L"http://target", L"https://target"}) {
            requireValid(session::candidatesFor(*session::Origin::parse(url), sources), sources);
          }
        }
      }
    }
  }
  return 0;
}
