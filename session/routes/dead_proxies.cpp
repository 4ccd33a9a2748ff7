// Proxies to which no connection could be made, while another candidate succeeded.
#include "routes/dead_proxies.h"

#include <algorithm>

namespace kiv::session {

void DeadProxies::died(const Route& proxy, Time until) {
  if (until_.size() == kMost && !until_.contains(proxy)) {
    // All are dead for the same time, so the one that died first is the one whose death ends first.
    until_.erase(std::ranges::min_element(until_, {}, [](const auto& entry) { return entry.second; }));
  }
  until_[proxy] = until;
}

void DeadProxies::lives(const Route& proxy) noexcept { until_.erase(proxy); }

bool DeadProxies::isDead(const Route& proxy, Time now) const noexcept {
  const auto found = until_.find(proxy);
  return found != until_.end() && now < found->second;
}

}  // namespace kiv::session
