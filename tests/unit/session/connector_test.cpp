// Tests of the session's own connections: names, addresses one after the other, time-outs, and SOCKS proxies.
#include "network/connector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "loop/system_error.h"
#include "network/sockets.h"
#include "platform/platform_test.h"
#include "platform/virtual_time.h"

namespace kiv::test {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using session::Connector;
using session::ConnectorPlan;
using session::EventLoop;
using session::LockGuard;
using session::Origin;
using session::Ref;
using session::RouteKind;

ConnectorPlan plan(std::wstring host) {
  return {.host = std::move(host),
          .port = 1080,
          .connectTimeOut = 5'000,
          .answerTimeOut = 15'000,
          .socks = RouteKind::Direct,
          .target = std::nullopt,
          .cred = std::nullopt};
}

ConnectorPlan throughSocks(RouteKind kind, std::optional<impl::Cred> cred = std::nullopt) {
  ConnectorPlan result = plan(L"10.0.0.1");
  result.socks = kind;
  result.target = Origin::parse(L"https://example.org/");
  result.cred = std::move(cred);
  return result;
}

struct Told final : session::ConnectorListener {
  void portAnswered(Connector& /*connector*/) noexcept override {
    ++answers;
    if (whenAnswered) whenAnswered();
  }
  void connectorEnded(Connector& /*connector*/, DWORD ended) noexcept override {
    ++ends;
    error = ended;
    at = EventLoop::now() - session::Time{3'600'000};
  }

  int answers = 0;
  int ends = 0;
  DWORD error = 0xDEAD;
  session::Time at = 0;
  std::function<void()> whenAnswered;
};

class Connecting {
 public:
  explicit Connecting(SimulatedWindows& windows) : time(windows) {}
  ~Connecting() {
    stop();
    {
      const LockGuard guard(loop->lock());
      connector = {};
      loop->stop();
    }
    time.settle();
  }
  Connecting(const Connecting&) = delete;
  Connecting& operator=(const Connecting&) = delete;

  void start(ConnectorPlan plan) {
    const LockGuard guard(loop->lock());
    connector = Connector::start(*loop, std::move(plan), told);
  }
  void stop() {
    const LockGuard guard(loop->lock());
    if (connector) connector->stop();
  }

  VirtualTime time;
  Ref<EventLoop> loop = EventLoop::create();
  Told told;
  Ref<Connector> connector;
};

// For the tests that run several cases, each in a system of its own.
struct OwnWindows final : SimulatedWindows {
  ~OwnWindows() { expectNoComplaints(*this); }
};

class ConnectorTest : public PlatformTest {
 protected:
  // Whether the port answered, and how it ended.
  DWORD run(ConnectorPlan plan) {
    it.start(std::move(plan));
    it.time.advance(60s);
    EXPECT_EQ(it.told.ends, 1);
    EXPECT_EQ(windows.openConnections(), 0U);
    return it.told.error;
  }
  void listen(const char* address, Listener listener) { windows.network.listeners[{address, 1080}] = listener; }
  std::vector<std::pair<std::string, session::Time>> attempts() const {
    std::vector<std::pair<std::string, session::Time>> result;
    for (const ConnectionRecord& each : windows.connections()) {
      result.emplace_back(each.address, static_cast<session::Time>(each.when.count()) % 3'600'000);
    }
    return result;
  }
  using Attempts = std::vector<std::pair<std::string, session::Time>>;

  Connecting it{windows};
};

TEST(ConnectorCases, ConnectsToAnAddressWithoutLookingItUp) {
  for (const auto& [host, address] : {std::pair{L"10.0.0.1", "10.0.0.1"}, std::pair{L"fd00::1", "fd00::1"}}) {
    OwnWindows own;
    own.network.listeners[{address, 1080}] = {};
    Connecting connecting(own);
    connecting.start(plan(host));
    connecting.time.settle();
    EXPECT_EQ(connecting.told.answers, 1);
    EXPECT_EQ(connecting.told.ends, 1);
    EXPECT_EQ(connecting.told.error, 0U);
    EXPECT_EQ(own.count("TrySubmitThreadpoolCallback"), 0U);
    ASSERT_EQ(own.connections().size(), 1U);
    EXPECT_TRUE(own.connections()[0].closed);
  }
}

TEST_F(ConnectorTest, TellsNothingBeforeStartHasReturned) {
  listen("10.0.0.1", {});
  {
    const LockGuard guard(it.loop->lock());
    it.connector = Connector::start(*it.loop, plan(L"10.0.0.1"), it.told);
    EXPECT_EQ(it.told.answers + it.told.ends, 0);
  }
  it.time.settle();
  EXPECT_EQ(it.told.ends, 1);
}

TEST_F(ConnectorTest, LooksNamesUp) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1"}, .after = 700ms};
  listen("10.0.0.1", {.after = 50ms});
  EXPECT_EQ(run(plan(L"proxy")), 0U);
  EXPECT_EQ(it.told.at, 750U);
}

TEST_F(ConnectorTest, EndsWithTheErrorOfTheLookup) {
  EXPECT_EQ(run(plan(L"nowhere")), DWORD{WSAHOST_NOT_FOUND});
  EXPECT_EQ(it.told.answers, 0);
}

