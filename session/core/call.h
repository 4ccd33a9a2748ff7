// One call of the application inside a session.
#pragma once

#include "core/call_gate.h"
#include "core/session.h"
#include "kiv/session.h"
#include "support/border.h"

namespace kiv::session {

// The session stays meanwhile.
class Call {
 public:
  explicit Call(KivSession* handle) noexcept : session_(*support::toObject(handle)), stripe_(session_.gate().enter()) {}
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() {
    if (session_.gate().leave(stripe_)) session_.releaseHandle();
  }

  Session& session() noexcept { return session_; }
  CallGate::Stripe& stripe() noexcept { return stripe_; }

 private:
  Session& session_;
  CallGate::Stripe& stripe_;
};

// Runs `body(Call&)` as one call; its exceptions become a status.
template <class Body>
KivStatus call(KivSession* handle, Body&& body) noexcept {
  if (!handle) return KIV_STATUS_BAD_ARGUMENT;
  Call inside(handle);
  return statusOf([&] { return body(inside); });
}

}  // namespace kiv::session
