// Tests of the session's loop: tasks one after the other, deadlines, jobs, waits, and whose user they run as.
#include "loop/event_loop.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "loop/event_wait.h"
#include "loop/system_error.h"
#include "platform/platform_test.h"
#include "platform/virtual_time.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using session::Deadline;
using session::DeadlineOf;
using session::EventLoop;
using session::EventWait;
using session::LockGuard;
using session::makeRef;
using session::Ref;
using session::Task;
using session::Time;

std::wstring userOfThisThread() {
  HANDLE token = nullptr;
  const bool impersonates = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token);
  if (!impersonates) return L"";
  CloseHandle(token);
  return L"impersonated";
}

class Action final : public Task {
 public:
  explicit Action(std::function<void()> body) : body_(std::move(body)) {}

 private:
  void run() noexcept override { body_(); }
  std::function<void()> body_;
};

class BlockingAction final : public session::Job {
 public:
  BlockingAction(std::function<void()> work, std::function<void()> then)
      : work_(std::move(work)), then_(std::move(then)) {}

 private:
  void work() noexcept override { work_(); }
  void run() noexcept override { then_(); }
  std::function<void()> work_;
  std::function<void()> then_;
};

// Notes when it passes.
class Alarm {
 public:
  Alarm(EventLoop& loop, std::vector<std::pair<int, Time>>& passed, int name)
      : passed_(passed), name_(name), deadline_(loop, *this) {}

  void setIn(Time milliseconds) { deadline_.set(EventLoop::now() + milliseconds); }
  void clear() { deadline_.clear(); }
  bool isSet() const { return deadline_.isSet(); }
  std::function<void()> then = [] {};

 private:
  void ring() noexcept {
    passed_.emplace_back(name_, EventLoop::now() - Time{3'600'000});
    then();
  }

  std::vector<std::pair<int, Time>>& passed_;
  int name_;
  DeadlineOf<Alarm, &Alarm::ring> deadline_;
};

using Passed = std::vector<std::pair<int, Time>>;

class EventLoopTest : public PlatformTest {
 protected:
  ~EventLoopTest() override { time.settle(); }

  void post(std::function<void()> body) { loop->post(*makeRef<Action>(std::move(body))); }

  VirtualTime time{windows};
  Ref<EventLoop> loop = EventLoop::create();
};

TEST_F(EventLoopTest, RunsTasksInTheirOrderUnderItsLock) {
  std::vector<int> ran;
  {
    const LockGuard guard(loop->lock());
    for (int i = 0; i < 3; ++i) post([&, i] { ran.push_back(i); });
    time.settle();
    EXPECT_EQ(ran, std::vector<int>());
  }
  time.settle();
  EXPECT_EQ(ran, (std::vector{0, 1, 2}));
  EXPECT_EQ(windows.count("SubmitThreadpoolWork"), 1U);
}

TEST_F(EventLoopTest, RunsATaskOnceThatIsPostedTwiceAndAgainWhenItIsPostedAgain) {
  int runs = 0;
  const auto task = makeRef<Action>([&] { ++runs; });
  {
    const LockGuard guard(loop->lock());
    loop->post(*task);
    loop->post(*task);
  }
  time.settle();
  EXPECT_EQ(runs, 1);
  loop->post(*task);
  time.settle();
  EXPECT_EQ(runs, 2);
}

TEST_F(EventLoopTest, RunsATaskAgainThatPostsItself) {
  int runs = 0;
  Task* self = nullptr;
  const auto task = makeRef<Action>([&] {
    if (++runs < 3) loop->post(*self);
  });
  self = task.get();
  loop->post(*task);
  time.settle();
  EXPECT_EQ(runs, 3);
}

TEST_F(EventLoopTest, KeepsATaskUntilItHasRunAndReleasesItThen) {
  auto mark = std::make_shared<int>(0);
  post([mark] { ++*mark; });
  EXPECT_EQ(mark.use_count(), 2);
  time.settle();
  EXPECT_EQ(*mark, 1);
  EXPECT_EQ(mark.use_count(), 1);
}

TEST_F(EventLoopTest, RunsTasksToTheirEndAfterItWasStoppedAndDropped) {
  bool ran = false;
  post([&] { ran = true; });
  {
    const LockGuard guard(loop->lock());
    loop->stop();
  }
  loop = {};
  time.settle();
  EXPECT_TRUE(ran);
}

