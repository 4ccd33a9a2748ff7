// Counts the calls that are inside a session, so that its state outlives them.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/platform.h"

namespace kiv::session {

// A session's first reference belongs to its handle, and is released when the handle has been given up and the last
// call has left. A counter that all calls share would make lookups of several threads wait for each other's cache line,
// so threads are spread over several.
class CallGate {
 public:
  struct alignas(64) Stripe {
    std::atomic<std::uint32_t> inside{0};  // calls, and kGivenUp
    std::atomic<std::uint64_t> keptAnswers{0};
  };

  Stripe& enter() noexcept {
    Stripe& stripe = stripes_[(GetCurrentThreadId() >> 2) % stripes_.size()];  // thread ids are multiples of 4
    stripe.inside.fetch_add(1);
    return stripe;
  }
  // No call enters afterwards. True, here or once from leave(), for whoever has to release the handle's reference.
  bool giveUp() noexcept {
    bool isLast = false;
    for (Stripe& stripe : stripes_) {
      if (stripe.inside.fetch_or(kGivenUp) == 0) isLast = stripeEmptied();
    }
    return isLast;
  }
  // If it returns false, the session may be gone.
  bool leave(Stripe& stripe) noexcept { return stripe.inside.fetch_sub(1) == (kGivenUp | 1U) && stripeEmptied(); }

  std::uint64_t keptAnswers() const noexcept {
    std::uint64_t sum = 0;
    for (const Stripe& stripe : stripes_) sum += stripe.keptAnswers.load(std::memory_order_relaxed);
    return sum;
  }

 private:
  static constexpr std::uint32_t kGivenUp = 0x8000'0000U;
  static constexpr std::size_t kStripes = 16;

  bool stripeEmptied() noexcept { return stripesLeft_.fetch_sub(1) == 1; }

  std::array<Stripe, kStripes> stripes_;
  std::atomic<std::size_t> stripesLeft_{kStripes};  // that a call is in, or may still enter
};

}  // namespace kiv::session
