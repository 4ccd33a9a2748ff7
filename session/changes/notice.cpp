// What callbacks of the system post.
#include "changes/notice.h"

namespace kiv::session {
namespace {

struct Notices {
  Lock lock;
  Notice* first = nullptr;
  std::uintptr_t lastNumber = 0;
};

constinit Notices notices;

}  // namespace

Notice::Notice(EventLoop& loop, ChangeSink& sink, ChangeSource source) noexcept
    : loop_(loop), sink_(&sink), source_(source) {
  const LockGuard guard(notices.lock);
  number_ = ++notices.lastNumber;
  next_ = std::exchange(notices.first, this);
}

Notice::~Notice() { leave(); }

void Notice::post(void* context) noexcept {
  const auto number = reinterpret_cast<std::uintptr_t>(context);
  const LockGuard guard(notices.lock);
  Notice* notice = notices.first;
  while (notice && notice->number_ != number) notice = notice->next_;
  if (notice) notice->loop_.post(*notice);
}

void Notice::stop() noexcept {
  leave();
  sink_ = nullptr;
}

void Notice::run() noexcept {
  if (sink_) sink_->heardOf(source_);
}

void Notice::leave() noexcept {
  const LockGuard guard(notices.lock);
  Notice** at = &notices.first;
  while (*at && *at != this) at = &(*at)->next_;
  if (*at) *at = next_;
}

}  // namespace kiv::session