TEST_F(EventLoopTest, PassesDeadlinesInTheirOrderAndOnTime) {
  Passed passed;
  std::vector<std::unique_ptr<Alarm>> alarms;
  {
    const LockGuard guard(loop->lock());
    for (int i = 0; i < 40; ++i) alarms.push_back(std::make_unique<Alarm>(*loop, passed, i));
    for (int i = 0; i < 40; ++i) alarms[static_cast<std::size_t>(i)]->setIn(10 + static_cast<Time>(i * 7 % 40));
    for (std::size_t i = 0; i < 40; i += 2) alarms[i]->clear();
  }
  time.advance(100ms);
  Passed expected;
  for (Time t = 0; t < 40; ++t) {
    for (int i = 1; i < 40; i += 2) {
      if (static_cast<Time>(i * 7 % 40) == t) expected.emplace_back(i, 10 + t);
    }
  }
  EXPECT_EQ(passed, expected);
  const LockGuard guard(loop->lock());
  alarms.clear();
}

TEST_F(EventLoopTest, ReplacesTheTimeOfADeadline) {
  Passed passed;
  std::optional<LockGuard> guard(loop->lock());
  Alarm alarm(*loop, passed, 1);
  alarm.setIn(10);
  alarm.setIn(50);
  guard.reset();
  time.advance(49ms);
  EXPECT_EQ(passed, Passed());
  time.advance(1ms);
  EXPECT_EQ(passed, (Passed{{1, 50}}));
  guard.emplace(loop->lock());
  EXPECT_FALSE(alarm.isSet());
}

TEST_F(EventLoopTest, HasNoTimerWithoutADeadline) {
  Passed passed;
  std::optional<LockGuard> guard(loop->lock());
  Alarm alarm(*loop, passed, 1);
  alarm.setIn(10);
  alarm.clear();
  guard.reset();
  EXPECT_THAT(windows.arguments("SetThreadpoolTimer", windows.count("SetThreadpoolTimer")),
              testing::Not(testing::HasSubstr(L"due")));
  time.advance(1s);
  EXPECT_EQ(passed, Passed());
  guard.emplace(loop->lock());
}

TEST_F(EventLoopTest, ArmsItsTimerOnlyForAnEarlierDeadline) {
  Passed passed;
  std::optional<LockGuard> guard(loop->lock());
  Alarm first(*loop, passed, 1);
  Alarm second(*loop, passed, 2);
  first.setIn(10);
  second.setIn(20);
  second.setIn(30);
  EXPECT_EQ(windows.count("SetThreadpoolTimer"), 1U);
  second.setIn(5);
  EXPECT_EQ(windows.count("SetThreadpoolTimer"), 2U);
  guard.reset();
  time.advance(10ms);
  EXPECT_EQ(passed, (Passed{{2, 5}, {1, 10}}));
  guard.emplace(loop->lock());
}

TEST_F(EventLoopTest, PassesADeadlineAgainThatSetsItself) {
  Passed passed;
  std::optional<LockGuard> guard(loop->lock());
  Alarm alarm(*loop, passed, 1);
  alarm.then = [&] {
    if (passed.size() < 3) alarm.setIn(20);
  };
  alarm.setIn(20);
  guard.reset();
  time.advance(1s);
  EXPECT_EQ(passed, (Passed{{1, 20}, {1, 40}, {1, 60}}));
  guard.emplace(loop->lock());
}

TEST_F(EventLoopTest, PassesNoDeadlineOnceItIsStoppedAndEndsItsTimer) {
  Passed passed;
  std::optional<LockGuard> guard(loop->lock());
  Alarm early(*loop, passed, 1);
  Alarm late(*loop, passed, 2);
  early.setIn(10);
  loop->stop();
  late.setIn(20);
  EXPECT_FALSE(late.isSet());
  guard.reset();
  time.advance(100ms);
  EXPECT_EQ(passed, Passed());
  EXPECT_EQ(windows.count("CloseThreadpoolTimer"), 1U);
  guard.emplace(loop->lock());
}

TEST_F(EventLoopTest, RunsAJobWithoutItsLockAndThenAsATask) {
  std::vector<std::string> order;
  const auto job = makeRef<BlockingAction>(
      [&] {
        const LockGuard guard(loop->lock());
        order.emplace_back("work");
      },
      [&] { order.emplace_back("run"); });
  {
    const LockGuard guard(loop->lock());
    ASSERT_TRUE(loop->start(*job));
  }
  time.settle();
  EXPECT_EQ(order, (std::vector<std::string>{"work", "run"}));
  EXPECT_EQ(windows.count("CallbackMayRunLong"), 1U);
}

