// Waiting for a kernel event on the thread pool.
#pragma once

#include "loop/event_loop.h"

namespace kiv::session {

// Posts a task when an event is set. Everything under the loop's lock, or where nobody else can reach it.
class EventWait {
 public:
  // Throws SystemError.
  explicit EventWait(EventLoop& loop);
  EventWait(const EventWait&) = delete;
  EventWait& operator=(const EventWait&) = delete;
  // Afterwards nothing is posted, and the event may be closed. Waits for a callback that is running, which is short.
  ~EventWait();

  // One shot: arm it again for the next. `task` owns this object or outlives it.
  void arm(HANDLE event, Task& task) noexcept;

 private:
  static void CALLBACK onEvent(PTP_CALLBACK_INSTANCE instance, PVOID self, PTP_WAIT wait, TP_WAIT_RESULT result);

  EventLoop& loop_;
  Task* task_ = nullptr;
  PTP_WAIT wait_ = nullptr;
};

}  // namespace kiv::session
