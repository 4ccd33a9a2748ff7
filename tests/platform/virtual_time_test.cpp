// Proves that virtual time jumps to what is due, in order, and that a wait for nothing ends with a list of the waits.
#include "platform/virtual_time.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/platform_test.h"
#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

class VirtualTimeTest : public PlatformTest {
 protected:
  // Notes what happened, and how much time had passed by then.
  void note(const std::string& what) { notes.push_back(what + " " + std::to_string((time.now() - 1h).count())); }

  VirtualTime time{windows};
  Lines notes;
};

TEST_F(VirtualTimeTest, StartsAtTheTimeItIsGivenAndStandsStill) {
  SimulatedWindows others;
  const VirtualTime other(others, VirtualTime::Mode::Deterministic, 42ms);
  EXPECT_EQ(GetTickCount64(), 42U);
  EXPECT_EQ(GetTickCount64(), 42U);
}

TEST_F(VirtualTimeTest, AdvancesByWhatTheTestWants) {
  const auto start = GetTickCount64();
  time.advance(250ms);
  EXPECT_EQ(GetTickCount64(), start + 250);
  time.settle();
  EXPECT_EQ(GetTickCount64(), start + 250);
}

TEST_F(VirtualTimeTest, RunsLaterJobsInTheOrderOfTheirTimes) {
  State& state = windows.state();
  state.later(20ms, [&] { note("second"); });
  state.later(10ms, [&] { note("first"); });
  state.later(20ms, [&] { note("third"); });
  state.later(21ms, [&] { note("too late"); });
  time.advance(20ms);
  EXPECT_EQ(notes, (Lines{"first 10", "second 20", "third 20"}));
}

TEST_F(VirtualTimeTest, RunsWhatFollowsAtTheSameTimeBeforeTheTestGoesOn) {
  windows.state().later(10ms, [&] {
    note("first");
    windows.state().later(0ms, [&] { note("second"); });
  });
  time.advance(10ms);
  EXPECT_EQ(notes, (Lines{"first 10", "second 10"}));
}

TEST_F(VirtualTimeTest, RunsOneThreadAtATimeInTheOrderOfTheirWaking) {
  HANDLE first = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  HANDLE second = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  auto one = time.startThread([&] {
    WaitForSingleObject(first, INFINITE);
    note("one");
  });
  auto two = time.startThread([&] {
    WaitForSingleObject(second, INFINITE);
    note("two");
  });
  time.settle();
  EXPECT_EQ(notes, Lines{});
  SetEvent(second);
  SetEvent(first);
  EXPECT_EQ(notes, Lines{});
  one.join();
  two.join();
  EXPECT_EQ(notes, (Lines{"two 0", "one 0"}));
  CloseHandle(first);
  CloseHandle(second);
}

TEST_F(VirtualTimeTest, EndsAWaitAtExactlyItsTimeOut) {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const auto start = GetTickCount64();
  EXPECT_EQ(WaitForSingleObject(event, 1234), DWORD{WAIT_TIMEOUT});
  EXPECT_EQ(GetTickCount64(), start + 1234);
  EXPECT_EQ(WaitForSingleObject(event, 0), DWORD{WAIT_TIMEOUT});
  windows.state().later(500ms, [&] { SetEvent(event); });
  EXPECT_EQ(WaitForSingleObject(event, 1000), DWORD{WAIT_OBJECT_0});
  EXPECT_EQ(GetTickCount64(), start + 1734);
  EXPECT_EQ(WaitForSingleObject(event, 1000), DWORD{WAIT_TIMEOUT});
  CloseHandle(event);
}

TEST_F(VirtualTimeTest, LetsSimulatedFunctionsSleep) {
  auto thread = time.startThread([&] {
    windows.state().sleepFor(40ms);
    note("slept");
  });
  time.advance(39ms);
  EXPECT_EQ(notes, Lines{});
  thread.join();
  EXPECT_EQ(notes, Lines{"slept 40"});
}

TEST_F(VirtualTimeTest, JoinsTheThreadsThatTheTestForgot) {
  bool ended = false;
  {
    SimulatedWindows others;
    VirtualTime other(others);
    other.startThread([&] { ended = true; });
  }
  EXPECT_TRUE(ended);
}

TEST(VirtualTime, ListsWhoWaitsForWhatIfNothingCanRun) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  HANDLE first = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  HANDLE second = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  DWORD result = 0;
  auto thread = time.startThread([&] { result = WaitForSingleObject(second, INFINITE); });
  EXPECT_EQ(WaitForSingleObject(first, INFINITE), DWORD{WAIT_FAILED});
  EXPECT_EQ(windows.complaints().at(0),
            "nothing can run any more: the test waits for event 1, thread 1 waits for event 2");
  EXPECT_EQ(result, 0U);
  thread.join();
  EXPECT_EQ(result, DWORD{WAIT_FAILED});
  CloseHandle(first);
  CloseHandle(second);
}

TEST(VirtualTime, DoesNotTurnTheClockForEver) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  std::function<void()> again = [&] { windows.state().later(1h, again); };
  again();
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  EXPECT_EQ(WaitForSingleObject(event, INFINITE), DWORD{WAIT_FAILED});
  EXPECT_EQ(windows.complaints().at(0), "nothing can run any more: the test waits for event 1");
  CloseHandle(event);
}

TEST(VirtualTime, LetsWaitsFailWhenItEnds) {
  SimulatedWindows windows;
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  DWORD result = 0;
  {
    VirtualTime time(windows);
    windows.state().later(0ms, [&] { result = WaitForSingleObject(event, INFINITE); });
    windows.state().later(1ms, [&] { result = 0; });
    time.settle();
  }
  EXPECT_EQ(result, DWORD{WAIT_FAILED});
  CloseHandle(event);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(VirtualTime, RunsAllThreadsAtOnceInFreeMode) {
  SimulatedWindows windows;
  HANDLE there = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  HANDLE back = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::atomic<int> jobs = 0;
  {
    VirtualTime time(windows, VirtualTime::Mode::Free);
    const auto start = GetTickCount64();
    auto thread = time.startThread([&] {
      WaitForSingleObject(there, INFINITE);
      SetEvent(back);
    });
    for (int delay = 0; delay < 8; ++delay) windows.state().later(std::chrono::milliseconds(delay), [&] { ++jobs; });
    SetEvent(there);
    EXPECT_EQ(WaitForSingleObject(back, INFINITE), DWORD{WAIT_OBJECT_0});
    thread.join();
    time.advance(500ms);
    EXPECT_GE(GetTickCount64(), start + 500);
    while (jobs < 8) time.advance(100ms);
  }
  CloseHandle(there);
  CloseHandle(back);
  EXPECT_EQ(windows.complaints(), Lines{});
}

}  // namespace
}  // namespace kiv::test
