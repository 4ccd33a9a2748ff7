// Counts the calls that are inside a session, so that its state outlives them.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/platform.h"

namespace kiv::session {

// A session's first reference belongs to its handle. A counter that all calls share would make lookups of several threads
// wait for each other's cache line, so threads are spread over several.
class CallGate {
 public:
  struct alignas(64) Stripe {
    std::atomic<std::int32_t> inside{0};
    std::atomic<std::uint64_t> keptAnswers{0};
  };

  Stripe& enter() noexcept {
    Stripe& stripe = stripes_[(GetCurrentThreadId() >> 2) % stripes_.size()];  // thread ids are multiples of 4
    stripe.inside.fetch_add(1);
    return stripe;
  }
  // True if the session has been given up and somebody must look whether this was the last call.
  bool leave(Stripe& stripe) noexcept {
    stripe.inside.fetch_sub(1);
    return givenUp_.load();
  }
  // No call enters afterwards.
  void giveUp() noexcept { givenUp_.store(true); }
  bool isGivenUp() const noexcept { return givenUp_.load(); }
  bool isEmpty() const noexcept {
    std::int32_t inside = 0;
    for (const Stripe& stripe : stripes_) inside += stripe.inside.load();
    return inside == 0;
  }
  std::uint64_t keptAnswers() const noexcept {
    std::uint64_t sum = 0;
    for (const Stripe& stripe : stripes_) sum += stripe.keptAnswers.load(std::memory_order_relaxed);
    return sum;
  }

 private:
  std::array<Stripe, 16> stripes_;
  std::atomic<bool> givenUp_{false};
};

}  // namespace kiv::session
