// Notices that the user's settings or the network have changed.
#pragma once

#include "loop/event_loop.h"

namespace kiv::session {

class ChangesListener {
 public:
  // In the loop: settings differ, addresses differ, or the computer resumed from sleep.
  virtual void changed() noexcept = 0;

 protected:
  ~ChangesListener() = default;
};

// All under the loop's lock. What the system cannot notify of is not noticed; nothing here fails.
class Changes : public Task {
 public:
  // Begins to watch. Throws std::bad_alloc. The listener hears nothing before this has returned.
  static Ref<Changes> start(EventLoop& loop, ChangesListener& listener);
  // Ends all watching; the listener hears nothing any more. Runs in the loop (in a task), not in a call of the
  // application: it waits for notifications that are being delivered.
  virtual void stop() noexcept = 0;
};

}  // namespace kiv::session
