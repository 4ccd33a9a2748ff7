// Everything that the command `sources` finds out.
#include "sources/sources.h"

#include <algorithm>
#include <chrono>

#include "common/presentable.h"
#include "sources/calls.h"
#include "sources/limited_network.h"
#include "sources/places.h"
#include "sources/registry.h"
#include "sources/warnings.h"

namespace kiv::tool {
namespace {

// Somebody who writes thousands of settings does not make this program send thousands of requests.
constexpr std::size_t kMostScripts = 16;

bool beginsWith(std::wstring_view text, std::wstring_view beginning) {
  return text.size() >= beginning.size() && sameName(text.substr(0, beginning.size()), beginning);
}

bool isWebUrl(std::wstring_view url) { return beginsWith(url, L"http://") || beginsWith(url, L"https://"); }

// Calls `visit` with each place and each call.
template <class Visit>
void forEachPlace(const Sources& sources, Visit visit) {
  std::ranges::for_each(sources.places, visit);
  std::ranges::for_each(sources.calls, visit);
}

// Seconds since 1601.
std::int64_t now() {
  FILETIME time{};
  GetSystemTimeAsFileTime(&time);
  return ((std::int64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) / 10'000'000;
}

// Asks HTTP proxies as if they were web servers: they answer for themselves then, and nothing is sent to the URL. The
// first that tells the time counts.
std::optional<ProxyClock> readClock(const std::vector<Candidate>& candidates, const Network& network) {
  constexpr int kMostProxies = 3;
  std::optional<ProxyClock> clock;
  int asked = 0;
  for (const Candidate& candidate : candidates) {
    const ProxyConfig& proxy = candidate.route;
    const int port = proxy.port().value_or(0);
    if (!proxy.is_http() || proxy.host().empty() || port <= 0) continue;
    if (asked++ == kMostProxies) break;
    const std::wstring name = presentable(proxy.display_string());
    const auto date = network.dateOf(std::wstring(proxy.host()), static_cast<std::uint16_t>(port));
    if (date) return ProxyClock{name, now() - *date};
    if (!clock) clock = {name, std::nullopt};
  }
  return clock;
}

}  // namespace

bool ScriptAnswer::isHtml() const {
  const std::size_t first = fetched.beginning.find_first_not_of("\xEF\xBB\xBF \t\r\n");
  return beginsWith(fetched.contentType, L"text/html") ||
         (first != std::string::npos && fetched.beginning[first] == '<');
}

std::vector<ListInPlaces> listsReadDifferently(const Sources& sources) {
  std::vector<ListInPlaces> lists;
  forEachPlace(sources, [&](const Place& place) {
    // kiv.dll reads no browser's policies.
    if (place.naming.manualList.empty() || isOfBrowser(place)) return;
    const auto isSame = [&](const ListInPlaces& list) {
      return list.manualList == place.naming.manualList && list.bypassList == place.naming.bypassList;
    };
    const auto known = std::ranges::find_if(lists, isSame);
    if (known != lists.end()) return known->places.push_back(place.id);
    ListReading reading = readingOf(place.naming.manualList, place.naming.bypassList);
    if (!reading.differences.empty())
      lists.push_back({place.naming.manualList, place.naming.bypassList, {place.id}, std::move(reading)});
  });
  return lists;
}

std::vector<ScriptAnswer> scriptsNamedIn(const Sources& sources) {
  std::vector<ScriptAnswer> scripts;
  forEachPlace(sources, [&](const Place& place) {
    const std::wstring& url = place.naming.scriptUrl;
    const auto known = std::ranges::find(scripts, url, &ScriptAnswer::url);
    if (known != scripts.end()) return known->places.push_back(place.id);
    if (isWebUrl(url) && scripts.size() < kMostScripts) scripts.push_back({.url = url, .places = {place.id}});
  });
  return scripts;
}

Sources readSources(const std::vector<Candidate>& candidates, TimeLimits limits) {
  const LimitedNetwork network(limits);
  Sources sources;
  sources.time = std::chrono::system_clock::now();
  sources.run = readThisRun();
  sources.places = readPlaces(WindowsRegistry(), processEnvironment(), network);
  sources.calls = readCalls();
  sources.scripts = scriptsNamedIn(sources);
  for (ScriptAnswer& script : sources.scripts) script.fetched = network.fetch(script.url);
  sources.lists = listsReadDifferently(sources);
  sources.clock = readClock(candidates, network);
  sources.warnings = warningsAbout(sources);
  sources.notes = notesAbout(sources);
  return sources;
}

}  // namespace kiv::tool
