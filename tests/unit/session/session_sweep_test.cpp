// Whole sessions in which something fails: every system call once, and every allocation.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "credentials/base64.h"
#include "unit/session/support/session_test.h"

namespace kiv::test {
namespace {

using namespace std::string_literals;

constexpr std::uint32_t kTimeOut = 30'000;
constexpr auto kSettingsKey = L"HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";

// One session at work.
struct Work {
  SimulatedWindows& windows;
  VirtualTime& time;
  const UniqueSession& session;
  std::wstring& decided;  // one route after the other
};

struct Scenario {
  const char* name;
  const wchar_t* decides;  // if nothing fails
  void (*arrange)(SimulatedWindows& windows);
  void (*act)(const Work& work);
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

bool isDocumented(KivStatus status) {
  constexpr KivStatus kEnds[] = {KIV_STATUS_OK, KIV_STATUS_TIMED_OUT, KIV_STATUS_OUT_OF_MEMORY, KIV_STATUS_CLOSED};
  return std::ranges::find(kEnds, status) != std::end(kEnds) ||
         (status > KIV_STATUS_SYSTEM && status != KIV_STATUS_TOO_MANY);
}

void expectEnd(const Result& result) {
  EXPECT_TRUE(isDocumented(result.status)) << "status " << result.status;
  EXPECT_EQ(result.decision != nullptr, result.status == KIV_STATUS_OK);
}

Result resolveInTime(const Work& work, const wchar_t* url) {
  const auto begun = work.time.now();
  Result result = resolve(work.session, url, kTimeOut);
  EXPECT_LE(work.time.now() - begun, std::chrono::milliseconds(kTimeOut));
  expectEnd(result);
  work.decided += result.route() + L" ";
  return result;
}

// Runs what calls the library, whose allocations may fail: the test's own never do.
template <class Body>
KivStatus call(Body&& body) {
  const MemoryWatch::Resume resume;
  return body();
}

void giveProxy(const Work& work, const wchar_t* proxy) {
  const KivStatus status =
      call([&] { return KivSession_SetProxy(work.session.get(), KIV_PROXY_PREFERRED, proxy, L"ann", L"right"); });
  EXPECT_TRUE(isDocumented(status)) << status;
}

void resolvesTwice(const Work& work) {
  resolveInTime(work, L"http://a.test/");
  resolveInTime(work, L"https://b.test/");
}

// The first is dead, the second refuses, the third works.
void arrangeRace(SimulatedWindows& windows) {
  windows.user.proxy = L"dead.test:8080;10.0.0.2:8080;live.test:8080";
  windows.network.names = {{L"dead.test", {.addresses = {"10.0.0.1"}}}, {L"live.test", {.addresses = {"10.0.0.3"}}}};
  windows.network.listeners[{"10.0.0.1", 8080}] = {.answer = Listener::Answer::Silent};
  windows.network.listeners[{"10.0.0.3", 8080}] = {.after = 20ms};
  windows.http.decide = [](const RequestRecord& request) {
    if (proxyOf(request) == L"dead.test:8080") return Exchange{.connecting = kNever};
    if (proxyOf(request) == L"10.0.0.2:8080") return Exchange{.sendError = ERROR_WINHTTP_CANNOT_CONNECT};
    return Exchange{.connecting = 10ms, .answering = 10ms};
  };
}

void arrangeScript(SimulatedWindows& windows) {
  windows.user.autoDetect = true;
  windows.user.autoConfigUrl = L"http://pac.test/proxy.pac";
  windows.autoConfig = {{.proxy = L"proxy:1;other:2", .takes = 50ms}};
}

void arrangeLocalScript(SimulatedWindows& windows) {
  windows.user.autoConfigUrl = L"file://C:/p.pac";
  windows.autoConfig = {{.error = ERROR_WINHTTP_UNRECOGNIZED_SCHEME}};
  windows.scriptEngine.answer = "PROXY a:1; DIRECT";
}

void arrangeSocks(SimulatedWindows& windows) {
  windows.network.names = {{L"socks.test", {.addresses = {"fd00::1", "10.0.0.1"}}}};
  windows.network.listeners[{"10.0.0.1", 1080}] = {.dialogue = says({{"\x05\x02\x00\x02"s, "\x05\x02"s},
                                                                     {"\x01\x03"
                                                                      "ann\x05right"s,
                                                                      "\x01\x00"s},
                                                                     {"\x05\x01\x00\x03\x06"
                                                                      "a.test\x00\x50"s,
                                                                      "\x05\x00\x00\x01\x0A\x00\x00\x01\x1F\x90"s}})};
}

void actThroughSocks(const Work& work) {
  giveProxy(work, L"socks5://socks.test:1080");
  resolvesTwice(work);
}

void arrangeLogin(SimulatedWindows& windows) {
  windows.user.proxy = L"proxy:1";
  windows.http.decide = [](const RequestRecord& request) { return wantsPassword(request, L"right"); };
}

// Answers what is asked: first wrongly, then rightly, until its own request has ended.
void actWithAnswers(const Work& work) {
  next(work.session);  // somebody listens
  const auto begun = work.time.now();
  const Started started = start(work.session, L"http://a.test/", kTimeOut, 7);
  EXPECT_TRUE(isDocumented(started.status)) << started.status;
  if (!started.request) return;
  for (bool ended = false; !ended;) {
    const Told told = next(work.session, 2 * kTimeOut);
    ASSERT_TRUE(told.status == KIV_STATUS_OK || told.status == KIV_STATUS_OUT_OF_MEMORY) << told.status;
    if (told.status != KIV_STATUS_OK) continue;
    ended = told.kind() == KIV_EVENT_COMPLETED;
    if (told.kind() != KIV_EVENT_CHALLENGE) continue;
    const UniqueChallenge challenge = told.challenge();
    const wchar_t* const password = KivChallenge_Attempt(challenge.get()) == 1 ? L"wrong" : L"right";
    EXPECT_TRUE(isDocumented(call([&] { return KivChallenge_Answer(challenge.get(), L"ann", password); })));
  }
  EXPECT_LE(work.time.now() - begun, std::chrono::milliseconds(kTimeOut));
  const Result result = started.wait(0);
  expectEnd(result);
  work.decided += result.route() + L" ";
}

void arrangeTrust(SimulatedWindows& windows) { windows.user.proxy = L"proxy:1"; }

// The application logs on to the proxy itself, with the session's help.
void actWithAuth(const Work& work) {
  KivSession_SetNumber(work.session.get(), KIV_OPTION_TEST, KIV_TEST_NONE);
  giveProxy(work, L"proxy:1");
  const Result result = resolveInTime(work, L"http://a.test/");
  if (!result.decision) return;
  KivAuth* created = nullptr;
  const KivStatus status = call([&] { return KivAuth_Create(work.session.get(), result.decision.get(), &created); });
  const UniqueAuth auth(created);
  EXPECT_EQ(auth != nullptr, status == KIV_STATUS_OK);
  if (!auth) return;
  const std::string challenge = ntlmChallenge("nonce-of");
  impl::SecureWideBuffer token;
  session::appendBase64({reinterpret_cast<const std::uint8_t*>(challenge.data()), challenge.size()}, token);
  const std::wstring second = L"NTLM " + std::wstring(token.begin(), token.end());
  for (const wchar_t* const answer : {L"NTLM", second.c_str()}) {
    const wchar_t* header = nullptr;
    const KivStatus next = call([&] { return KivAuth_Next(auth.get(), answer, &header); });
    EXPECT_EQ(header != nullptr, next == KIV_STATUS_AGAIN || next == KIV_STATUS_DONE);
    if (next != KIV_STATUS_AGAIN) break;
  }
}

void actThroughChanges(const Work& work) {
  resolveInTime(work, L"http://a.test/");
  work.time.settle();
  work.windows.change([&] { work.windows.user.proxy = L"new:2"; });
  work.windows.changeRegistry(kSettingsKey);
  work.time.advance(100ms);
  resolveInTime(work, L"http://a.test/");
  work.windows.changeAddresses({{.address = "10.9.9.9"}});
  work.windows.changeWinHttpProxy();
  const Started started = start(work.session, L"http://c.test/", kTimeOut);
  work.windows.resumeFromSleep();
  work.time.advance(6s);
  if (started.request) expectEnd(started.wait());
  resolveInTime(work, L"http://a.test/");
}

void arrangeTurmoil(SimulatedWindows& windows) {
  arrangeRace(windows);
  windows.user.autoConfigUrl = L"http://pac.test/proxy.pac";
  windows.decideConfig = [](const std::wstring& url) {
    return AutoProxyAnswer{.proxy = L"dead.test:8080;live.test:8080;login:1",
                           .takes = url.find(L"slow") == std::wstring::npos ? 10ms : kNever};
  };
  windows.http.decide = [](const RequestRecord& request) {
    if (request.host == L"login.test") return wantsPassword(request, L"right");
    return Exchange{.connecting = kNever};
  };
}

// Closes while discoveries hang, connections are being made, a question is open and a change is being looked at.
void actUntilClosed(const Work& work) {
  next(work.session);
  const wchar_t* const urls[] = {L"http://a.test/", L"http://login.test/", L"http://slow.test/", L"http://slow2.test/"};
  std::vector<Started> all;
  for (const wchar_t* url : urls) all.push_back(start(work.session, url, kTimeOut, 1));
  lookup(work.session, L"http://looked-up.test/");
  work.time.advance(400ms);
  work.windows.changeAddresses({{.address = "10.9.9.9"}});
  work.windows.changeRegistry(kSettingsKey);
  work.time.advance(5ms);
  const auto begun = work.time.now();
  KivSession_Close(work.session.get());
  for (const Started& one : all) {
    if (one.request) expectEnd(one.wait());
  }
  EXPECT_EQ(work.time.now() - begun, 0ms);
  while (next(work.session, KIV_NO_TIME_OUT).status == KIV_STATUS_OK) continue;
  EXPECT_EQ(resolve(work.session, L"http://b.test/").status, KIV_STATUS_CLOSED);
}

// One call fails; so of two origins one at least finds its way, now that nothing is in it.
void expectItStillWorks(const Work& work) {
  work.windows.change([&] {
    work.windows.user = {.proxy = std::nullopt};
    work.windows.http.decide = {};
  });
  const Result first = resolveInTime(work, L"http://afterwards.test/");
  const Result second = resolveInTime(work, L"http://in.the.end.test/");
  const auto found = [](const Result& result) { return result.decision && result.route() != L"none"; };
  EXPECT_TRUE(found(first) || found(second)) << first.status << ", " << second.status;
}

const Scenario kScenarios[] = {
    {"Direct", L"direct direct ", [](SimulatedWindows&) {}, resolvesTwice},
    {"Race", L"http://live.test:8080 http://live.test:8080 ", arrangeRace, resolvesTwice},
    {"Script", L"http://proxy:1 http://proxy:1 ", arrangeScript, resolvesTwice},
    {"LocalScript", L"http://a:1 http://a:1 ", arrangeLocalScript, resolvesTwice},
    {"Socks", L"socks5://socks.test:1080 direct ", arrangeSocks, actThroughSocks},
    {"Login", L"http://proxy:1 ", arrangeLogin, actWithAnswers},
    {"Auth", L"http://proxy:1 ", arrangeTrust, actWithAuth},
    {"Changes", L"http://proxy:1 http://new:2 http://new:2 ", arrangeTrust, actThroughChanges},
    {"Closing", L"", arrangeTurmoil, actUntilClosed},
};

class SessionSweep : public ::testing::TestWithParam<Scenario> {
 protected:
  // Gives what was decided.
  static std::wstring run(SimulatedWindows& windows) {
    KivSession* living = nullptr;
    return runShowing(living, windows);
  }
  // `living` is the session as long as it is not destructed.
  static std::wstring runShowing(KivSession*& living, SimulatedWindows& windows) {
    std::wstring decided;
    windows.user.proxy = std::nullopt;
    windows.http.closingWaits = true;  // the harder way: a request that is closed says so late
    GetParam().arrange(windows);
    VirtualTime time(windows);
    KivSession* created = nullptr;
    const KivStatus status = call([&] { return KivSession_Create(L"test/1", &created); });
    UniqueSession session(created);
    EXPECT_EQ(session != nullptr, status == KIV_STATUS_OK);
    EXPECT_TRUE(isDocumented(status)) << status;
    if (!session) return decided;
    living = session.get();
    const Work work{windows, time, session, decided};
    GetParam().act(work);
    const std::wstring result = decided;
    if (lookup(session, L"http://a.test/").status != KIV_STATUS_CLOSED) expectItStillWorks(work);
    living = nullptr;
    session.reset();
    time.settle();
    return result;
  }
};

TEST_P(SessionSweep, ComesToItsEndIfNothingFails) {
  SimulatedWindows windows;
  EXPECT_EQ(run(windows), GetParam().decides);
  expectNoComplaints(windows);
}

TEST_P(SessionSweep, EndsEveryCallInTimeWhicheverSystemCallFails) { forEachFault(run); }

TEST_P(SessionSweep, EndsEveryCallInTimeWhicheverAllocationFails) {
  forEachAllocation(
      [](SimulatedWindows& windows, const auto& armed) {
        const MemoryWatch::Pause pause;
        armed([&] { run(windows); });
      },
      MemoryWatch::Threads::All);
}

// Wherever the other threads were when they were ended, and whatever locks they had: a library that gives the session
// up while the process ends neither waits nor changes anything.
TEST_P(SessionSweep, IsGivenUpAtOnceWhicheverSystemCallTheProcessEndsIn) {
  SimulatedWindows windows;
  KivSession* living = nullptr;
  std::size_t ends = 0;
  std::set<std::string> called;
  windows.beforeCall = [&](const std::string& name) {
    if (windows.processEnds) called.insert(name);
    if (windows.processEnds || !living) return;
    windows.processEnds = true;
    KivSession_Close(living);
    KivSession_Destruct(living);
    windows.processEnds = false;
    ++ends;
  };
  EXPECT_EQ(runShowing(living, windows), GetParam().decides);
  EXPECT_GT(ends, 100U);
  EXPECT_THAT(called, testing::UnorderedElementsAre("GetModuleHandleW", "GetProcAddress", "RtlDllShutdownInProgress"));
  expectNoComplaints(windows);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, SessionSweep, ::testing::ValuesIn(kScenarios),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace kiv::test
