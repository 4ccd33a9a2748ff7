// Asking the application's filter which candidates may be used.
#pragma once

#include <string>
#include <vector>

#include "kiv/session.h"
#include "loop/event_loop.h"

namespace kiv::session {

class Resolution;

// Goes through the outbox, like everything that calls the application, and comes back to the loop as a task.
class Filtering final : public Task {
 public:
  Filtering(EventLoop& loop, Resolution& resolution, std::vector<std::wstring> proxyUrls);

  // Without a lock, on the callbacks' thread.
  void ask(KivFilterFunction function, void* context) noexcept;
  // In the loop, before the resolution goes.
  void abandon() noexcept;
  const std::vector<bool>& allowed() const noexcept { return allowed_; }

 private:
  ~Filtering() override = default;
  void run() noexcept override;

  Ref<EventLoop> loop_;
  Resolution* resolution_;  // under the loop's lock; null if the result is not wanted any more
  std::vector<std::wstring> proxyUrls_;
  std::vector<bool> allowed_;
};

}  // namespace kiv::session
