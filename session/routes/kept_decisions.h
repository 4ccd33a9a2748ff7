// The decisions that are remembered, by origin.
//
// Has locks of its own, so that a lookup neither waits for the session's work nor for lookups of other origins: origins
// are spread over parts, whose locks readers share. Changes take a lock of all, and then those of the parts they
// change.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "loop/event_loop.h"
#include "routes/decision.h"

namespace kiv::session {

class KeptDecisions {
 public:
  // Room for `capacity` origins, 1 to 10,000. Then one that was not used for long makes room: a hand goes round, passes
  // each that was found since it last came by, and takes the next. Throws std::bad_alloc.
  explicit KeptDecisions(std::size_t capacity);

  KeptDecisions(const KeptDecisions&) = delete;
  KeptDecisions& operator=(const KeptDecisions&) = delete;
  ~KeptDecisions();

  struct Found {
    Ref<Decision> decision;  // null: none is kept
    bool fresh = false;      // otherwise past its time, and the answer while a refresh runs
  };
  // From any thread, as all that follow. Allocates nothing and calls nothing of the system.
  Found find(const Origin& origin, Time now) noexcept;

  // Fresh before `freshUntil`, found before `keptUntil`. Replaces the origin's former decision. Throws std::bad_alloc.
  void keep(const Origin& origin, Ref<Decision> decision, Time freshUntil, Time keptUntil);
  void drop(const Origin& origin) noexcept;
  void dropAll() noexcept;
  // Those that answer `isStale(const Decision&)` with true. Must not throw, and must not call the decisions.
  template <class Predicate>
  void dropIf(Predicate isStale) noexcept {
    dropEach([](const Decision& decision, void* predicate) { return (*static_cast<Predicate*>(predicate))(decision); },
             &isStale);
  }
  // Those whose time has passed count until they make room.
  std::size_t size() const noexcept;

 private:
  struct Entry;
  // A part's lock, far enough from the next that two processors do not fight over one line of their caches.
  struct Part {
    Lock lock;
    std::array<std::byte, 64> apart;
  };
  static constexpr std::size_t kParts = 64;

  Entry*& chainOf(std::size_t hash) noexcept { return chains_[hash & (chains_.size() - 1)]; }
  Lock& lockOf(std::size_t hash) noexcept { return parts_[hash % kParts].lock; }
  Entry* entryOf(const Origin& origin) noexcept;
  void link(Entry& entry) noexcept;
  void unlink(Entry& entry) noexcept;
  void remove(std::size_t place) noexcept;
  std::size_t makeRoom() noexcept;
  void dropEach(bool (*isStale)(const Decision&, void*), void* predicate) noexcept;

  std::size_t capacity_;
  mutable Lock changes_;
  // Chains of entries by hash, as many as a power of two and no fewer than parts. Changed under both locks.
  std::vector<Entry*> chains_;
  std::array<Part, kParts> parts_;
  // Under the lock of all.
  std::vector<std::unique_ptr<Entry>> entries_;
  std::size_t hand_ = 0;
};

}  // namespace kiv::session
