// The C++ layer of the session's interface: what it is made of, and whole sessions through it.
#include "kiv/session.hpp"

#include <gmock/gmock.h>

#include "credentials/base64.h"
#include "kiv/kiv.hpp"
#include "unit/session/support/session_test.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;

constexpr wchar_t kUrl[] = L"http://a.test/";
constexpr std::wstring_view kSecret = L"open-sesame-in-a-block-of-its-own";

template <class Object>
constexpr bool isMoveOnly = std::is_nothrow_move_constructible_v<Object>&& std::is_nothrow_move_assignable_v<Object> &&
                            !std::is_copy_constructible_v<Object> && !std::is_copy_assignable_v<Object>;

static_assert(isMoveOnly<Session> && isMoveOnly<Challenge> && isMoveOnly<PendingResolution> && isMoveOnly<ProxyAuth>);
static_assert(isMoveOnly<SecretText> && isMoveOnly<ClearCredentials> && isMoveOnly<SessionEvent>);
static_assert(std::is_nothrow_copy_constructible_v<Decision> && std::is_nothrow_move_constructible_v<Decision>);
static_assert(std::is_copy_constructible_v<CancelToken> && std::is_copy_constructible_v<SessionOptions>);

TEST(CppSessionTimeOut, IsCountedAsTheCInterfaceCounts) {
  struct Case {
    std::chrono::milliseconds time;
    std::uint32_t limit;     // where 0 is the default
    std::uint32_t patience;  // where 0 only looks
    std::uint32_t option;
  };
  for (const Case& c : {Case{default_timeout, 0, 0, KIV_NO_TIME_OUT}, Case{-1ms, 1, 0, KIV_NO_TIME_OUT},
                        Case{0ms, 1, 0, 0}, Case{1ms, 1, 1, 1}, Case{24h, 86'400'000, 86'400'000, 86'400'000},
                        Case{4'294'967'294ms, 0xFFFFFFFE, 0xFFFFFFFE, 0xFFFFFFFE},
                        Case{4'294'967'295ms, KIV_NO_TIME_OUT, KIV_NO_TIME_OUT, KIV_NO_TIME_OUT},
                        Case{no_timeout, KIV_NO_TIME_OUT, KIV_NO_TIME_OUT, KIV_NO_TIME_OUT}}) {
    EXPECT_EQ(session_detail::limit(c.time), c.limit) << c.time.count();
    EXPECT_EQ(session_detail::patience(c.time), c.patience) << c.time.count();
    EXPECT_EQ(session_detail::option(c.time), c.option) << c.time.count();
  }
}

TEST(CppSessionError, HasTheStatusAndItsText) {
  struct Case {
    KivStatus status;
    const char* text;
  };
  for (const Case& c :
       {Case{KIV_STATUS_CLOSED, "kiv: the session was closed"}, Case{0x80070005U, "kiv: system error (0x80070005)"},
        Case{0x8009030CU, "kiv: error of a security package (0x8009030C)"}}) {
    const SessionError error(c.status);
    EXPECT_EQ(error.status(), c.status);
    EXPECT_STREQ(error.what(), c.text);
  }
}

TEST(CppSessionStatus, BecomesAnException) {
  EXPECT_NO_THROW(session_detail::check(KIV_STATUS_OK));
  EXPECT_THROW(session_detail::check(KIV_STATUS_OUT_OF_MEMORY), std::bad_alloc);
  EXPECT_THROW(session_detail::check(KIV_STATUS_TIMED_OUT), SessionError);
}

TEST(CppSessionText, MustNotContainANul) {
  EXPECT_THROW(session_detail::Text(std::wstring_view(L"a\0b", 3)), std::invalid_argument);
}

using CppSecretTextTest = PlatformTest;

TEST_F(CppSecretTextTest, IsWiped) {
  const ExpectSecretWiped wiped(kSecret);
  SecretText text(kSecret);
  EXPECT_EQ(text.view(), kSecret);
  SecretText moved(std::move(text));
  EXPECT_EQ(moved.view(), kSecret);
  text = SecretText(L"another");
  moved = std::move(text);
  EXPECT_EQ(std::wstring(moved.c_str()), L"another");
  EXPECT_EQ(text.view(), L"");
  EXPECT_EQ(SecretText().view(), L"");
}

// The status with which `body` throws; KIV_STATUS_OK if it does not.
template <class Body>
KivStatus statusOf(Body&& body) {
  try {
    std::forward<Body>(body)();
    return KIV_STATUS_OK;
  } catch (const SessionError& error) {
    return error.status();
  }
}

std::wstring routeOf(const Decision& decision) {
  if (decision.is_none()) return L"none";
  return decision.is_direct() ? L"direct" : std::wstring(decision.proxy_url());
}

// Throws what the future throws. The time must have passed that it needs: its wait is a real one.
Decision resultOf(std::future<Decision>& future) {
  if (future.wait_for(0s) != std::future_status::ready) throw std::logic_error("it has not ended");
  return future.get();
}

class CppSessionTest : public SessionTest {
 protected:
  CppSessionTest() {
    session.reset();
    time.settle();
  }

  void neverAnswer() {
    windows.http.decide = [](const RequestRecord&) { return Exchange{.answering = kNever}; };
  }
  void wantPassword() {
    useProxies(L"proxy:1");
    windows.http.decide = [](const RequestRecord& request) { return wantsPassword(request, L"right"); };
  }
  void changeSettings() {
    windows.user.bypass = L"changed.test";
    windows.changeRegistry(L"HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections");
    time.advance(100ms);
  }
  // How long a resolution takes that ends with "no route".
  std::chrono::milliseconds timeToFail(SessionOptions options) {
    Session one(L"test/1", std::move(options));
    const auto begun = time.now();
    EXPECT_EQ(routeOf(one.resolve(kUrl, no_timeout)), L"none");
    return elapsedSince(begun);
  }
};

TEST_F(CppSessionTest, ResolvesToADecisionThatCanBeCopied) {
  useProxies(L"proxy:8080");
  Decision decision;
  {
    Session one(L"test/1");
    const Decision first = one.resolve(kUrl);
    time.advance(250ms);
    decision = first;
    EXPECT_EQ(decision.handle(), first.handle());
    EXPECT_EQ(decision.age(), 250ms);
  }
  EXPECT_TRUE(decision);
  EXPECT_EQ(decision.kind(), DecisionKind::Proxy);
  EXPECT_TRUE(decision.is_proxy());
  EXPECT_EQ(decision.scheme(), L"http");
  EXPECT_EQ(decision.host(), L"proxy");
  EXPECT_EQ(decision.port(), 8080);
  EXPECT_EQ(decision.proxy_url(), L"http://proxy:8080");
  EXPECT_EQ(decision.auth_scheme(), 0U);
  EXPECT_EQ(decision.reason(), KIV_REASON_REACHED);
  EXPECT_EQ(decision.reason_text(), KivStatus_Text(KIV_REASON_REACHED));
  EXPECT_EQ(statusOf([&] { static_cast<void>(decision.credentials()); }), KIV_STATUS_CLOSED);
}

TEST_F(CppSessionTest, LooksUpWhatIsKept) {
  Session one(L"test/1");
  EXPECT_FALSE(one.lookup(kUrl));
  time.settle();
  const std::optional<Decision> kept = one.lookup(kUrl);
  ASSERT_TRUE(kept);
  EXPECT_TRUE(kept->is_direct());
}

TEST_F(CppSessionTest, ThrowsTheStatusOfACallWithoutAResult) {
  neverAnswer();
  Session one(L"test/1");
  EXPECT_EQ(statusOf([&] { one.resolve(L"ftp://a.test/"); }), KIV_STATUS_BAD_URL);
  EXPECT_EQ(statusOf([&] { one.lookup(L""); }), KIV_STATUS_BAD_URL);
  EXPECT_EQ(statusOf([&] { one.start(L"a.test", 1); }), KIV_STATUS_BAD_URL);
  EXPECT_THROW(one.resolve(std::wstring_view(L"http://a.test/\0", 15)), std::invalid_argument);
  const auto begun = time.now();
  EXPECT_EQ(statusOf([&] { one.resolve(kUrl, 2s); }), KIV_STATUS_TIMED_OUT);
  EXPECT_EQ(elapsedSince(begun), 2s);
  EXPECT_EQ(statusOf([&] { one.resolve(kUrl, 0ms); }), KIV_STATUS_TIMED_OUT);
  EXPECT_LE(elapsedSince(begun), 2'001ms) << "no time was left: the default must not be used";
  EXPECT_EQ(statusOf([] { Session(L"a\nb"); }), KIV_STATUS_BAD_ARGUMENT);
}

TEST_F(CppSessionTest, TakesOptionsUpToTheirBounds) {
  struct Case {
    const char* name;
    std::function<void(SessionOptions&, std::int64_t)> set;
    std::int64_t least;
    std::int64_t most;
  };
  using Time = std::chrono::milliseconds;
  const auto number = [](std::int64_t value) { return static_cast<std::uint32_t>(value); };
  const Case cases[] = {
      {"test", [](auto& o, auto v) { o.test = static_cast<kiv::SessionTest>(v); }, 0, 2},
      {"timeout", [](auto& o, auto v) { o.timeout = Time(v); }, 1, 86'400'000},
      {"discovery_timeout", [](auto& o, auto v) { o.discovery_timeout = Time(v); }, 1, 86'400'000},
      {"connect_timeout", [](auto& o, auto v) { o.connect_timeout = Time(v); }, 1, 86'400'000},
      {"answer_timeout", [](auto& o, auto v) { o.answer_timeout = Time(v); }, 1, 86'400'000},
      {"kept_time", [](auto& o, auto v) { o.kept_time = Time(v); }, 0, 86'400'000},
      {"past_time", [](auto& o, auto v) { o.past_time = Time(v); }, 0, 86'400'000},
      {"failure_time", [](auto& o, auto v) { o.failure_time = Time(v); }, 0, 86'400'000},
      {"dead_time", [](auto& o, auto v) { o.dead_time = Time(v); }, 0, 86'400'000},
      {"origins", [&](auto& o, auto v) { o.origins = number(v); }, 1, 10'000},
      {"candidates", [&](auto& o, auto v) { o.candidates = number(v); }, 1, 32},
      {"direct", [](auto& o, auto v) { o.direct = static_cast<DirectPolicy>(v); }, 0, 2},
      {"logged_on_user", [](auto& o, auto v) { o.logged_on_user = static_cast<LoggedOnUser>(v); }, 0, 2},
      {"schemes", [&](auto& o, auto v) { o.schemes = number(v); }, 1, 0x1B},
      {"log_level", [](auto& o, auto v) { o.log_level = static_cast<SessionLogLevel>(v); }, 0, 4},
  };
  for (const Case& c : cases) {
    for (const std::int64_t value : {c.least - 1, c.least, c.most, c.most + 1}) {
      SessionOptions options;
      c.set(options, value);
      const bool good = value >= c.least && value <= c.most;
      EXPECT_EQ(statusOf([&] { Session(L"test/1", options); }), good ? KIV_STATUS_OK : KIV_STATUS_BAD_ARGUMENT)
          << c.name << " " << value;
    }
  }
}

TEST_F(CppSessionTest, TestsCandidatesAsItsOptionsSay) {
  useProxies(L"first:1;second:2;third:3");
  SessionOptions options;
  options.test = kiv::SessionTest::None;
  options.left_out = L"first";
  options.bypass_list = L"*.bypassed.test";
  Session untested(L"test/1", options);
  EXPECT_EQ(routeOf(untested.resolve(kUrl)), L"http://second:2");
  EXPECT_EQ(untested.resolve(L"http://x.bypassed.test/").reason(), KIV_REASON_BYPASSED);

  windows.http.decide = [](const RequestRecord& request) {
    return proxyOf(request) == L"third:3" ? Exchange{} : Exchange{.sendError = ERROR_WINHTTP_CANNOT_CONNECT};
  };
  options = {};
  options.candidates = 2;
  EXPECT_EQ(routeOf(Session(L"test/1", options).resolve(kUrl)), L"none");
  EXPECT_EQ(sentThrough(L"third:3"), 0U);
  options = {};
  options.direct = DirectPolicy::LastResort;
  options.filter = [](std::wstring_view) { return false; };
  EXPECT_EQ(routeOf(Session(L"test/1", options).resolve(kUrl)), L"none") << "the target cannot be reached directly";
  EXPECT_EQ(sentThrough(L""), 1U);
}

TEST_F(CppSessionTest, LimitsWorkAsItsOptionsSay) {
  SessionOptions options;
  windows.http.decide = [](const RequestRecord&) { return Exchange{.connecting = kNever}; };
  options.connect_timeout = 700ms;
  EXPECT_EQ(timeToFail(options), 700ms);

  neverAnswer();
  options = {};
  options.answer_timeout = 800ms;
  EXPECT_EQ(timeToFail(options), 800ms);

  options = {};
  options.timeout = 900ms;
  Session limited(L"test/1", options);
  const auto begun = time.now();
  EXPECT_EQ(statusOf([&] { limited.resolve(kUrl); }), KIV_STATUS_TIMED_OUT);
  EXPECT_EQ(elapsedSince(begun), 900ms);

  windows.user.autoConfigUrl = L"http://pac.test/proxy.pac";
  windows.autoConfig = {{.takes = kNever}};
  windows.http.decide = nullptr;
  options = {};
  options.discovery_timeout = 600ms;
  Session hanging(L"test/1", options);
  hanging.set_fallback_proxy(L"own:3128");
  const auto second = time.now();
  EXPECT_EQ(routeOf(hanging.resolve(kUrl)), L"http://own:3128");
  EXPECT_EQ(elapsedSince(second), 600ms);
}

TEST_F(CppSessionTest, KeepsDecisionsAsItsOptionsSay) {
  SessionOptions options;
  options.kept_time = 2s;
  options.past_time = 1s;
  options.failure_time = 4s;
  options.origins = 2;
  Session one(L"test/1", options);
  for (const wchar_t* url : {L"http://c.test/", L"http://b.test/", kUrl}) one.resolve(url);
  EXPECT_EQ(one.counter(SessionCounter::KeptOrigins), 2U);
  time.advance(1'999ms);
  EXPECT_TRUE(one.lookup(kUrl));
  EXPECT_EQ(one.counter(SessionCounter::Resolutions), 3U);
  time.advance(1'000ms);
  EXPECT_TRUE(one.lookup(kUrl));
  EXPECT_EQ(one.counter(SessionCounter::Resolutions), 4U) << "past its time, and refreshed";
  time.settle();
  time.advance(3s);
  windows.http.decide = [](const RequestRecord&) { return Exchange{.sendError = ERROR_WINHTTP_CANNOT_CONNECT}; };
  EXPECT_FALSE(one.lookup(kUrl));
  time.settle();
  time.advance(3'999ms);
  EXPECT_TRUE(one.lookup(kUrl)) << "the failure is kept";
  time.advance(1ms);
  EXPECT_FALSE(one.lookup(kUrl));
}

TEST_F(CppSessionTest, TriesADeadProxyLastForTheDeadTime) {
  struct Case {
    std::chrono::milliseconds dead;
    std::size_t attempts;
  };
  for (const Case& c : {Case{0ms, 2}, Case{10s, 1}}) {
    windows.http.decide = [](const RequestRecord& request) {
      return proxyOf(request) == L"second:2" ? Exchange{} : Exchange{.sendError = ERROR_WINHTTP_CANNOT_CONNECT};
    };
    useProxies(L"first:1;second:2");
    const std::size_t before = sentThrough(L"first:1");
    SessionOptions options;
    options.dead_time = c.dead;
    Session one(L"test/1", options);
    one.resolve(kUrl);
    one.resolve(L"http://b.test/");
    EXPECT_EQ(sentThrough(L"first:1") - before, c.attempts);
  }
}

TEST_F(CppSessionTest, PutsItsOwnProxiesAroundTheSettings) {
  useProxies(L"proxy:1");
  std::wstring works;
  windows.http.decide = [&](const RequestRecord& request) {
    return proxyOf(request) == works ? Exchange{} : Exchange{.sendError = ERROR_WINHTTP_CANNOT_CONNECT};
  };
  for (const wchar_t* one : {L"mine:1", L"last:2"}) {
    works = one;
    Session own(L"test/1");
    own.set_preferred_proxy(L"mine:1");
    own.set_fallback_proxy(L"last:2");
    EXPECT_EQ(routeOf(own.resolve(kUrl)), std::wstring(L"http://") + one);
    EXPECT_EQ(statusOf([&] { own.set_preferred_proxy(L"other:1"); }), KIV_STATUS_TOO_LATE);
    EXPECT_NO_THROW(own.set_log_level(SessionLogLevel::Debug));
  }
  Session strict(L"test/1");
  EXPECT_EQ(statusOf([&] { strict.set_fallback_proxy(L"ftp://a:1"); }), KIV_STATUS_BAD_ARGUMENT);
}

TEST_F(CppSessionTest, HandsOutTheCredentialsOfAProxyAndWipesThem) {
  const ExpectSecretWiped wiped(kSecret);
  windows.http.decide = [](const RequestRecord& request) { return wantsPassword(request, std::wstring(kSecret)); };
  Session one(L"test/1");
  one.set_fallback_proxy(L"proxy:1", L"ann", kSecret);
  const Decision direct = one.resolve(kUrl);
  Session two(L"test/1");
  two.set_preferred_proxy(L"proxy:1", L"ann", kSecret);
  const Decision decision = two.resolve(kUrl);
  EXPECT_EQ(decision.auth_scheme(), KIV_SCHEME_BASIC);
  {
    const std::optional<ClearCredentials> credentials = decision.credentials();
    ASSERT_TRUE(credentials);
    EXPECT_EQ(credentials->user, L"ann");
    EXPECT_EQ(credentials->password.view(), kSecret);
  }
  EXPECT_THROW(decision.show_credentials([](std::wstring_view, std::wstring_view) { throw std::range_error("mine"); }),
               std::range_error);
  two.report_failure(decision, DecisionFailure::ProxyCredentials);
  EXPECT_FALSE(decision.credentials()) << "they were refused";
  EXPECT_FALSE(decision.show_credentials([](std::wstring_view, std::wstring_view) { ADD_FAILURE(); }));
  two.forget_credentials();
  EXPECT_TRUE(decision.credentials());
}

TEST_F(CppSessionTest, TellsTheEndOfAStartedResolutionByAnEvent) {
  Session one(L"test/1");
  one.start(kUrl, 7);  // releasing it does not cancel
  const std::optional<SessionEvent> event = one.next();
  ASSERT_TRUE(event && std::holds_alternative<CompletedEvent>(*event));
  const auto& completed = std::get<CompletedEvent>(*event);
  EXPECT_EQ(completed.tag, 7U);
  EXPECT_EQ(completed.status, KIV_STATUS_OK);
  EXPECT_EQ(routeOf(completed.decision), L"direct");
  const auto begun = time.now();
  EXPECT_FALSE(one.next(250ms));
  EXPECT_EQ(elapsedSince(begun), 250ms);
}

TEST_F(CppSessionTest, TellsTheEndOfAStartedResolutionToACallable) {
  Session one(L"test/1");
  std::vector<std::pair<KivStatus, std::wstring>> ends;
  const auto done = [&](KivStatus status, Decision decision) {
    ends.emplace_back(status, routeOf(decision));
    throw 42;
  };
  one.start(kUrl, done);
  time.settle();
  neverAnswer();
  one.start(L"http://b.test/", done, 1s);
  time.advance(1s);
  one.start(L"http://c.test/", done);
  one.close();
  EXPECT_THAT(ends, ElementsAre(std::pair(KIV_STATUS_OK, L"direct"), std::pair(KIV_STATUS_TIMED_OUT, L"none"),
                                std::pair(KIV_STATUS_CLOSED, L"none")));
  EXPECT_THROW(one.start(kUrl, DoneFunction()), std::invalid_argument);
  EXPECT_EQ(statusOf([&] { one.start(kUrl, done); }), KIV_STATUS_CLOSED) << "and the callable is not called";
  EXPECT_EQ(ends.size(), 3U);
}

TEST_F(CppSessionTest, LetsAStartedResolutionBeAwaitedAndCancelled) {
  neverAnswer();
  Session one(L"test/1");
  PendingResolution pending = one.start(kUrl, 1, no_timeout);
  EXPECT_FALSE(pending.wait(0ms));
  const auto begun = time.now();
  EXPECT_FALSE(pending.wait(3s));
  EXPECT_EQ(elapsedSince(begun), 3s);
  pending.cancel();
  EXPECT_EQ(statusOf([&] { pending.wait(); }), KIV_STATUS_CANCELLED);
  windows.http.decide = nullptr;
  PendingResolution second = one.start(L"http://b.test/", 2);
  EXPECT_TRUE(second.wait()->is_direct());
  EXPECT_TRUE(second.wait()->is_direct()) << "any number of times";
  EXPECT_EQ(statusOf([] { PendingResolution().wait(); }), KIV_STATUS_BAD_ARGUMENT);
}

TEST_F(CppSessionTest, GivesAFuture) {
  Session one(L"test/1");
  std::future<Decision> future = one.resolve_async(kUrl);
  time.settle();
  EXPECT_EQ(routeOf(resultOf(future)), L"direct");

  neverAnswer();
  future = one.resolve_async(L"http://b.test/", 5s);
  time.advance(4'999ms);
  EXPECT_THROW(resultOf(future), std::logic_error);
  time.advance(1ms);
  EXPECT_EQ(statusOf([&] { resultOf(future); }), KIV_STATUS_TIMED_OUT);

  future = one.resolve_async(L"http://c.test/", no_timeout);
  time.settle();
  one.close();
  EXPECT_EQ(statusOf([&] { resultOf(future); }), KIV_STATUS_CLOSED);
  EXPECT_EQ(statusOf([&] { one.resolve_async(kUrl); }), KIV_STATUS_CLOSED);
}

TEST_F(CppSessionTest, CancelsWhatWasAndWillBeStartedWithAToken) {
  Session one(L"test/1");
  CancelSource source;
  std::future<Decision> ended = one.resolve_async(kUrl, default_timeout, source.token());
  time.settle();
  neverAnswer();
  std::future<Decision> first = one.resolve_async(L"http://b.test/", no_timeout, source.token());
  std::future<Decision> second = one.resolve_async(L"http://c.test/", no_timeout, source.token());
  std::future<Decision> other = one.resolve_async(L"http://d.test/", no_timeout, CancelSource().token());
  EXPECT_EQ(statusOf([&] { one.resolve_async(L"", no_timeout, source.token()); }), KIV_STATUS_BAD_URL);
  time.advance(1s);
  EXPECT_FALSE(source.token().is_cancelled());
  source.cancel();
  EXPECT_TRUE(source.token().is_cancelled());
  std::future<Decision> late = one.resolve_async(L"http://e.test/", no_timeout, source.token());
  time.settle();
  EXPECT_EQ(routeOf(resultOf(ended)), L"direct");
  for (auto* const future : {&first, &second, &late}) {
    EXPECT_EQ(statusOf([&] { resultOf(*future); }), KIV_STATUS_CANCELLED);
  }
  EXPECT_THROW(resultOf(other), std::logic_error);
  EXPECT_FALSE(CancelToken().is_cancelled());
  one.close();
}

TEST(CppSessionCancellation, ForgetsWhatHasEnded) {
  session_detail::Cancellation cancellation;
  const std::uint64_t first = cancellation.reserve();
  const std::uint64_t second = cancellation.reserve();
  EXPECT_NE(first, second);
  cancellation.ended(first);
  cancellation.started(first, PendingResolution());
  EXPECT_FALSE(cancellation.is_cancelled());
  cancellation.cancel();
  cancellation.cancel();
  EXPECT_TRUE(cancellation.is_cancelled());
}

TEST_F(CppSessionTest, AsksACallableForCredentials) {
  wantPassword();
  std::vector<std::wstring> asked;
  SessionOptions options;
  options.challenge = [&](Challenge challenge) {
    asked.push_back(std::wstring(challenge.proxy()) + L" " + std::wstring(challenge.realm()) + L" " +
                    std::to_wstring(challenge.scheme()) + L" " + std::to_wstring(challenge.attempt()));
    EXPECT_TRUE(challenge.answer(L"ann", asked.size() == 1 ? L"wrong" : L"right"));
    EXPECT_FALSE(challenge.answer(L"ann", L"again"));
    EXPECT_FALSE(challenge.decline());
  };
  options.withdrawn = [](const Challenge&) { ADD_FAILURE(); };
  Session one(L"test/1", std::move(options));
  EXPECT_EQ(routeOf(one.resolve(kUrl)), L"http://proxy:1");
  EXPECT_THAT(asked, ElementsAre(L"http://proxy:1 office 1 1", L"http://proxy:1 office 1 2"));
}

TEST_F(CppSessionTest, DeclinesAChallengeThatACallableDropsDeclinesOrThrowsOver) {
  wantPassword();
  const std::function<void(Challenge)> callables[] = {
      [](const Challenge&) {}, [](Challenge challenge) { EXPECT_TRUE(challenge.decline()); },
      [](const Challenge&) { throw 42; }, [](Challenge challenge) { challenge = Challenge(); }};
  for (const auto& callable : callables) {
    int asked = 0;
    SessionOptions options;
    options.challenge = [&](Challenge challenge) {
      ++asked;
      callable(std::move(challenge));
    };
    Session one(L"test/1", std::move(options));
    EXPECT_EQ(one.resolve(kUrl).reason(), KIV_REASON_CREDENTIALS_WANTED);
    EXPECT_EQ(one.resolve(L"http://b.test/").reason(), KIV_REASON_CREDENTIALS_WANTED);
    EXPECT_EQ(asked, 1);
    one.forget_credentials();
    EXPECT_EQ(one.resolve(L"http://b.test/").reason(), KIV_REASON_CREDENTIALS_WANTED);
    EXPECT_EQ(asked, 2);
  }
}

TEST_F(CppSessionTest, LetsAChallengeBeAnsweredLater) {
  wantPassword();
  Challenge kept;
  SessionOptions options;
  options.challenge = [&](Challenge challenge) { kept = std::move(challenge); };
  Session one(L"test/1", std::move(options));
  PendingResolution pending = one.start(kUrl, 1, no_timeout);
  time.advance(1h);
  ASSERT_TRUE(kept);
  EXPECT_FALSE(kept.is_withdrawn());
  EXPECT_TRUE(kept.answer(L"ann", L"right"));
  EXPECT_EQ(routeOf(*pending.wait()), L"http://proxy:1");
}

TEST_F(CppSessionTest, TellsThatAChallengeWasWithdrawn) {
  wantPassword();
  Challenge kept;
  int withdrawn = 0;
  SessionOptions options;
  options.challenge = [&](Challenge challenge) { kept = std::move(challenge); };
  options.withdrawn = [&](const Challenge& challenge) {
    ++withdrawn;
    EXPECT_TRUE(challenge == kept);
    EXPECT_TRUE(challenge != Challenge());
    throw 42;
  };
  Session one(L"test/1", std::move(options));
  one.start(kUrl, 1, 1s);
  time.advance(1h);
  EXPECT_EQ(withdrawn, 1);
  EXPECT_TRUE(kept.is_withdrawn());
  EXPECT_FALSE(kept.answer(L"ann", L"right"));
}

TEST_F(CppSessionTest, DoesNotHandOutAWithdrawnChallengeAsANewOne) {
  wantPassword();
  std::vector<Challenge> asked;
  SessionOptions options;
  options.challenge = [&](Challenge challenge) { asked.push_back(std::move(challenge)); };
  Session one(L"test/1", std::move(options));  // nobody wants to know of withdrawals
  one.start(kUrl, 1, 1s);
  time.advance(1h);
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_TRUE(asked.front().is_withdrawn());
}

TEST_F(CppSessionTest, HandsOutEveryKindOfEvent) {
  wantPassword();
  SessionOptions options;
  options.log_level = SessionLogLevel::Info;
  int wakes = 0;
  options.wake = [&] {
    ++wakes;
    throw 42;
  };
  Session one(L"test/1", std::move(options));
  one.start(kUrl, 3, no_timeout);
  time.settle();
  EXPECT_EQ(wakes, 1);
  Challenge kept;
  std::size_t lines = 0;
  while (std::optional<SessionEvent> event = one.next(0ms)) {
    if (auto* const challenge = std::get_if<ChallengeEvent>(&*event)) kept = std::move(challenge->challenge);
    if (auto* const line = std::get_if<LogEvent>(&*event)) {
      ++lines;
      EXPECT_LE(line->level, SessionLogLevel::Info);
      EXPECT_FALSE(line->text.empty());
    }
  }
  EXPECT_GT(lines, 0U);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept.realm(), L"office");

  one.set_log_level(SessionLogLevel::Off);
  useProxies(L"other:2");
  windows.http.decide = nullptr;
  changeSettings();
  std::vector<std::size_t> kinds;
  while (std::optional<SessionEvent> event = one.next(0ms)) {
    kinds.push_back(event->index());
    auto* const withdrawn = std::get_if<WithdrawnEvent>(&*event);
    EXPECT_TRUE(!withdrawn || withdrawn->challenge == kept);
  }
  const std::size_t completed = SessionEvent(CompletedEvent{}).index();
  EXPECT_THAT(kinds, testing::UnorderedElementsAre(completed, SessionEvent(WithdrawnEvent{}).index(),
                                                   SessionEvent(ChangedEvent{}).index()));
  one.start(kUrl, 4);
  one.close();
  EXPECT_EQ(one.next()->index(), completed);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(std::holds_alternative<ClosedEvent>(*one.next()));
}

TEST_F(CppSessionTest, DeclinesAChallengeWhoseEventIsDropped) {
  wantPassword();
  Session one(L"test/1");
  EXPECT_FALSE(one.next(0ms));  // somebody listens
  PendingResolution pending = one.start(kUrl, 1, no_timeout);
  EXPECT_TRUE(std::holds_alternative<ChallengeEvent>(*one.next()));
  EXPECT_EQ(pending.wait()->reason(), KIV_REASON_CREDENTIALS_WANTED);
}

TEST_F(CppSessionTest, CallsTheCallablesForLogLinesAndChangesThoughTheyThrow) {
  std::vector<std::wstring> lines;
  int changes = 0;
  SessionOptions options;
  options.log_level = SessionLogLevel::Debug;
  options.log = [&](SessionLogLevel level, std::wstring_view text) {
    EXPECT_LE(level, SessionLogLevel::Debug);
    lines.emplace_back(text);
    throw 42;
  };
  options.changed = [&] {
    ++changes;
    throw 42;
  };
  Session one(L"test/1", std::move(options));
  one.resolve(kUrl);
  time.settle();
  const std::size_t before = lines.size();
  EXPECT_GT(before, 1U);
  changeSettings();
  windows.resumeFromSleep();
  time.settle();
  EXPECT_EQ(changes, 2);
  EXPECT_GT(lines.size(), before);
  EXPECT_FALSE(one.next(0ms));
}

TEST_F(CppSessionTest, LeavesOutWhatTheFilterRefusesOrThrowsOver) {
  useProxies(L"first:1;second:2;third:3");
  SessionOptions options;
  options.filter = [](std::wstring_view url) {
    if (url == L"http://first:1") throw 42;
    return url == L"http://third:3";
  };
  Session one(L"test/1", std::move(options));
  EXPECT_EQ(routeOf(one.resolve(kUrl)), L"http://third:3");
  EXPECT_EQ(windows.requests().size(), 1U);
}

TEST_F(CppSessionTest, CountsReportsAndForgets) {
  useProxies(L"proxy:1");
  Session one(L"test/1");
  const Decision first = one.resolve(kUrl);
  one.lookup(kUrl);
  EXPECT_EQ(one.counter(SessionCounter::Resolutions), 1U);
  EXPECT_EQ(one.counter(SessionCounter::KeptAnswers), 1U);
  EXPECT_EQ(one.counter(SessionCounter::TestRequests), 1U);
  EXPECT_EQ(one.counter(SessionCounter::KeptOrigins), 1U);
  one.report_failure(first, DecisionFailure::Target);
  EXPECT_EQ(one.counter(SessionCounter::KeptOrigins), 0U);
  one.resolve(kUrl);
  one.forget();
  EXPECT_EQ(one.counter(SessionCounter::KeptOrigins), 0U);
  EXPECT_EQ(statusOf([&] { one.report_failure(Decision(), DecisionFailure::Target); }), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(Session::version(), KivSession_Version());
}

TEST_F(CppSessionTest, TellsInsideACallableThatItMustNotBlock) {
  Session one(L"test/1");
  std::vector<KivStatus> statuses;
  one.start(kUrl, [&](KivStatus, const Decision&) {
    PendingResolution pending = one.start(kUrl, 1);
    statuses = {statusOf([&] { one.resolve(kUrl); }), statusOf([&] { one.next(); }), statusOf([&] { pending.wait(); }),
                statusOf([&] { one.lookup(kUrl); })};
  });
  time.settle();
  EXPECT_THAT(statuses, ElementsAre(KIV_STATUS_REENTRANT, KIV_STATUS_REENTRANT, KIV_STATUS_REENTRANT, KIV_STATUS_OK));
}

TEST_F(CppSessionTest, MayBeClosedInACallable) {
  neverAnswer();
  Session one(L"test/1");
  std::future<Decision> other = one.resolve_async(L"http://b.test/", no_timeout);
  one.start(
      kUrl, [&](KivStatus, const Decision&) { one.close(); }, 1s);
  time.advance(1s);
  EXPECT_EQ(statusOf([&] { resultOf(other); }), KIV_STATUS_CLOSED);
  EXPECT_EQ(statusOf([&] { one.lookup(kUrl); }), KIV_STATUS_CLOSED);
}

TEST_F(CppSessionTest, MayBeDestroyedInEachOfItsCallables) {
  wantPassword();
  std::optional<Session> one;
  // The callable goes on to use what it has captured, which must still be there.
  const auto destroy = [&one, text = std::wstring(64, L'x')] {
    one.reset();
    EXPECT_EQ(text.size(), 64U);
  };
  const std::function<void(SessionOptions&)> sets[] = {
      [&](SessionOptions& options) { options.challenge = [destroy](const Challenge&) { destroy(); }; },
      [&](SessionOptions& options) { options.log = [destroy](SessionLogLevel, std::wstring_view) { destroy(); }; },
      [&](SessionOptions& options) { options.changed = destroy; },
      [&](SessionOptions& options) {
        options.filter = [destroy](std::wstring_view) {
          destroy();
          return true;
        };
      }};
  for (const auto& set : sets) {
    SessionOptions options;
    options.log_level = SessionLogLevel::Debug;
    set(options);
    one.emplace(L"test/1", std::move(options));
    one->start(kUrl, 1);
    time.settle();
    if (one) changeSettings();
    time.settle();
    EXPECT_FALSE(one) << "it was not called";
    one.reset();
  }
  one.emplace(L"test/1");
  one->start(kUrl, [destroy](KivStatus, const Decision&) { destroy(); });
  time.settle();
  EXPECT_FALSE(one);
}

TEST_F(CppSessionTest, KeepsItsCallablesWhenItIsMoved) {
  int lines = 0;
  SessionOptions options;
  options.log_level = SessionLogLevel::Debug;
  options.log = [&](SessionLogLevel, std::wstring_view) { ++lines; };
  Session first(L"test/1", std::move(options));
  Session moved(std::move(first));
  EXPECT_FALSE(first);
  EXPECT_EQ(statusOf([&] { first.resolve(kUrl); }), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(statusOf([&] { first.next(0ms); }), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(first.counter(SessionCounter::Resolutions), 0U);
  first.close();
  first.forget();
  EXPECT_EQ(routeOf(moved.resolve(kUrl)), L"direct");
  time.settle();
  EXPECT_GT(lines, 0);

  neverAnswer();
  std::future<Decision> future = moved.resolve_async(L"http://b.test/", no_timeout);
  Session second(L"test/2");
  moved = std::move(second);
  EXPECT_EQ(statusOf([&] { resultOf(future); }), KIV_STATUS_CLOSED) << "the former session has ended";
  EXPECT_TRUE(moved);
}

TEST_F(CppSessionTest, MakesTheHeadersOfBasicAndNtlm) {
  Session one(L"test/1");
  one.set_preferred_proxy(L"proxy:1", L"Aladdin", L"open sesame");
  const Decision decision = one.resolve(kUrl);
  ProxyAuth basic = one.authenticate(decision);
  EXPECT_EQ(basic.next(), AuthStep::Done);
  EXPECT_EQ(basic.header(), L"");
  EXPECT_EQ(basic.next(L"Basic realm=\"WallyWorld\""), AuthStep::Done);
  EXPECT_EQ(basic.header(), L"Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==");

  ProxyAuth ntlm = one.authenticate(decision);
  EXPECT_EQ(ntlm.next(L"NTLM"), AuthStep::Again);
  EXPECT_EQ(ntlm.header().substr(0, 5), L"NTLM ");
  const std::string token = ntlmChallenge("nonce-of");
  impl::SecureWideBuffer challenge;
  session::appendBase64({reinterpret_cast<const std::uint8_t*>(token.data()), token.size()}, challenge);
  EXPECT_EQ(ntlm.next(L"NTLM " + std::wstring(challenge.begin(), challenge.end())), AuthStep::Done);
  const auto answer = session::fromBase64(ntlm.header().substr(5));
  ASSERT_TRUE(answer);
  EXPECT_EQ(readNtlmAnswer(std::string(answer->begin(), answer->end())).value().user, L"Aladdin");
  ProxyAuth moved(std::move(ntlm));
  EXPECT_EQ(moved.header().substr(0, 5), L"NTLM ");
  EXPECT_EQ(ntlm.header(), L"");
  EXPECT_EQ(statusOf([&] { ntlm.next(); }), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(moved.next(L"NTLM"), AuthStep::Rejected);
}

TEST_F(CppSessionTest, TellsWhyThereIsNoHeader) {
  useProxies(L"proxy:1");
  SessionOptions options;
  options.logged_on_user = LoggedOnUser::Never;
  Session one(L"test/1", options);
  const Decision decision = one.resolve(kUrl);
  EXPECT_EQ(one.authenticate(decision).next(L"Unheard-Of"), AuthStep::Unsupported);
  EXPECT_EQ(one.authenticate(decision).next(L"Basic realm=\"x\""), AuthStep::Unsupported) << "nobody can be asked";
  EXPECT_FALSE(one.next(0ms));  // somebody listens
  ProxyAuth waiting = one.authenticate(decision);
  EXPECT_EQ(waiting.next(L"Basic realm=\"x\""), AuthStep::NotYet);
  EXPECT_TRUE(std::get<ChallengeEvent>(*one.next()).challenge.answer(L"a", L"b"));
  EXPECT_EQ(waiting.next(), AuthStep::Done);
  EXPECT_EQ(waiting.header(), L"Basic YTpi");
  windows.security.present = {};
  EXPECT_EQ(statusOf([&] { one.authenticate(decision).next(L"NTLM"); }),
            static_cast<KivStatus>(SEC_E_SECPKG_NOT_FOUND));
  windows.user.proxy = std::nullopt;
  one.forget();
  EXPECT_EQ(statusOf([&] { one.authenticate(Decision()); }), KIV_STATUS_BAD_ARGUMENT);
  EXPECT_EQ(statusOf([&] { one.authenticate(one.resolve(kUrl)); }), KIV_STATUS_BAD_ARGUMENT) << "it is direct";
}

}  // namespace
}  // namespace kiv::test
