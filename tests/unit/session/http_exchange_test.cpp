// Tests of the session's test requests: what is sent, what is answered, time-outs, and the end of the handles.
#include "network/http_exchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "kiv/session.h"
#include "loop/system_error.h"
#include "platform/platform_test.h"
#include "platform/virtual_time.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using session::AutoLogon;
using session::EventLoop;
using session::HttpAnswer;
using session::HttpExchange;
using session::HttpPlan;
using session::LockGuard;
using session::Origin;
using session::Ref;
using session::Route;
using session::RouteKind;
using testing::ElementsAre;
using testing::IsEmpty;
using Fields = std::vector<std::pair<std::wstring, std::wstring>>;

HttpPlan plan(const wchar_t* url = L"http://target/") {
  return {.userAgent = L"agent",
          .target = Origin::parse(url).value(),
          .route = {},
          .cred = std::nullopt,
          .credScheme = 0,
          .autoLogon = AutoLogon::System,
          .connectTimeOut = 5'000,
          .answerTimeOut = 15'000};
}

HttpPlan throughProxy(const wchar_t* url = L"http://target/") {
  HttpPlan result = plan(url);
  result.route = {.kind = RouteKind::Http, .host = L"proxy", .port = 8080};
  return result;
}

// What an exchange told, and when.
struct Told final : session::HttpListener {
  void exchangeConnected(HttpExchange& /*exchange*/) noexcept override {
    ++connected;
    if (whenConnected) whenConnected();
  }
  void exchangeEnded(HttpExchange& /*exchange*/, const HttpAnswer& ended) noexcept override {
    ++ends;
    answer = ended;
    at = EventLoop::now() - session::Time{3'600'000};
  }

  int connected = 0;
  int ends = 0;
  HttpAnswer answer;
  session::Time at = 0;
  std::function<void()> whenConnected;
};

// The loop's life, and one exchange in it.
class Exchanging {
 public:
  explicit Exchanging(SimulatedWindows& windows) : time(windows) {}
  ~Exchanging() {
    stop();
    {
      const LockGuard guard(loop->lock());
      exchange = {};
      loop->stop();
    }
    time.settle();
  }
  Exchanging(const Exchanging&) = delete;
  Exchanging& operator=(const Exchanging&) = delete;

  void start(HttpPlan plan) {
    const LockGuard guard(loop->lock());
    exchange = HttpExchange::start(*loop, std::move(plan), told);
  }
  void stop() {
    const LockGuard guard(loop->lock());
    if (exchange) exchange->stop();
  }

  VirtualTime time;
  Ref<EventLoop> loop = EventLoop::create();
  Told told;
  Ref<HttpExchange> exchange;
};

// For the tests that run several cases, each in a system of its own.
struct OwnWindows final : SimulatedWindows {
  ~OwnWindows() { expectNoComplaints(*this); }
};

class HttpExchangeTest : public PlatformTest {
 protected:
  const HttpAnswer& run(HttpPlan plan) {
    it.start(std::move(plan));
    it.time.advance(60s);
    EXPECT_EQ(it.told.ends, 1);
    return it.told.answer;
  }
  RequestRecord request() const { return windows.requests().at(0); }

  Exchanging it{windows};
};

TEST_F(HttpExchangeTest, AsksForTheRootOfTheTargetDirectly) {
  const HttpAnswer& answer = run(plan(L"http://target:81/path?query"));
  EXPECT_EQ(answer.error, 0U);
  EXPECT_EQ(answer.status, 200U);
  EXPECT_TRUE(answer.connected);
  EXPECT_EQ(it.told.connected, 1);
  EXPECT_EQ(windows.arguments("WinHttpOpen"), L"agent=agent, access=1, proxy=null, bypass=null, flags=0x10000000");
  EXPECT_EQ(request().host, L"target");
  EXPECT_EQ(request().port, 81U);
  EXPECT_EQ(request().verb, L"HEAD");
  EXPECT_EQ(request().objectName, L"/");
  EXPECT_EQ(request().flags, 0U);
  EXPECT_EQ(request().sends, 1U);
  EXPECT_TRUE(request().closed);
}

TEST(HttpExchangeCases, AsksThroughItsProxyInASessionOfItsOwn) {
  struct Case {
    const wchar_t* host;
    const wchar_t* named;
  };
  for (const Case& c : {Case{L"proxy", L"proxy=proxy:8080,"}, Case{L"fd00::1", L"proxy=[fd00::1]:8080,"}}) {
    OwnWindows own;
    Exchanging exchanging(own);
    HttpPlan through = throughProxy(L"https://[fd00::2]/");
    through.route.host = c.host;
    exchanging.start(through);
    exchanging.time.settle();
    EXPECT_EQ(exchanging.told.answer.status, 200U);
    EXPECT_THAT(own.arguments("WinHttpOpen"), testing::HasSubstr(L"access=3, "));
    EXPECT_THAT(own.arguments("WinHttpOpen"), testing::HasSubstr(c.named));
    EXPECT_EQ(own.requests().at(0).host, L"[fd00::2]");
    EXPECT_EQ(own.requests().at(0).port, 443U);
    EXPECT_EQ(own.requests().at(0).flags, DWORD{WINHTTP_FLAG_SECURE});
  }
}

TEST_F(HttpExchangeTest, FollowsNoRedirectsKeepsNoCookiesAndLimitsItsTime) {
  run(plan());
  const std::map<DWORD, DWORD> options = request().options;
  EXPECT_EQ(options.at(WINHTTP_OPTION_DISABLE_FEATURE), DWORD{WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES});
  EXPECT_EQ(options.at(WINHTTP_OPTION_CONNECT_TIMEOUT), 5'000U);
  EXPECT_EQ(options.at(WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT), 15'000U);
  EXPECT_EQ(options.count(WINHTTP_OPTION_AUTOLOGON_POLICY), 0U);
}

TEST(HttpExchangeCases, TellsTheErrorUnchanged) {
  for (const DWORD error : {12007U, 12029U, 12030U, 12044U, 12157U, 12175U}) {
    for (const ErrorBy errorBy : {ErrorBy::Notification, ErrorBy::ReturnValue}) {
      SCOPED_TRACE(error);
      OwnWindows own;
      own.http.failSend(error, errorBy);
      Exchanging exchanging(own);
      exchanging.start(plan(L"https://target/"));
      exchanging.time.settle();
      EXPECT_EQ(exchanging.told.ends, 1);
      EXPECT_EQ(exchanging.told.answer.error, error);
      EXPECT_TRUE(own.requests().at(0).closed);
    }
  }
}

TEST_F(HttpExchangeTest, SendsAgainWhenItIsAskedToButAtMostSixTimes) {
  windows.http.resend(5).respond(204);
  EXPECT_EQ(run(plan()).status, 204U);
  EXPECT_EQ(request().sends, 6U);
}

TEST_F(HttpExchangeTest, GivesUpWhenItIsAskedToSendForTheSeventhTime) {
  windows.http.resend(9);
  EXPECT_EQ(run(plan()).error, DWORD{ERROR_WINHTTP_RESEND_REQUEST});
  EXPECT_EQ(request().sends, 6U);
}

TEST_F(HttpExchangeTest, SendsAgainAfterAnAnswerWithoutAStatus) {
  windows.http.respond(0).respond(200);
  EXPECT_EQ(run(plan()).status, 200U);
  EXPECT_EQ(request().sends, 2U);
}

TEST_F(HttpExchangeTest, EndsWhenItHasNotConnectedInTime) {
  windows.http.respond({.connecting = kNever});
  const HttpAnswer& answer = run(plan());
  EXPECT_EQ(answer.error, DWORD{ERROR_WINHTTP_TIMEOUT});
  EXPECT_FALSE(answer.connected);
  EXPECT_EQ(it.told.at, 5'000U);
}

TEST_F(HttpExchangeTest, EndsWhenItWasNotAnsweredInTime) {
  windows.http.respond({.connecting = 1'000ms, .answering = kNever});
  const HttpAnswer& answer = run(plan());
  EXPECT_EQ(answer.error, DWORD{ERROR_WINHTTP_TIMEOUT});
  EXPECT_TRUE(answer.connected);
  EXPECT_EQ(it.told.at, 16'000U);
}

TEST_F(HttpExchangeTest, EndsInTimeAlsoIfClosingWaitsForTheServer) {
  windows.http.closingWaits = true;
  windows.http.respond({.answering = 20'000ms});
  EXPECT_EQ(run(plan()).error, DWORD{ERROR_WINHTTP_TIMEOUT});
  EXPECT_EQ(it.told.at, 15'000U);
}

TEST(HttpExchangeCases, TellsNothingOnceItIsStopped) {
  for (const bool closingWaits : {false, true}) {
    OwnWindows own;
    own.http.closingWaits = closingWaits;
    own.http.respond({.answering = 2'000ms});
    Exchanging exchanging(own);
    exchanging.start(plan());
    exchanging.time.advance(1s);
    exchanging.stop();
    exchanging.stop();
    EXPECT_TRUE(own.requests().at(0).closed);
    exchanging.time.advance(60s);
    EXPECT_EQ(exchanging.told.connected, 1);
    EXPECT_EQ(exchanging.told.ends, 0);
  }
}

TEST_F(HttpExchangeTest, CanBeStoppedBeforeItHasSentAndByWhoeverHearsThatItConnected) {
  it.start(plan());
  it.stop();
  it.time.settle();
  EXPECT_EQ(windows.count("WinHttpSendRequest"), 0U);

  it.told.whenConnected = [&] { it.exchange->stop(); };
  it.start(plan());
  it.time.settle();
  EXPECT_EQ(it.told.connected, 1);
  EXPECT_EQ(it.told.ends, 0);
}

TEST(HttpExchangeCases, ToleratesCallbacksInsideItsCalls) {
  for (const Delivery delivery : {Delivery::Inside, Delivery::OtherThread, Delivery::OtherThreadEarly}) {
    OwnWindows own;
    own.http.delivery = delivery;
    Exchanging exchanging(own);
    exchanging.start(plan());
    exchanging.time.settle();
    EXPECT_EQ(exchanging.told.answer.status, 200U);
    EXPECT_EQ(exchanging.told.ends, 1);
  }
}

TEST_F(HttpExchangeTest, SendsCredentialsWithEachSendAndWipesThePassword) {
  HttpPlan through = throughProxy();
  through.cred = impl::Cred::create(L"user", L"secret word");
  through.credScheme = KIV_SCHEME_DIGEST;
  windows.http.resend(1).respond(200);
  {
    const ExpectSecretWiped wiped(L"secret word");
    EXPECT_EQ(run(through).status, 200U);
  }
  ASSERT_EQ(windows.credentials().size(), 2U);
  for (const Credentials& sent : windows.credentials()) {
    EXPECT_EQ(sent.target, DWORD{WINHTTP_AUTH_TARGET_PROXY});
    EXPECT_EQ(sent.scheme, DWORD{WINHTTP_AUTH_SCHEME_DIGEST});
    EXPECT_EQ(sent.user, L"user");
    EXPECT_EQ(sent.password, L"secret word");
  }
}

TEST_F(HttpExchangeTest, TellsWhatAProxyAsksFor) {
  windows.http.respond(
      {.status = 407,
       .schemes = AuthSchemes{0x1F, 0x1, 1},
       .fields = Fields{{L"Proxy-Authenticate", L"Basic realm=\"weak\""}, {L"Proxy-Authenticate", L"Negotiate"}}});
  const HttpAnswer& answer = run(throughProxy());
  EXPECT_EQ(answer.status, 407U);
  EXPECT_EQ(answer.schemes, 0x1BU);
  EXPECT_EQ(answer.realm, L"");
}

TEST_F(HttpExchangeTest, TellsTheRealmOfTheStrongestScheme) {
  windows.http.respond({.status = 407,
                        .schemes = AuthSchemes{0x9, 0x1, 1},
                        .fields = Fields{{L"Proxy-Authenticate", L"Basic realm=\"weak\""},
                                         {L"Proxy-Authenticate", L"Digest realm=\"strong\", nonce=\"x\""}}});
  EXPECT_EQ(run(throughProxy()).realm, L"strong");
}

TEST(HttpExchangeCases, SendsTheLoggedOnUsersCredentialsToWhomThePlanAllows) {
  constexpr AuthSchemes kNtlm{KIV_SCHEME_NTLM | KIV_SCHEME_BASIC, KIV_SCHEME_NTLM, 1};
  constexpr AuthSchemes kBasic{KIV_SCHEME_BASIC, KIV_SCHEME_BASIC, 1};
  struct Case {
    AutoLogon autoLogon;
    AuthSchemes offered;
    bool hasCred;
    std::vector<DWORD> policies;
    std::size_t sends;
  };
  const Case cases[] = {
      {AutoLogon::System, kNtlm, false, {}, 1},      {AutoLogon::Never, kNtlm, false, {2}, 1},
      {AutoLogon::Proxies, kNtlm, false, {2, 0}, 2}, {AutoLogon::Proxies, kBasic, false, {2}, 1},
      {AutoLogon::Proxies, kNtlm, true, {2}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.autoLogon));
    OwnWindows own;
    own.http.otherwise = {.status = 407, .schemes = c.offered};
    Exchanging exchanging(own);
    HttpPlan through = throughProxy();
    through.autoLogon = c.autoLogon;
    if (c.hasCred) through.cred = impl::Cred::create(L"user", L"word");
    exchanging.start(through);
    exchanging.time.settle();
    EXPECT_EQ(exchanging.told.answer.status, 407U);
    EXPECT_EQ(own.requests().at(0).sends, c.sends);
    std::vector<DWORD> policies;
    for (const Call& call : own.calls()) {
      if (call.name != "WinHttpSetOption" || call.arguments.find(L"option=77") == std::wstring::npos) continue;
      policies.push_back(static_cast<DWORD>(call.arguments.back() - L'0'));
    }
    EXPECT_EQ(policies, c.policies);
  }
}

TEST(HttpExchangeCases, NoticesRedirectsToAnotherHost) {
  struct Case {
    DWORD status;
    const wchar_t* location;
    bool elsewhere;
  };
  const Case cases[] = {
      {302, L"http://portal/login", true},
      {302, L"https://portal/", true},
      {302, L"//portal/x", true},
      {301, L"http://portal/", true},
      {303, L"http://portal/", true},
      {307, L"http://portal/", true},
      {308, L"http://portal/", true},
      {302, L"https://target/", false},
      {302, L"http://TARGET:8/", false},
      {302, L"/login", false},
      {302, L"", false},
      {300, L"http://portal/", false},
      {200, L"http://portal/", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.status) + " " + testing::PrintToString(std::wstring(c.location)));
    OwnWindows own;
    own.http.respond({.status = c.status, .fields = Fields{{L"Location", c.location}}});
    Exchanging exchanging(own);
    exchanging.start(throughProxy());
    exchanging.time.settle();
    EXPECT_EQ(exchanging.told.answer.status, c.status);
    EXPECT_EQ(exchanging.told.answer.redirectsElsewhere, c.elsewhere);
  }
}

TEST_F(HttpExchangeTest, ReadsNoHeaderThatIsTooLong) {
  windows.http.respond(
      {.status = 302, .fields = Fields{{L"Location", L"http://portal/" + std::wstring(65'536, L'x')}}});
  EXPECT_FALSE(run(throughProxy()).redirectsElsewhere);
}

TEST(HttpExchangeAsUser, WorksAsTheSessionsUserOrNotAtAll) {
  SimulatedWindows windows;
  windows.impersonate(L"anna");
  Exchanging own(windows);
  windows.impersonate(L"");
  struct Starter final : session::Task {
    explicit Starter(Exchanging& exchanging) : exchanging_(exchanging) {}
    void run() noexcept override {
      try {
        exchanging_.exchange = HttpExchange::start(*exchanging_.loop, plan(), exchanging_.told);
      } catch (const session::SystemError& failure) {
        error = failure.code;
      }
    }
    Exchanging& exchanging_;
    DWORD error = 0;
  };
  const auto first = session::makeRef<Starter>(own);
  own.loop->post(*first);
  own.time.settle();
  EXPECT_EQ(own.told.answer.status, 200U);
  for (const Call& call : windows.calls()) {
    const bool usesNetwork = call.name == "WinHttpOpen" || call.name == "WinHttpSendRequest";
    EXPECT_TRUE(!usesNetwork || call.user == L"anna");
  }

  windows.failAlways("SetThreadToken", ERROR_BAD_IMPERSONATION_LEVEL);
  const auto second = session::makeRef<Starter>(own);
  own.loop->post(*second);
  own.time.settle();
  EXPECT_EQ(second->error, DWORD{ERROR_BAD_IMPERSONATION_LEVEL});
  EXPECT_EQ(windows.requests().size(), 1U);
  {
    const LockGuard guard(own.loop->lock());
    own.exchange = {};
  }
}

// A start that fails tells by its exception, anything later by the answer; nothing is told twice, and nothing is left.
TEST(HttpExchangeSweep, TellsEachFailureOnce) {
  forEachFault([](SimulatedWindows& windows) {
    windows.http.respond({.status = 407,
                          .schemes = AuthSchemes{KIV_SCHEME_NTLM, KIV_SCHEME_NTLM, 1},
                          .fields = Fields{{L"Proxy-Authenticate", L"NTLM"}}});
    try {
      Exchanging exchanging(windows);
      HttpPlan through = throughProxy();
      through.autoLogon = AutoLogon::Proxies;
      bool started = false;
      try {
        exchanging.start(through);
        started = true;
      } catch (const session::SystemError& failure) {
        EXPECT_EQ(failure.code, DWORD{ERROR_GEN_FAILURE});
      }
      exchanging.time.advance(60s);
      EXPECT_EQ(exchanging.told.ends, started ? 1 : 0);
    } catch (const session::SystemError& failure) {
      EXPECT_EQ(failure.code, DWORD{ERROR_GEN_FAILURE});
    }
  });
}

}  // namespace
}  // namespace kiv::test