TEST_F(EventLoopTest, RunsNoJobForWhichThereIsNoThread) {
  windows.failAlways("TrySubmitThreadpoolCallback", ERROR_NOT_ENOUGH_MEMORY);
  auto mark = std::make_shared<int>(0);
  {
    const auto job = makeRef<BlockingAction>([mark] { ++*mark; }, [mark] { ++*mark; });
    EXPECT_FALSE(loop->start(*job));
  }
  time.settle();
  EXPECT_EQ(*mark, 0);
  EXPECT_EQ(mark.use_count(), 1);
}

TEST_F(EventLoopTest, PostsATaskForEachTimeThatAnEventIsSet) {
  int runs = 0;
  const support::UniqueEvent event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const auto task = makeRef<Action>([&] { ++runs; });
  EventWait wait(*loop);
  wait.arm(event.get(), *task);
  time.settle();
  EXPECT_EQ(runs, 0);
  SetEvent(event.get());
  time.settle();
  EXPECT_EQ(runs, 1);
  SetEvent(event.get());
  time.settle();
  EXPECT_EQ(runs, 1);
  wait.arm(event.get(), *task);
  time.settle();
  EXPECT_EQ(runs, 2);
}

TEST_F(EventLoopTest, WaitsForNothingWhenTheWaitHasEnded) {
  int runs = 0;
  const support::UniqueEvent event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  {
    const auto task = makeRef<Action>([&] { ++runs; });
    EventWait wait(*loop);
    wait.arm(event.get(), *task);
  }
  SetEvent(event.get());
  time.settle();
  EXPECT_EQ(runs, 0);
}

class ImpersonatingEventLoopTest : public PlatformTest {
 protected:
  VirtualTime time{windows};
};

TEST_F(ImpersonatingEventLoopTest, WorksAsTheUserWhoCreatedIt) {
  windows.impersonate(L"anna");
  Ref<EventLoop> loop = EventLoop::create();
  windows.impersonate(L"");
  std::vector<std::wstring> users;
  loop->post(*makeRef<Action>([&] { users.push_back(userOfThisThread()); }));
  const auto job = makeRef<BlockingAction>([&] { users.push_back(userOfThisThread()); }, [] {});
  EXPECT_TRUE(loop->start(*job));
  time.settle();
  EXPECT_EQ(users, (std::vector<std::wstring>{L"impersonated", L"impersonated"}));
  EXPECT_EQ(userOfThisThread(), L"");
}

TEST_F(ImpersonatingEventLoopTest, TellsTasksThatItsUserCannotBeImpersonatedAndLeavesJobsOut) {
  windows.impersonate(L"anna");
  Ref<EventLoop> loop = EventLoop::create();
  windows.impersonate(L"");
  windows.failAlways("SetThreadToken", ERROR_BAD_IMPERSONATION_LEVEL);
  std::vector<bool> asItsUser;
  bool worked = false;
  bool ended = false;
  loop->post(*makeRef<Action>([&] { asItsUser.push_back(loop->worksAsItsUser()); }));
  const auto job = makeRef<BlockingAction>([&] { worked = true; }, [&] { ended = true; });
  EXPECT_TRUE(loop->start(*job));
  time.settle();
  EXPECT_EQ(asItsUser, std::vector{false});
  EXPECT_FALSE(worked);
  EXPECT_TRUE(ended);
}

TEST_F(ImpersonatingEventLoopTest, IsNotCreatedWithoutTokenWorkOrTimer) {
  windows.impersonate(L"anna");
  for (const char* const call : {"OpenThreadToken", "CreateThreadpoolWork", "CreateThreadpoolTimer"}) {
    SCOPED_TRACE(call);
    windows.failOnce(call, ERROR_ACCESS_DENIED);
    try {
      EventLoop::create();
      ADD_FAILURE() << "it was created";
    } catch (const session::SystemError& failure) {
      EXPECT_EQ(failure.code, DWORD{ERROR_ACCESS_DENIED});
    }
  }
  windows.impersonate(L"");
}

}  // namespace
}  // namespace kiv::test
