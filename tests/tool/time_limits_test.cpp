// How long the network may take.
#include "common/time_limits.h"

#include <gtest/gtest.h>

#include <memory>

#include "resolve/request_options.h"

namespace kiv::tool {
namespace {

using namespace std::chrono_literals;

TEST(TimeLimits, WithoutALimitTheAnswerIsAwaited) {
  EXPECT_EQ(TimeLimits({}, {}).within(1, [] { return 2; }), 2);
  EXPECT_EQ(TimeLimits(1h, {}).within(1, [] { return 2; }), 2);
  EXPECT_EQ(TimeLimits({}, 1h).within(1, [] { return 2; }), 2);
}

TEST(TimeLimits, WhatIsTooLateIsNotAwaited) {
  const auto released = std::make_shared<std::promise<void>>();
  const auto ask = [wait = released->get_future().share()] {
    wait.wait();
    return 2;
  };
  EXPECT_EQ(TimeLimits(0ms, {}).within(1, ask), 1);
  EXPECT_EQ(TimeLimits({}, 1ms).within(1, ask), 1);
  EXPECT_EQ(TimeLimits(1h, 1ms).within(1, ask), 1);
  EXPECT_EQ(TimeLimits(1ms, 1h).within(1, ask), 1);
  released->set_value();
}

TEST(TimeLeft, IsTheShortestOfAll) {
  const struct {
    std::optional<std::chrono::milliseconds> maxTime;
    std::optional<std::chrono::milliseconds> attemptTime;
    std::chrono::milliseconds spent;
    std::chrono::milliseconds left;
  } cases[] = {
      {{}, {}, 1h, 10s}, {60s, {}, 1s, 10s}, {5s, {}, 2s, 3s}, {5s, {}, 6s, 0s},
      {{}, 2s, 1h, 2s},  {60s, 2s, 1s, 2s},  {5s, 2s, 4s, 1s}, {{}, 60s, 0s, 10s},
  };
  for (const auto& [maxTime, attemptTime, spent, left] : cases) {
    RequestOptions options;
    options.maxTime = maxTime;
    options.attemptTime = attemptTime;
    EXPECT_EQ(timeLeft(options, spent, 10s), left) << left.count();
  }
}

}  // namespace
}  // namespace kiv::tool
