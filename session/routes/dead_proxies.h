// Proxies to which no connection could be made, while another candidate succeeded.
#pragma once

#include <map>

#include "loop/event_loop.h"
#include "routes/route.h"

namespace kiv::session {

// Under the session's lock. At most 1,024 are remembered; the one that died first makes room.
class DeadProxies {
 public:
  void died(const Route& proxy, Time until);  // throws std::bad_alloc
  void lives(const Route& proxy) noexcept;
  bool isDead(const Route& proxy, Time now) const noexcept;
  void forget() noexcept;
};

}  // namespace kiv::session