TEST_F(ConnectorTest, WaitsForNoLookupThatTakesTooLong) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1"}, .after = 20s};
  EXPECT_EQ(run(plan(L"proxy")), DWORD{WSAETIMEDOUT});
  EXPECT_EQ(it.told.at, 5'000U);
  EXPECT_EQ(attempts(), Attempts());
}

TEST_F(ConnectorTest, BeginsTheNextAddressAfterAWhileAndTakesTheFirstThatConnects) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1", "10.0.0.2", "10.0.0.3"}};
  listen("10.0.0.1", {.answer = Listener::Answer::Silent});
  listen("10.0.0.2", {.after = 100ms});
  EXPECT_EQ(run(plan(L"proxy")), 0U);
  EXPECT_EQ(attempts(), (Attempts{{"10.0.0.1", 0}, {"10.0.0.2", 250}}));
  EXPECT_EQ(it.told.at, 350U);
  for (const ConnectionRecord& each : windows.connections()) EXPECT_TRUE(each.closed);
}

TEST_F(ConnectorTest, BeginsTheNextAddressAtOnceWhenOneFails) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1", "10.0.0.2"}};
  listen("10.0.0.1", {.answer = Listener::Answer::Refuses, .after = 30ms});
  listen("10.0.0.2", {});
  EXPECT_EQ(run(plan(L"proxy")), 0U);
  EXPECT_EQ(attempts(), (Attempts{{"10.0.0.1", 0}, {"10.0.0.2", 30}}));
}

TEST_F(ConnectorTest, EndsWithTheLastErrorWhenAllFail) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1", "10.0.0.2"}};
  listen("10.0.0.1", {.answer = Listener::Answer::Refuses, .error = WSAENETUNREACH});
  listen("10.0.0.2", {.answer = Listener::Answer::Refuses});
  EXPECT_EQ(run(plan(L"proxy")), DWORD{WSAECONNREFUSED});
  EXPECT_EQ(it.told.answers, 0);
}

TEST_F(ConnectorTest, AlternatesTheFamiliesAndTakesFourAddressesAtMost) {
  windows.network.names[L"proxy"] = {.addresses = {"fd00::1", "fd00::2", "fd00::3", "10.0.0.1", "10.0.0.2"}};
  windows.network.otherwise = {.answer = Listener::Answer::Silent};
  EXPECT_EQ(run(plan(L"proxy")), DWORD{WSAETIMEDOUT});
  EXPECT_EQ(attempts(), (Attempts{{"fd00::1", 0}, {"10.0.0.1", 250}, {"fd00::2", 500}, {"10.0.0.2", 750}}));
  EXPECT_EQ(it.told.at, 5'000U);
}

TEST_F(ConnectorTest, TellsNothingOnceItIsStopped) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1"}, .after = 100ms};
  listen("10.0.0.1", {.after = 100ms});
  for (const auto delay : {0ms, 50ms, 150ms}) {
    it.start(plan(L"proxy"));
    it.time.advance(delay);
    it.stop();
    it.stop();
    EXPECT_EQ(windows.openConnections(), 0U);
    it.time.advance(60s);
    EXPECT_EQ(it.told.answers + it.told.ends, 0);
  }
}

TEST_F(ConnectorTest, CanBeStoppedByWhoeverHearsThatThePortAnswered) {
  listen("10.0.0.1", {});
  it.told.whenAnswered = [&] { it.connector->stop(); };
  it.start(plan(L"10.0.0.1"));
  it.time.settle();
  EXPECT_EQ(it.told.answers, 1);
  EXPECT_EQ(it.told.ends, 0);
}

TEST(ConnectorCases, ReachesTheTargetThroughSocksProxies) {
  const std::string granted5 = "\x05\x00\x00\x01\x0A\x00\x00\x01\x1F\x90"s;
  const std::string connect5 = "\x05\x01\x00\x03\x0B"s + "example.org\x01\xBB";
  struct Case {
    RouteKind kind;
    bool hasCred;
    std::vector<std::pair<std::string, std::string>> exchanges;
  };
  const Case cases[] = {
      {RouteKind::Socks4,
       false,
       {{"\x04\x01\x01\xBB\x00\x00\x00\x01\x00"s + "example.org\0"s, "\x00\x5A\x00\x00\x00\x00\x00\x00"s}}},
      {RouteKind::Socks5, false, {{"\x05\x01\x00"s, "\x05\x00"s}, {connect5, granted5}}},
      {RouteKind::Socks5,
       true,
       {{"\x05\x02\x00\x02"s, "\x05\x02"s}, {"\x01\x04user\x04word", "\x01\x00"s}, {connect5, granted5}}},
  };
  for (const Case& c : cases) {
    for (const std::optional<std::size_t> size : {std::optional<std::size_t>(), std::optional<std::size_t>(1)}) {
      OwnWindows own;
      own.network.listeners[{"10.0.0.1", 1080}] = {.dialogue = says(c.exchanges), .pieces = size, .room = size};
      Connecting connecting(own);
      connecting.start(throughSocks(c.kind, c.hasCred ? impl::Cred::create(L"user", L"word") : std::nullopt));
      connecting.time.advance(1s);
      EXPECT_EQ(connecting.told.answers, 1);
      EXPECT_EQ(connecting.told.ends, 1);
      EXPECT_EQ(connecting.told.error, 0U);
    }
  }
}

