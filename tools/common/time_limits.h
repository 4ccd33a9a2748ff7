// How long questions to the network may take.
#pragma once

#include <chrono>
#include <future>
#include <optional>
#include <thread>
#include <utility>

namespace kiv::tool {

// What --attempt-time and --max-time say: for each question, and for all of them together.
class TimeLimits {
 public:
  using Clock = std::chrono::steady_clock;

  // The time for all begins now. Nothing: no limit.
  TimeLimits(std::optional<std::chrono::milliseconds> whole, std::optional<std::chrono::milliseconds> each)
      : each_(each) {
    if (whole) end_ = Clock::now() + *whole;
  }

  // Of a question that is asked now.
  std::optional<Clock::time_point> deadline() const {
    if (!each_) return end_;
    const Clock::time_point own = Clock::now() + *each_;
    return end_ && *end_ < own ? *end_ : own;
  }

  // Nothing can end what WinHTTP and Winsock are asked, so when the time is up it goes on unheard, on its thread. `ask`
  // must own what it uses.
  template <class Answer, class Ask>
  Answer within(Answer tooLate, Ask ask) const {
    const auto until = deadline();
    if (!until) return ask();
    std::packaged_task<Answer()> work(std::move(ask));
    auto answer = work.get_future();
    std::thread(std::move(work)).detach();
    return answer.wait_until(*until) == std::future_status::ready ? answer.get() : tooLate;
  }

 private:
  std::optional<std::chrono::milliseconds> each_;
  std::optional<Clock::time_point> end_;
};

}  // namespace kiv::tool
