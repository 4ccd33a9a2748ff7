// Waiting for a kernel event on the thread pool.
#include "loop/event_wait.h"

#include "loop/system_error.h"

namespace kiv::session {

EventWait::EventWait(EventLoop& loop) : loop_(loop), wait_(CreateThreadpoolWait(onEvent, this, nullptr)) {
  if (!wait_) throwLastError();
}

// The steps after which, by the documentation of CloseThreadpoolWait, no callback can come.
EventWait::~EventWait() {
  SetThreadpoolWait(wait_, nullptr, nullptr);
  WaitForThreadpoolWaitCallbacks(wait_, TRUE);
  CloseThreadpoolWait(wait_);
}

void EventWait::arm(HANDLE event, Task& task) noexcept {
  if (task_ != &task) task_ = &task;  // a callback of an earlier arming may be reading it
  SetThreadpoolWait(wait_, event, nullptr);
}

void CALLBACK EventWait::onEvent(PTP_CALLBACK_INSTANCE /*instance*/, PVOID self, PTP_WAIT /*wait*/,
                                 TP_WAIT_RESULT /*result*/) {
  const auto& wait = *static_cast<const EventWait*>(self);
  wait.loop_.post(*wait.task_);
}

}  // namespace kiv::session
