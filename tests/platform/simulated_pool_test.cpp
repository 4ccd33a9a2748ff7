// Proves that the simulated thread pool, locks and tokens do what the system's do, and notices their misuse.
#include <gtest/gtest.h>

#include "platform/platform_test.h"
#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using testing::HasSubstr;

FILETIME in(std::chrono::milliseconds delay) {
  const auto ticks = static_cast<std::uint64_t>(-10000 * delay.count());
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// Of all pool objects of a test: what its callbacks do, and when they ran.
struct Callbacks {
  std::function<void()> body = [] {};
  std::vector<ULONGLONG> times = {};
  std::vector<DWORD> results = {};

  void run(DWORD result = 0) {
    const MemoryWatch::Pause pause;
    times.push_back(GetTickCount64() - ULONGLONG{3600000});
    results.push_back(result);
    body();
  }
  static void CALLBACK simple(PTP_CALLBACK_INSTANCE, PVOID context) { static_cast<Callbacks*>(context)->run(); }
  static void CALLBACK work(PTP_CALLBACK_INSTANCE, PVOID context, PTP_WORK) { static_cast<Callbacks*>(context)->run(); }
  static void CALLBACK timer(PTP_CALLBACK_INSTANCE, PVOID context, PTP_TIMER) {
    static_cast<Callbacks*>(context)->run();
  }
  static void CALLBACK wait(PTP_CALLBACK_INSTANCE, PVOID context, PTP_WAIT, TP_WAIT_RESULT result) {
    static_cast<Callbacks*>(context)->run(result);
  }
};

using Times = std::vector<ULONGLONG>;

// Does not check for complaints at its end: some tests are there to provoke them.
class Pool : public testing::Test {
 protected:
  PTP_WORK createWork() { return CreateThreadpoolWork(&Callbacks::work, &callbacks, nullptr); }
  PTP_TIMER createTimer() { return CreateThreadpoolTimer(&Callbacks::timer, &callbacks, nullptr); }
  PTP_WAIT createWait() { return CreateThreadpoolWait(&Callbacks::wait, &callbacks, nullptr); }
  static void set(PTP_TIMER timer, std::chrono::milliseconds delay, DWORD period = 0) {
    FILETIME due = in(delay);
    SetThreadpoolTimer(timer, &due, period, 0);
  }
  void expectComplaint(const std::string& text) {
    EXPECT_THAT(windows.complaints(), testing::ElementsAre(HasSubstr(text)));
  }

  SimulatedWindows windows;
  VirtualTime time{windows};
  Callbacks callbacks;
};

TEST_F(Pool, RunsWorkOncePerSubmissionAndWaitsForIt) {
  PTP_WORK work = createWork();
  SubmitThreadpoolWork(work);
  SubmitThreadpoolWork(work);
  EXPECT_EQ(callbacks.times.size(), 0U);
  WaitForThreadpoolWorkCallbacks(work, FALSE);
  EXPECT_EQ(callbacks.times.size(), 2U);
  SubmitThreadpoolWork(work);
  WaitForThreadpoolWorkCallbacks(work, TRUE);
  EXPECT_EQ(callbacks.times.size(), 2U);
  CloseThreadpoolWork(work);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(Pool, RunsCallbacksThatBlockSideBySide) {
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  callbacks.body = [&] { WaitForSingleObject(event, INFINITE); };
  PTP_WORK work = createWork();
  for (int repeat = 0; repeat < 3; ++repeat) SubmitThreadpoolWork(work);
  time.settle();
  EXPECT_EQ(callbacks.times.size(), 3U);
  SetEvent(event);
  WaitForThreadpoolWorkCallbacks(work, FALSE);
  CloseThreadpoolWork(work);
  CloseHandle(event);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(Pool, RunsASimpleCallbackUnlessItIsToldToFail) {
  windows.failNth("TrySubmitThreadpoolCallback", 2, ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_TRUE(TrySubmitThreadpoolCallback(&Callbacks::simple, &callbacks, nullptr));
  EXPECT_FALSE(TrySubmitThreadpoolCallback(&Callbacks::simple, &callbacks, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_ENOUGH_MEMORY});
  time.settle();
  EXPECT_EQ(callbacks.times.size(), 1U);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(Pool, RunsATimerWhenItIsDue) {
  PTP_TIMER timer = createTimer();
  set(timer, 100ms);
  set(timer, 300ms);
  time.advance(299ms);
  EXPECT_EQ(callbacks.times, Times{});
  time.advance(1ms);
  EXPECT_EQ(callbacks.times, Times{300});
  set(timer, 0ms, 50);
  time.advance(120ms);
  EXPECT_EQ(callbacks.times, (Times{300, 300, 350, 400}));
  SetThreadpoolTimer(timer, nullptr, 0, 0);
  WaitForThreadpoolTimerCallbacks(timer, TRUE);
  time.advance(1000ms);
  EXPECT_EQ(callbacks.times.size(), 4U);
  CloseThreadpoolTimer(timer);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(Pool, EndsAWaitOnceWithItsEventOrItsTimeOut) {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  PTP_WAIT wait = createWait();
  FILETIME limit = in(70ms);
  SetThreadpoolWait(wait, event, &limit);
  windows.state().later(50ms, [&] { SetEvent(event); });
  time.advance(100ms);
  EXPECT_EQ(callbacks.times, Times{50});
  EXPECT_EQ(callbacks.results, std::vector<DWORD>{WAIT_OBJECT_0});
  EXPECT_EQ(WaitForSingleObject(event, 0), DWORD{WAIT_TIMEOUT});
  SetEvent(event);
  time.settle();
  EXPECT_EQ(callbacks.times.size(), 1U);
  SetThreadpoolWait(wait, event, nullptr);
  time.settle();
  EXPECT_EQ(callbacks.times.size(), 2U);
  SetThreadpoolWait(wait, event, &limit);
  time.advance(100ms);
  EXPECT_EQ(callbacks.times.back(), 170U);
  EXPECT_EQ(callbacks.results.back(), DWORD{WAIT_TIMEOUT});
  SetThreadpoolWait(wait, event, nullptr);
  SetThreadpoolWait(wait, nullptr, nullptr);
  SetEvent(event);
  WaitForThreadpoolWaitCallbacks(wait, TRUE);
  EXPECT_EQ(callbacks.times.size(), 3U);
  CloseThreadpoolWait(wait);
  CloseHandle(event);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(Pool, ComplainsAboutObjectsThatAreNotClosedOrClosedTwiceOrUsedAfterwards) {
  createTimer();
  PTP_WORK work = createWork();
  CloseThreadpoolWork(work);
  CloseThreadpoolWork(work);
  SubmitThreadpoolWork(work);
  EXPECT_EQ(windows.complaints(),
            (Lines{"work 1 was released twice", "work 1 was used after its release, by SubmitThreadpoolWork",
                   "timer 1 was never released"}));
}

TEST_F(Pool, ComplainsAboutACallbackThatWaitsForItself) {
  PTP_WORK work = createWork();
  callbacks.body = [&] { WaitForThreadpoolWorkCallbacks(work, FALSE); };
  SubmitThreadpoolWork(work);
  time.settle();
  CloseThreadpoolWork(work);
  expectComplaint("by a callback of work 1, which would wait for itself");
}

TEST_F(Pool, ComplainsAboutAnObjectThatIsClosedWhileItIsSet) {
  PTP_TIMER timer = createTimer();
  set(timer, 10ms);
  CloseThreadpoolTimer(timer);
  time.advance(20ms);
  EXPECT_EQ(callbacks.times, Times{});
  expectComplaint("timer 1 was closed while it was set");
}

TEST_F(Pool, ComplainsAboutAWaitForAClosedEvent) {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  CloseHandle(event);
  PTP_WAIT wait = createWait();
  SetThreadpoolWait(wait, event, nullptr);
  CloseThreadpoolWait(wait);
  expectComplaint("event 1 was used after its release, by SetThreadpoolWait");
}

TEST_F(Pool, ComplainsAboutAnEventThatIsClosedUnderAWait) {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  PTP_WAIT wait = createWait();
  SetThreadpoolWait(wait, event, nullptr);
  CloseHandle(event);
  SetThreadpoolWait(wait, nullptr, nullptr);
  CloseThreadpoolWait(wait);
  expectComplaint("event 1 was released while wait 1 waited for it");
}

TEST_F(Pool, ComplainsAboutACallbackThatReturnsWhileItImpersonates) {
  PTP_WORK work = createWork();
  callbacks.body = [&] { windows.impersonate(L"alice"); };
  SubmitThreadpoolWork(work);
  time.settle();
  callbacks.body = [&] { SetLastError(0); };
  SubmitThreadpoolWork(work);
  time.settle();
  EXPECT_EQ(windows.calls(Transcript::Everything).back().user, L"");
  CloseThreadpoolWork(work);
  expectComplaint("the callback of work 1 returned while it impersonated");
}

TEST_F(Pool, ComplainsAboutACallbackThatReturnsWithALock) {
  SRWLOCK lock = SRWLOCK_INIT;
  callbacks.body = [&] { AcquireSRWLockExclusive(&lock); };
  TrySubmitThreadpoolCallback(&Callbacks::simple, &callbacks, nullptr);
  time.settle();
  expectComplaint("returned with an SRW lock");
}

TEST_F(Pool, HoldsALockAcrossABlockingCall) {
  SRWLOCK lock = SRWLOCK_INIT;
  std::vector<int> order;
  const auto enter = [&](int number) {
    return time.startThread([&, number] {
      AcquireSRWLockExclusive(&lock);
      windows.state().sleepFor(10ms);
      order.push_back(number);
      ReleaseSRWLockExclusive(&lock);
    });
  };
  enter(1);
  enter(2);
  time.advance(19ms);
  EXPECT_EQ(order, std::vector{1});
  time.advance(1ms);
  EXPECT_EQ(order, (std::vector{1, 2}));
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST_F(Pool, SharesALockAmongReadersAlone) {
  SRWLOCK lock = SRWLOCK_INIT;
  AcquireSRWLockShared(&lock);
  std::vector<std::string> order;
  time.startThread([&] {
    AcquireSRWLockExclusive(&lock);
    order.emplace_back("writer");
    ReleaseSRWLockExclusive(&lock);
  });
  time.startThread([&] {
    AcquireSRWLockShared(&lock);
    order.emplace_back("reader");
    ReleaseSRWLockShared(&lock);
  });
  time.settle();
  EXPECT_EQ(order, Lines{"reader"});
  ReleaseSRWLockShared(&lock);
  time.settle();
  EXPECT_EQ(order, (Lines{"reader", "writer"}));
}

TEST_F(Pool, ComplainsAboutALockThatIsReleasedByAnother) {
  SRWLOCK lock = SRWLOCK_INIT;
  AcquireSRWLockExclusive(&lock);
  time.startThread([&] { ReleaseSRWLockExclusive(&lock); }).join();
  ReleaseSRWLockExclusive(&lock);
  expectComplaint("an SRW lock was released by a thread that does not hold it");
}

TEST_F(Pool, WakesWhoSleepsOnAConditionVariable) {
  SRWLOCK lock = SRWLOCK_INIT;
  CONDITION_VARIABLE variable = CONDITION_VARIABLE_INIT;
  Lines woken;
  const auto sleeper = [&](const char* name, DWORD limit) {
    time.startThread([&, name, limit] {
      AcquireSRWLockExclusive(&lock);
      const BOOL result = SleepConditionVariableSRW(&variable, &lock, limit, 0);
      woken.push_back(result ? name : std::to_string(GetLastError()));
      ReleaseSRWLockExclusive(&lock);
    });
  };
  sleeper("first", INFINITE);
  sleeper("second", 100);
  sleeper("third", INFINITE);
  time.settle();
  WakeConditionVariable(&variable);
  time.settle();
  EXPECT_EQ(woken, Lines{"first"});
  time.advance(100ms);
  EXPECT_EQ(woken, (Lines{"first", "1460"}));
  WakeAllConditionVariable(&variable);
  time.settle();
  EXPECT_EQ(woken, (Lines{"first", "1460", "third"}));
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(SlimLocks, WorkWithoutVirtualTime) {
  const SimulatedWindows windows;
  SRWLOCK lock = SRWLOCK_INIT;
  CONDITION_VARIABLE variable = CONDITION_VARIABLE_INIT;
  int value = 0;
  std::thread thread([&] {
    AcquireSRWLockExclusive(&lock);
    value = 1;
    ReleaseSRWLockExclusive(&lock);
    WakeAllConditionVariable(&variable);
  });
  AcquireSRWLockShared(&lock);
  while (value == 0) SleepConditionVariableSRW(&variable, &lock, INFINITE, CONDITION_VARIABLE_LOCKMODE_SHARED);
  ReleaseSRWLockShared(&lock);
  thread.join();
  EXPECT_EQ(value, 1);
}

// What callbacks that run at once count up together.
struct Counter {
  SRWLOCK lock = SRWLOCK_INIT;
  CONDITION_VARIABLE changed = CONDITION_VARIABLE_INIT;
  int count = 0;

  static void add(PVOID context) {
    auto& self = *static_cast<Counter*>(context);
    AcquireSRWLockExclusive(&self.lock);
    ++self.count;
    ReleaseSRWLockExclusive(&self.lock);
    WakeAllConditionVariable(&self.changed);
  }
  void awaitCount(int expected) {
    AcquireSRWLockExclusive(&lock);
    while (count < expected) SleepConditionVariableSRW(&changed, &lock, INFINITE, 0);
    ReleaseSRWLockExclusive(&lock);
  }
  static void CALLBACK work(PTP_CALLBACK_INSTANCE, PVOID context, PTP_WORK) { add(context); }
  static void CALLBACK timer(PTP_CALLBACK_INSTANCE, PVOID context, PTP_TIMER) { add(context); }
  static void CALLBACK wait(PTP_CALLBACK_INSTANCE, PVOID context, PTP_WAIT, TP_WAIT_RESULT) { add(context); }
};

TEST(FreePool, RunsWorkTimersAndWaitsAtOnce) {
  SimulatedWindows windows;
  VirtualTime time(windows, VirtualTime::Mode::Free);
  Counter counter;
  PTP_WORK work = CreateThreadpoolWork(&Counter::work, &counter, nullptr);
  PTP_TIMER timer = CreateThreadpoolTimer(&Counter::timer, &counter, nullptr);
  PTP_WAIT wait = CreateThreadpoolWait(&Counter::wait, &counter, nullptr);
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  SetThreadpoolWait(wait, event, nullptr);
  FILETIME due = in(10ms);
  SetThreadpoolTimer(timer, &due, 0, 0);
  for (int repeat = 0; repeat < 10; ++repeat) SubmitThreadpoolWork(work);
  SetEvent(event);
  counter.awaitCount(12);
  WaitForThreadpoolWorkCallbacks(work, FALSE);
  WaitForThreadpoolTimerCallbacks(timer, TRUE);
  WaitForThreadpoolWaitCallbacks(wait, TRUE);
  EXPECT_EQ(counter.count, 12);
  CloseThreadpoolWork(work);
  CloseThreadpoolTimer(timer);
  CloseThreadpoolWait(wait);
  CloseHandle(event);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(Identity, GivesAThreadTheUserThatATokenNames) {
  SimulatedWindows windows;
  windows.user.proxy = L"process:1";
  windows.otherUsers[L"alice"].proxy = L"alice:1";
  HANDLE token = nullptr;
  EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &token));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_TOKEN});
  windows.impersonate(L"alice");
  ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &token));
  EXPECT_TRUE(RevertToSelf());
  const auto proxy = [] {
    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
    WinHttpGetIEProxyConfigForCurrentUser(&config);
    const std::wstring text = config.lpszProxy;
    GlobalFree(config.lpszProxy);
    return text;
  };
  EXPECT_EQ(proxy(), L"process:1");
  EXPECT_TRUE(SetThreadToken(nullptr, token));
  EXPECT_EQ(proxy(), L"alice:1");
  EXPECT_EQ(windows.calls().back().user, L"alice");
  EXPECT_TRUE(SetThreadToken(nullptr, nullptr));
  windows.change([&] { windows.user.proxy = L"other:1"; });
  EXPECT_EQ(proxy(), L"other:1");
  EXPECT_EQ(windows.calls().back().user, L"");
  EXPECT_EQ(windows.complaints(), Lines{"token 1 was never released"});
  CloseHandle(token);
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(Identity, RefusesATokenThatWasNotOpenedForIt) {
  SimulatedWindows windows;
  windows.impersonate(L"alice");
  HANDLE token = nullptr;
  ASSERT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
  RevertToSelf();
  EXPECT_FALSE(SetThreadToken(nullptr, token));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  CloseHandle(token);
}

TEST(Identity, NumbersThreads) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  DWORD other = 0;
  time.startThread([&] { other = GetCurrentThreadId(); }).join();
  EXPECT_NE(other, GetCurrentThreadId());
  EXPECT_EQ(GetCurrentThreadId(), GetCurrentThreadId());
}

}  // namespace
}  // namespace kiv::test
