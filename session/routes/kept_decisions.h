// The decisions that are remembered, by origin.
//
// Has locks of its own, so that a lookup neither waits for the session's work nor for lookups of other origins: origins
// are spread over parts, whose locks readers share.
#pragma once

#include <cstddef>

#include "loop/event_loop.h"
#include "routes/decision.h"

namespace kiv::session {

class KeptDecisions {
 public:
  // Room for `capacity` origins, 1 to 10,000; the one that was not used for longest makes room. Throws std::bad_alloc.
  explicit KeptDecisions(std::size_t capacity);

  struct Found {
    Ref<Decision> decision;  // null: none is kept
    bool fresh = false;      // otherwise past its time, and the answer while a refresh runs
  };
  // From any thread. Allocates nothing and calls nothing of the system.
  Found find(const Origin& origin, Time now) noexcept;

  // Fresh before `freshUntil`, found before `keptUntil`. Replaces the origin's former decision. Throws std::bad_alloc.
  void keep(const Origin& origin, Ref<Decision> decision, Time freshUntil, Time keptUntil);
  void drop(const Origin& origin) noexcept;
  void dropAll() noexcept;
  // Those that answer `isStale(const Decision&)` with true. Must not throw.
  template <class Predicate>
  void dropIf(Predicate isStale) noexcept;
  std::size_t size() const noexcept;
};

}  // namespace kiv::session
