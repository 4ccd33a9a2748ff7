// A clock that only moves when it is told to.
#include "platform/simulated_state.h"

namespace kiv::test {

void State::later(std::chrono::milliseconds delay, std::function<void()> job) {
  laterJobs.emplace(clock + delay, std::move(job));
}

void State::sleepFor(std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex);
  const auto until = clock + duration;
  while (!laterJobs.empty() && laterJobs.begin()->first <= until) {
    auto node = laterJobs.extract(laterJobs.begin());
    clock = std::max(clock, node.key());
    lock.unlock();
    node.mapped()();
    lock.lock();
  }
  clock = std::max(clock, until);
}

void State::signal(HANDLE event) {
  if (resources.at(event).released) return;
  events.at(event).signaled = true;
  changed.notify_all();
}

void SimulatedWindows::runUntilIdle() {
  const MemoryWatch::Pause pause;
  std::unique_lock lock(state_->mutex);
  while (!state_->laterJobs.empty()) {
    const auto delay = state_->laterJobs.begin()->first - state_->clock;
    lock.unlock();
    state_->sleepFor(std::max(delay, std::chrono::milliseconds(0)));
    lock.lock();
  }
}

}  // namespace kiv::test
