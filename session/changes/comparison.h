// Reading what may have changed, and comparing it with what was read before.
#pragma once

#include <optional>
#include <utility>

#include "changes/change_source.h"
#include "loop/event_loop.h"
#include "support/border.h"

namespace kiv::session {

// `Snapshot::read()` may block. Everything else under the loop's lock.
template <class Snapshot>
class Comparison final : public Job {
 public:
  Comparison(EventLoop& loop, ChangeSink& sink) noexcept : loop_(loop), sink_(&sink) {}

  // What was read before the system was asked to tell of changes; nothing if it could not be.
  void beginWith(std::optional<Snapshot> first) noexcept {
    last_ = std::move(first);
    read();
  }
  // Reads, and tells the sink of a difference. While a reading is going on, another follows.
  void read() noexcept {
    again_ = reading_;
    if (reading_) return;
    reading_ = loop_.start(*this);
  }
  // Reads, and compares with nothing: what the next readings find is compared with it.
  void renew() noexcept {
    last_.reset();
    read();
  }
  // The sink hears nothing any more.
  void stop() noexcept { sink_ = nullptr; }

 private:
  ~Comparison() override = default;

  void work() noexcept override {
    support::guarded([this] { found_ = Snapshot::read(); });  // without memory nothing is noticed
  }

  void run() noexcept override {
    if (!sink_) return;
    reading_ = false;
    const bool differs = found_ && last_ && *last_ != *found_;
    if (found_) last_ = std::exchange(found_, std::nullopt);
    if (again_) read();
    if (differs) sink_->foundDifference();
  }

  EventLoop& loop_;
  ChangeSink* sink_;
  std::optional<Snapshot> last_;
  std::optional<Snapshot> found_;  // the job's while it works
  bool reading_ = false;
  bool again_ = false;
};

}  // namespace kiv::session
