// One caller that waits for a resolution.
#include "core/request.h"

#include <utility>

#include "core/resolution.h"
#include "core/session.h"

namespace kiv::session {

Request::Request(Session& session, const Origin& origin, Report report, std::uint64_t tag, KivDoneFunction done)
    : session_(&session), origin_(origin), report_(report), deadline_(session.loop(), *this) {
  if (report == Report::Event) {
    event_ = makeRef<Event>(EventContents{.kind = KIV_EVENT_COMPLETED, .tag = tag, .done = done});
  }
}

void Request::end(KivStatus status, const Ref<Decision>& decision) noexcept {
  if (!std::exchange(pending_, false)) return;
  resolution_ = nullptr;
  deadline_.clear();
  session_->requestEnded(report_);
  {
    const LockGuard guard(ended_);
    hasEnded_ = true;
    status_ = status;
    decision_ = decision;
    whenEnded_.wakeAll();
  }
  if (!event_) return;
  event_->complete(status, decision);
  session_->outbox().send(std::exchange(event_, {}));
}

// The last one that goes cancels the resolution.
void Request::leave(KivStatus status) noexcept {
  const Ref<Resolution> left(resolution_);
  end(status, {});
  if (left) left->leave(*this);
}

void Request::timedOut() noexcept {
  const Ref<Request> self(this);
  leave(KIV_STATUS_TIMED_OUT);
}

void Request::cancel() noexcept {
  const LockGuard guard(session_->loop().lock());
  if (pending_) leave(KIV_STATUS_CANCELLED);
}

KivStatus Request::wait(std::uint32_t timeout, Ref<Decision>& decision) noexcept {
  if (session_->outbox().isInCallback()) return KIV_STATUS_REENTRANT;
  const Time begun = EventLoop::now();
  const LockGuard guard(ended_);
  while (!hasEnded_) {
    const Time passed = EventLoop::now() - begun;
    if (timeout != KIV_NO_TIME_OUT && passed >= timeout) return KIV_STATUS_NOT_YET;
    whenEnded_.wait(ended_, timeout == KIV_NO_TIME_OUT ? INFINITE : static_cast<std::uint32_t>(timeout - passed));
  }
  decision = decision_;
  return status_;
}

}  // namespace kiv::session
