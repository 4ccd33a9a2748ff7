// Reading what may have changed, and comparing it with what was read before.
#pragma once

#include <optional>
#include <utility>

#include "changes/change_source.h"
#include "loop/event_loop.h"

namespace kiv::session {

// `Snapshot::read()` may block. Everything else under the loop's lock.
template <class Snapshot>
class Comparison final : public Job {
 public:
  Comparison(EventLoop& loop, ChangeSink& sink) noexcept : loop_(loop), sink_(&sink) {}

  // The system said that something may be different. Before the first snapshot is there, that is taken for a
  // difference: nobody knows what was the case before.
  void suspect() noexcept { unseen_ = unseen_ || !last_; }
  // Reads, and tells the sink of a difference. While a reading is going on, another follows.
  void read() noexcept {
    again_ = reading_;
    if (reading_) return;
    differs_ = std::exchange(unseen_, false);
    reading_ = loop_.start(*this);
  }
  // Reads, and compares with nothing: what the next readings find is compared with it.
  void renew() noexcept {
    last_.reset();
    unseen_ = false;
    read();
  }
  // The sink hears nothing any more.
  void stop() noexcept { sink_ = nullptr; }

 private:
  ~Comparison() override = default;

  void work() noexcept override {
    try {
      found_ = Snapshot::read();
    } catch (...) {  // without memory nothing is noticed
      found_.reset();
    }
  }

  void run() noexcept override {
    if (!sink_) return;
    reading_ = false;
    bool differs = std::exchange(differs_, false);
    if (found_) {
      differs = differs || (last_ && *last_ != *found_);
      last_ = std::exchange(found_, std::nullopt);
    }
    if (again_) read();
    if (differs) sink_->foundDifference();
  }

  EventLoop& loop_;
  ChangeSink* sink_;
  std::optional<Snapshot> last_;
  std::optional<Snapshot> found_;  // the job's while it works
  bool reading_ = false;
  bool again_ = false;
  bool unseen_ = false;
  bool differs_ = false;
};

}  // namespace kiv::session
