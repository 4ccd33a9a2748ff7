// What callbacks of the system post.
#pragma once

#include "changes/change_source.h"
#include "loop/event_loop.h"

namespace kiv::session {

// Tells a sink, in the loop, that a callback of the system ran.
//
// Callbacks are registered with a number in place of a pointer: of what unregisters them, no documentation promises
// that it waits for those that are running. A late one finds nobody behind its number.
class Notice final : public Task {
 public:
  Notice(EventLoop& loop, ChangeSink& sink, ChangeSource source) noexcept;

  // What a callback is registered with: a number, which is never used as an address.
  void* context() const noexcept { return reinterpret_cast<void*>(number_); }  // NOLINT(performance-no-int-to-ptr)
  // From a callback, with what it was registered with.
  static void post(void* context) noexcept;
  // Under the loop's lock: from now on its callbacks do nothing.
  void stop() noexcept;

 private:
  ~Notice() override;
  void run() noexcept override;
  void leave() noexcept;

  EventLoop& loop_;
  ChangeSink* sink_;
  ChangeSource source_;
  std::uintptr_t number_;
  Notice* next_ = nullptr;  // of the process's list
};

}  // namespace kiv::session
