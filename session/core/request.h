// One caller that waits for a resolution.
#pragma once

#include <cstdint>

#include "core/event.h"
#include "kiv/session.h"
#include "loop/event_loop.h"
#include "routes/decision.h"
#include "routes/origin.h"

namespace kiv::session {

class Resolution;
class Session;

class Request final : public RefCounted {
 public:
  // What becomes of the end.
  enum class Report : std::uint8_t {
    Nobody,  // a lookup or a refresh: it only keeps the resolution going
    Waiter,  // a call that waits
    Event    // an event or a `done` function
  };

  // Throws std::bad_alloc.
  Request(Session& session, const Origin& origin, Report report, std::uint64_t tag, KivDoneFunction done);

  const Origin& origin() const noexcept { return origin_; }

  // Under the loop's lock.
  void limit(Time deadline) noexcept { deadline_.set(deadline); }
  void join(Resolution& resolution) noexcept { resolution_ = &resolution; }
  void end(KivStatus status, const Ref<Decision>& decision) noexcept;
  bool isBackground() const noexcept { return report_ == Report::Nobody; }
  std::size_t place = 0;  // among the resolution's requests

  // From any thread, without the lock.
  void cancel() noexcept;
  KivStatus wait(std::uint32_t timeout, Ref<Decision>& decision) noexcept;

 private:
  ~Request() override = default;
  void timedOut() noexcept;
  void leave(KivStatus status) noexcept;

  Ref<Session> session_;
  const Origin origin_;
  const Report report_;
  Resolution* resolution_ = nullptr;  // while it is pending
  bool pending_ = true;
  Ref<Event> event_;
  DeadlineOf<Request, &Request::timedOut> deadline_;

  Lock ended_;  // of what follows; the last one to be taken
  Condition whenEnded_;
  bool hasEnded_ = false;
  KivStatus status_ = KIV_STATUS_NOT_YET;
  Ref<Decision> decision_;
};

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivRequest> {
  using Type = kiv::session::Request;
};