TEST_F(ConnectorTest, NamesAnAddressOfTheTargetAsAnAddress) {
  listen("10.0.0.1", {.dialogue = says({{"\x05\x01\x00"s, "\x05\x00"s},
                                        {"\x05\x01\x00\x04\xFD\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                                         "\x02\x01\xBB"s,
                                         "\x05\x00\x00\x01\x0A\x00\x00\x01\x1F\x90"s}})});
  ConnectorPlan through = throughSocks(RouteKind::Socks5);
  through.target = Origin::parse(L"https://[fd00::2]/");
  EXPECT_EQ(run(through), 0U);
}

TEST(ConnectorCases, TellsHowASocksProxyRefuses) {
  struct Case {
    std::vector<std::pair<std::string, std::string>> exchanges;
    DWORD error;
  };
  const Case cases[] = {
      {{{"\x05\x01\x00"s, "\x05\xFF"s}}, ERROR_LOGON_FAILURE},
      {{{"\x05\x01\x00"s, "HTTP/1.1 400 Bad Request"s}}, ERROR_INVALID_DATA},
      {{{"\x05\x01\x00"s, "\x05\x00"s}, {"\x05\x01\x00\x03\x0B"s + "example.org\x01\xBB", "\x05\x05"s}},
       WSAECONNREFUSED},
      {{{"something else", ""}}, WSAECONNRESET},
  };
  for (const Case& c : cases) {
    OwnWindows own;
    own.network.listeners[{"10.0.0.1", 1080}] = {.dialogue = says(c.exchanges)};
    Connecting connecting(own);
    connecting.start(throughSocks(RouteKind::Socks5));
    connecting.time.advance(1s);
    EXPECT_EQ(connecting.told.answers, 1);
    EXPECT_EQ(connecting.told.error, c.error);
  }
}

TEST_F(ConnectorTest, EndsWhenTheProxyClosesTheConnectionOrSaysNothing) {
  listen("10.0.0.1", {.dialogue = [](std::string_view) { return Reply{.after = 10ms, .closes = true}; }});
  EXPECT_EQ(run(throughSocks(RouteKind::Socks5)), DWORD{WSAECONNRESET});
}

TEST_F(ConnectorTest, EndsWhenTheProxyTakesTooLong) {
  listen("10.0.0.1", {.after = 1s});
  EXPECT_EQ(run(throughSocks(RouteKind::Socks5)), DWORD{WSAETIMEDOUT});
  EXPECT_EQ(it.told.answers, 1);
  EXPECT_EQ(it.told.at, 16'000U);
}

TEST_F(ConnectorTest, SaysNoPasswordThatCannotBeDecrypted) {
  listen("10.0.0.1", {.dialogue = says({{"\x05\x02\x00\x02"s, "\x05\x02"s}})});
  windows.failAlways("CryptUnprotectMemory", ERROR_GEN_FAILURE);
  EXPECT_EQ(run(throughSocks(RouteKind::Socks5, impl::Cred::create(L"user", L"secret word"))),
            DWORD{ERROR_GEN_FAILURE});
  EXPECT_EQ(windows.connections().front().received, "\x05\x02\x00\x02"s);
}

TEST_F(ConnectorTest, WipesThePassword) {
  listen("10.0.0.1",
         {.dialogue = says({{"\x05\x02\x00\x02"s, "\x05\x02"s}, {"\x01\x04user\x0Bsecret word", "\x01\x01"s}})});
  ConnectorPlan through = throughSocks(RouteKind::Socks5, impl::Cred::create(L"user", L"secret word"));
  const ExpectSecretWiped wiped(L"secret word");
  EXPECT_EQ(run(std::move(through)), DWORD{ERROR_LOGON_FAILURE});
}

TEST(ConnectorSweep, TellsEachFailureOnce) {
  forEachFault([](SimulatedWindows& windows) {
    windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1"}};
    windows.network.listeners[{"10.0.0.1", 1080}] = {.dialogue = says({{"\x05\x01\x00"s, "\x05\xFF"s}})};
    bool started = false;
    try {
      Connecting connecting(windows);
      ConnectorPlan through = throughSocks(RouteKind::Socks5);
      through.host = L"proxy";
      try {
        connecting.start(through);
        started = true;
      } catch (const session::SystemError& failure) {
        EXPECT_NE(failure.code, 0U);
      }
      connecting.time.advance(60s);
      EXPECT_EQ(connecting.told.ends, started ? 1 : 0);
      EXPECT_NE(connecting.told.error, 0U);
    } catch (const session::SystemError& failure) {
      EXPECT_EQ(failure.code, DWORD{ERROR_GEN_FAILURE});
    }
  });
}

}  // namespace
}  // namespace kiv::test
