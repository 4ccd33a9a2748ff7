// Proxies to which no connection could be made, while another candidate succeeded.
#pragma once

#include <map>

#include "loop/event_loop.h"
#include "routes/route.h"

namespace kiv::session {

// Under the session's lock. At most kMost are remembered; the one that died first makes room.
class DeadProxies {
 public:
  static constexpr std::size_t kMost = 1'024;

  void died(const Route& proxy, Time until);  // throws std::bad_alloc
  void lives(const Route& proxy) noexcept;
  bool isDead(const Route& proxy, Time now) const noexcept;
  void forget() noexcept { until_.clear(); }

 private:
  std::map<Route, Time> until_;
};

}  // namespace kiv::session
