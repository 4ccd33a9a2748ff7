// Which routes are attempted for an origin, and in which order.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "discovery/proxy_list.h"
#include "routes/left_out.h"
#include "routes/origin.h"
#include "routes/route.h"

namespace kiv::session {

enum class DirectPolicy : std::uint8_t { Settings, LastResort, Never };

// Where the entries of a list come from; the same word means different things in each.
enum class ListSource : std::uint8_t {
  Nothing,  // the settings name no proxy: direct stands in their place
  Manual,  // http= and https= say for which URLs an entry is; the proxy itself speaks HTTP; socks= is SOCKS 4, and last
  Script   // PROXY and HTTP, HTTPS, SOCKS and SOCKS4, SOCKS5, DIRECT
};

struct CandidateSources {
  std::optional<Route> preferred;
  ListSource source = ListSource::Nothing;
  const std::vector<impl::ProxyListEntry>* entries = nullptr;  // null is an empty list
  std::optional<Route> fallback;
  DirectPolicy direct = DirectPolicy::Settings;
  const LeftOut* leftOut = nullptr;  // null leaves nothing out
  std::size_t most = 32;
};

// Doubles once, none with an empty host or a port outside 1 to 65535. The last resort has a place among the `most`.
// Throws std::bad_alloc.
std::vector<Route> candidatesFor(const Origin& origin, const CandidateSources& sources);

// Whether a list, the settings' or the session's own, sends the origin direct. A rule whose port is no number of 32
// bits names nothing. Throws std::bad_alloc.
bool isBypassed(const Origin& origin, std::wstring_view bypassList);

}  // namespace kiv::session
