// Whole sessions: events, callbacks, closing, and what is done with bad arguments.
#include <atomic>

#include "platform/simulated_state.h"
#include "unit/session/support/session_test.h"

namespace kiv::test {
namespace {

class SessionEventsTest : public SessionTest {};

// What a `done` function was told, by tag.
struct Ends {
  std::map<std::uint64_t, KivStatus> statuses;
  std::function<void()> inside = {};

  static void onDone(std::uint64_t tag, KivStatus status, KivDecision* decision) {
    const UniqueDecision owned(decision);
    current->statuses[tag] = status;
    if (current->inside) current->inside();
  }
  static Ends* current;
};
Ends* Ends::current = nullptr;

class SessionCallbacksTest : public SessionTest {
 protected:
  SessionCallbacksTest() { Ends::current = &ends; }

  Ends ends;
};

TEST_F(SessionEventsTest, HandsOutEachCompletionOnce) {
  for (std::uint64_t tag = 1; tag <= 3; ++tag) start(session, L"http://a.test/", 0, tag);
  for (std::uint64_t tag = 1; tag <= 3; ++tag) {
    const Told told = next(session, KIV_NO_TIME_OUT);
    EXPECT_EQ(told.kind(), KIV_EVENT_COMPLETED);
    EXPECT_EQ(KivEvent_Tag(told.event.get()), tag);
    EXPECT_EQ(KivEvent_Status(told.event.get()), KIV_STATUS_OK);
    const UniqueDecision decision(KivEvent_Decision(told.event.get()));
    EXPECT_EQ(KivDecision_Kind(decision.get()), KIV_KIND_DIRECT);
  }
  EXPECT_EQ(next(session).status, KIV_STATUS_NOT_YET);
  EXPECT_EQ(counter(session, KIV_COUNTER_WAITING), 0U);
}

TEST_F(SessionEventsTest, WaitsForAnEventNoLongerThanItWasTold) {
  const auto begun = time.now();
  EXPECT_EQ(next(session, 250).status, KIV_STATUS_NOT_YET);
  EXPECT_EQ(elapsedSince(begun), 250ms);
}

TEST_F(SessionEventsTest, WakesWhenTheEmptyQueueGetsAnEvent) {
  std::atomic<int> wakes{0};
  EXPECT_EQ(KivSession_SetWake(
                session.get(), [](void* context) { ++*static_cast<std::atomic<int>*>(context); }, &wakes),
            KIV_STATUS_OK);
  start(session, L"http://a.test/", 0, 1);
  start(session, L"http://a.test/", 0, 2);
  time.settle();
  EXPECT_EQ(wakes, 1);
  next(session);
  next(session);
  start(session, L"http://a.test/", 0, 3);
  time.settle();
  EXPECT_EQ(wakes, 2);
  session.reset();
  time.settle();
  EXPECT_EQ(wakes, 2);
}

TEST_F(SessionEventsTest, LogsNothingUntilALevelIsSetAndCountsWhatIsLost) {
  resolve(session, L"http://a.test/");
  EXPECT_EQ(next(session).status, KIV_STATUS_NOT_YET);
  set(KIV_OPTION_LOG_LEVEL, KIV_LOG_LEVEL_DEBUG);
  for (int i = 0; i < 1'000; ++i) resolve(session, (L"http://h" + std::to_wstring(i) + L".test/").c_str());
  std::size_t lines = 0;
  while (next(session).kind() == KIV_EVENT_LOG) ++lines;
  EXPECT_EQ(lines, 1'024U);
  EXPECT_GT(counter(session, KIV_COUNTER_LOST_LOG_LINES), 0U);
}

TEST_F(SessionEventsTest, EndsEveryRequestAndWaitWhenItCloses) {
  windows.http.decide = [](const RequestRecord&) { return Exchange{.answering = kNever}; };
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT, 5);
  KivStatus resolved = KIV_STATUS_OK;
  auto thread = time.startThread([&] { resolved = resolve(session, L"http://b.test/", KIV_NO_TIME_OUT).status; });
  time.advance(10ms);
  KivSession_Close(session.get());
  thread.join();
  EXPECT_EQ(resolved, KIV_STATUS_CLOSED);
  EXPECT_EQ(started.wait().status, KIV_STATUS_CLOSED);
  time.settle();
  for (const RequestRecord& request : windows.requests()) EXPECT_TRUE(request.closed);
  const Told told = next(session);
  EXPECT_EQ(KivEvent_Tag(told.event.get()), 5U);
  EXPECT_EQ(KivEvent_Status(told.event.get()), KIV_STATUS_CLOSED);
  for (int i = 0; i < 2; ++i) {
    const Told last = next(session);
    EXPECT_EQ(last.status, KIV_STATUS_CLOSED);
    EXPECT_EQ(last.kind(), KIV_EVENT_CLOSED);
  }
  EXPECT_EQ(resolve(session, L"http://a.test/").status, KIV_STATUS_CLOSED);
  EXPECT_EQ(lookup(session, L"http://a.test/").status, KIV_STATUS_CLOSED);
  EXPECT_EQ(start(session, L"http://a.test/").status, KIV_STATUS_CLOSED);
}

TEST_F(SessionEventsTest, LeavesDecisionsReadableWhenItIsGone) {
  useProxies(L"proxy:1");
  const Result result = resolve(session, L"http://a.test/");
  session.reset();
  time.settle();
  EXPECT_EQ(result.route(), L"http://proxy:1");
  EXPECT_EQ(KivDecision_Credentials(result.decision.get(), nullptr, [](void*, const wchar_t*, const wchar_t*) {}),
            KIV_STATUS_CLOSED);
}

TEST_F(SessionEventsTest, LetsHandlesOutliveIt) {
  windows.http.decide = [](const RequestRecord&) { return Exchange{.answering = kNever}; };
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  session.reset();
  time.settle();
  EXPECT_EQ(started.wait().status, KIV_STATUS_CLOSED);
  KivRequest_Cancel(started.request.get());
}

TEST_F(SessionEventsTest, RefusesSettingsAfterTheFirstResolution) {
  EXPECT_EQ(KivSession_SetNumber(session.get(), KIV_OPTION_TIME_OUT, 1'000), KIV_STATUS_OK);
  resolve(session, L"http://a.test/");
  EXPECT_EQ(KivSession_SetNumber(session.get(), KIV_OPTION_TIME_OUT, 1'000), KIV_STATUS_TOO_LATE);
  EXPECT_EQ(KivSession_SetText(session.get(), KIV_OPTION_LEFT_OUT, L"a"), KIV_STATUS_TOO_LATE);
  EXPECT_EQ(KivSession_SetProxy(session.get(), KIV_PROXY_FALLBACK, L"a", nullptr, nullptr), KIV_STATUS_TOO_LATE);
  EXPECT_EQ(KivSession_SetWake(session.get(), nullptr, nullptr), KIV_STATUS_TOO_LATE);
  EXPECT_EQ(KivSession_SetNumber(session.get(), KIV_OPTION_LOG_LEVEL, KIV_LOG_LEVEL_INFO), KIV_STATUS_OK);
}

TEST_F(SessionEventsTest, RefusesBadUrls) {
  const std::wstring megabyte = L"http://a.test/" + std::wstring(1'048'576, L'x');
  for (const wchar_t* const url : {L"", L"a.test", L"ftp://a.test/", L"http://", L"http://a.test:0/", L"http://a b/",
                                   L"http://a.test:65536/", L"http://a\\b/", megabyte.c_str()}) {
    EXPECT_EQ(resolve(session, url).status, KIV_STATUS_BAD_URL);
    EXPECT_EQ(lookup(session, url).status, KIV_STATUS_BAD_URL);
    EXPECT_EQ(start(session, url).status, KIV_STATUS_BAD_URL);
  }
}

TEST_F(SessionCallbacksTest, CallsDoneOnce) {
  start(session, L"http://a.test/", 0, 9, Ends::onDone);
  time.settle();
  EXPECT_EQ(ends.statuses, (std::map<std::uint64_t, KivStatus>{{9, KIV_STATUS_OK}}));
  EXPECT_EQ(next(session).status, KIV_STATUS_NOT_YET);
  EXPECT_EQ(counter(session, KIV_COUNTER_WAITING), 0U);
}

TEST_F(SessionCallbacksTest, RefusesToBlockInsideACallback) {
  std::vector<KivStatus> statuses;
  ends.inside = [&] {
    KivDecision* decision = nullptr;
    KivEvent* event = nullptr;
    const Started started = start(session, L"http://a.test/");
    statuses = {KivSession_Resolve(session.get(), L"http://a.test/", 0, &decision),
                KivSession_Next(session.get(), 0, &event), started.wait().status, started.status};
  };
  start(session, L"http://a.test/", 0, 1, Ends::onDone);
  time.settle();
  EXPECT_EQ(statuses,
            (std::vector<KivStatus>{KIV_STATUS_REENTRANT, KIV_STATUS_REENTRANT, KIV_STATUS_REENTRANT, KIV_STATUS_OK}));
}

TEST_F(SessionCallbacksTest, MayBeDestructedInsideACallback) {
  ends.inside = [&] { session.reset(); };
  start(session, L"http://a.test/", 0, 1, Ends::onDone);
  time.settle();
  EXPECT_FALSE(session);
}

TEST_F(SessionCallbacksTest, RunsTheDoneFunctionsThatAreOwedBeforeCloseReturns) {
  windows.http.decide = [](const RequestRecord&) { return Exchange{.answering = kNever}; };
  for (std::uint64_t tag = 1; tag <= 3; ++tag) start(session, L"http://a.test/", 0, tag, Ends::onDone);
  time.advance(10ms);
  KivSession_Close(session.get());
  EXPECT_EQ(ends.statuses, (std::map<std::uint64_t, KivStatus>{
                               {1, KIV_STATUS_CLOSED}, {2, KIV_STATUS_CLOSED}, {3, KIV_STATUS_CLOSED}}));
}

TEST_F(SessionCallbacksTest, StopsWhatCallbacksThrow) {
  ends.inside = [] { throw 42; };
  start(session, L"http://a.test/", 0, 1, Ends::onDone);
  start(session, L"http://b.test/", 0, 2, Ends::onDone);
  time.settle();
  EXPECT_EQ(ends.statuses.size(), 2U);
}

TEST_F(SessionCallbacksTest, WaitsInCloseForACallbackThatRuns) {
  bool left = false;
  ends.inside = [&] {
    windows.state().sleepFor(100ms);
    left = true;
  };
  start(session, L"http://a.test/", 0, 1, Ends::onDone);
  time.advance(50ms);
  EXPECT_FALSE(left);
  KivSession_Close(session.get());
  EXPECT_TRUE(left);
}

TEST_F(SessionCallbacksTest, LeavesOutWhatTheFilterRefuses) {
  useProxies(L"first:1;second:2;third:3");
  EXPECT_EQ(KivSession_SetFilter(
                session.get(),
                [](void*, const wchar_t* proxyUrl) {
                  if (std::wstring(proxyUrl) == L"http://first:1") throw 42;
                  return std::wstring(proxyUrl) == L"http://third:3" ? 1 : 0;
                },
                nullptr),
            KIV_STATUS_OK);
  EXPECT_EQ(resolve(session, L"http://a.test/").route(), L"http://third:3");
  EXPECT_EQ(sentThrough(L"first:1") + sentThrough(L"second:2"), 0U);
}

TEST_F(SessionCallbacksTest, TakesTheFirstCandidateThatTheFilterLeavesIfNothingIsToBeTested) {
  useProxies(L"first:1;second:2");
  set(KIV_OPTION_TEST, KIV_TEST_NONE);
  KivSession_SetFilter(
      session.get(),
      [](void*, const wchar_t* proxyUrl) { return std::wstring(proxyUrl) == L"http://second:2" ? 1 : 0; }, nullptr);
  EXPECT_EQ(resolve(session, L"http://a.test/").route(), L"http://second:2");
  EXPECT_EQ(resolve(session, L"http://b.test/").reason(), KIV_REASON_NOT_TESTED);
}

TEST_F(SessionCallbacksTest, HandsChallengesLogLinesAndChangesToTheirCallbacks) {
  struct Received {
    UniqueChallenge challenge;
    int lines = 0;
    int changes = 0;
  } received;
  useProxies(L"proxy:1");
  windows.http.decide = [](const RequestRecord& request) { return wantsPassword(request, L"right"); };
  set(KIV_OPTION_LOG_LEVEL, KIV_LOG_LEVEL_INFO);
  KivSession_SetCredentialCallback(
      session.get(),
      [](void* context, KivChallenge* challenge) {
        static_cast<Received*>(context)->challenge = UniqueChallenge(challenge);
      },
      &received);
  KivSession_SetLog(
      session.get(), [](void* context, std::uint32_t, const wchar_t*) { ++static_cast<Received*>(context)->lines; },
      &received);
  KivSession_SetChanged(
      session.get(), [](void* context) { ++static_cast<Received*>(context)->changes; }, &received);
  const Started started = start(session, L"http://a.test/", KIV_NO_TIME_OUT);
  time.settle();
  ASSERT_TRUE(received.challenge);
  EXPECT_EQ(KivChallenge_Answer(received.challenge.get(), L"ann", L"right"), KIV_STATUS_OK);
  EXPECT_EQ(started.wait().route(), L"http://proxy:1");
  windows.resumeFromSleep();
  time.settle();
  EXPECT_EQ(received.changes, 1);
  EXPECT_GT(received.lines, 0);
}

TEST(SessionArgumentsTest, NullCrashesNothing) {
  KivSession* const session = nullptr;
  KivDecision* decision = nullptr;
  KivSession* created = nullptr;
  KivEvent* event = nullptr;
  const KivStatus bad = KIV_STATUS_BAD_ARGUMENT;
  EXPECT_EQ(KivSession_Create(nullptr, &created), bad);
  EXPECT_EQ(KivSession_Create(L"a", nullptr), bad);
  EXPECT_EQ(KivSession_Create(L"a\r\nb", &created), bad);
  EXPECT_EQ(KivSession_Create(std::wstring(1'025, L'x').c_str(), &created), bad);
  EXPECT_EQ(KivSession_SetNumber(session, 1, 1), bad);
  EXPECT_EQ(KivSession_SetText(session, 64, L""), bad);
  EXPECT_EQ(KivSession_SetProxy(session, 1, L"", nullptr, nullptr), bad);
  EXPECT_EQ(KivSession_SetWake(session, nullptr, nullptr), bad);
  EXPECT_EQ(KivSession_Lookup(session, L"http://a/", &decision), bad);
  EXPECT_EQ(KivSession_Resolve(session, L"http://a/", 0, &decision), bad);
  EXPECT_EQ(KivSession_Start(session, L"http://a/", 0, 0, nullptr, nullptr), bad);
  EXPECT_EQ(KivSession_Next(session, 0, &event), bad);
  EXPECT_EQ(KivRequest_Wait(nullptr, 0, &decision), bad);
  EXPECT_EQ(KivSession_ReportFailure(session, nullptr, 1), bad);
  EXPECT_EQ(KivSession_GetCounter(session, 1), 0U);
  EXPECT_EQ(KivDecision_Kind(nullptr), KIV_KIND_NONE);
  EXPECT_STREQ(KivDecision_ProxyUrl(nullptr), L"");
  EXPECT_EQ(KivChallenge_Answer(nullptr, L"a", L"b"), bad);
  EXPECT_EQ(KivChallenge_Decline(nullptr), bad);
  EXPECT_EQ(KivAuth_Next(nullptr, nullptr, nullptr), bad);
  KivSession_Close(session);
  KivSession_Destruct(session);
  KivSession_Forget(session);
  KivSession_ForgetCredentials(session);
  KivRequest_Cancel(nullptr);
  KivRequest_Release(nullptr);
  KivDecision_Release(nullptr);
  KivEvent_Release(nullptr);
  KivChallenge_Release(nullptr);
  KivAuth_Release(nullptr);
}

}  // namespace
}  // namespace kiv::test
