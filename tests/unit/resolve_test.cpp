// The procedure of a resolution, told by its whole transcript: every log line and every call of the application, in
// order.
#include "resolver/resolve.h"

#include <gmock/gmock.h>

#include "platform/platform_test.h"
#include "unit/support/odd_ports.h"
#include "unit/support/scripted_application.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Lines = std::vector<std::wstring>;

const wchar_t* const kBegin = L"I: BEGIN: ProxyResolver";
const wchar_t* const kEnd = L"I: END: ProxyResolver";
const wchar_t* const kUnreadable = L"W: lorvResolveProxy() returned error status.";
const wchar_t* const kNoneAvailable = L"W: No available proxy found.";
constexpr ScriptedApplication::Login kProxyLogin = {L"pam", L"proxy-secret"};
constexpr ScriptedApplication::Login kServerLogin = {L"sam", L"server-secret"};

// The transcript of an attempt, for the cases in which only the end of it matters.
Lines attempt(int number, const std::wstring& candidate, int status) {
  const std::wstring no = L"No. " + std::to_wstring(number) + L": ";
  return {L"I: " + no + L"Proxy " + candidate,
          L"setServerCred none",
          L"setProxy " + candidate,
          L"I: " + no + L"Test connection to http://target/.",
          L"test " + std::to_wstring(status),
          status >= 200 && status <= 299 ? L"D: " + no + L"Test connection succeeded."
                                         : L"D: " + no + L"Test connection failed."};
}

Lines joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class ResolveTest : public PlatformTest {
 protected:
  ResolveTest() {
    application.forbid(kProxyLogin.password);
    application.forbid(kServerLogin.password);
  }

  ScriptedApplication application;
};

TEST_F(ResolveTest, TakesTheFirstCandidateThatWorks) {
  windows.user.proxy = L"a:1;b:2;c:3";
  application.statuses = {502, 200};
  EXPECT_EQ(textOf(application.resolve()), L"http://b:2");
  EXPECT_THAT(
      application.transcript(),
      ElementsAre(kBegin, L"filter http://a:1", L"filter http://b:2", L"filter http://c:3", L"I: 3 candidates found.",
                  L"D: Candidates: http://a:1, http://b:2, http://c:3", L"I: No. 0: Proxy http://a:1",
                  L"setServerCred none", L"setProxy http://a:1", L"I: No. 0: Test connection to http://target/.",
                  L"test 502", L"D: No. 0: Test connection failed.", L"I: No. 1: Proxy http://b:2",
                  L"setServerCred none", L"setProxy http://b:2", L"I: No. 1: Test connection to http://target/.",
                  L"test 200", L"D: No. 1: Test connection succeeded.", L"I: Proxy http://b:2 found.", kEnd));
}

TEST_F(ResolveTest, ReadsTheSystemSettingsOnceAndClosesTheSessionBeforeItCallsTheApplication) {
  windows.user.proxy = L"a:1";
  std::size_t callsSeen = 0;
  application.onEntry = [&](const std::wstring& entry) {
    if (entry == L"filter http://a:1") callsSeen = windows.calls().size();
  };
  EXPECT_EQ(textOf(application.resolve()), L"http://a:1");
  EXPECT_THAT(windows.callNames(),
              ElementsAre("WinHttpOpen", "WinHttpCrackUrl", "WinHttpGetIEProxyConfigForCurrentUser", "GlobalFree",
                          "WinHttpCloseHandle"));
  EXPECT_EQ(callsSeen, 5U);
  EXPECT_EQ(windows.arguments("WinHttpOpen"), L"agent=agent, access=0, proxy=null, bypass=null, flags=0x0");
}

TEST_F(ResolveTest, TriesThePreferredFirstAndTheFallbackLast) {
  windows.user.proxy = L"a:1;b:2";
  application.otherwise = -1;
  const UniqueProxyConfig preferred = parsed(L"socks4://first:1");
  const UniqueProxyConfig fallback = parsed(L"https://last:2");
  EXPECT_EQ(textOf(application.resolve(preferred, fallback)), L"none");
  EXPECT_THAT(application.transcript(),
              ElementsAreArray(joined({{kBegin, L"filter socks4://first:1", L"filter http://a:1", L"filter http://b:2",
                                        L"filter https://last:2", L"I: 4 candidates found.",
                                        L"D: Candidates: socks4://first:1, http://a:1, http://b:2, https://last:2"},
                                       attempt(0, L"socks4://first:1", -1),
                                       attempt(1, L"http://a:1", -1),
                                       attempt(2, L"http://b:2", -1),
                                       attempt(3, L"https://last:2", -1),
                                       {kNoneAvailable, kEnd}})));
}

TEST_F(ResolveTest, TestsAPreferredDirectConnectionLikeAnyOther) {
  windows.user.proxy = L"a:1";
  application.statuses = {500, 200};
  const UniqueProxyConfig preferred(KivProxyConfig_Direct());
  EXPECT_EQ(textOf(application.resolve(preferred)), L"http://a:1");
  EXPECT_THAT(
      application.transcript(),
      ElementsAreArray(joined(
          {{kBegin, L"filter direct", L"filter http://a:1", L"I: 2 candidates found.", L"D: Candidates: , http://a:1",
            L"I: No. 0: Direct connection", L"setServerCred none", L"setProxy direct",
            L"I: No. 0: Test connection to http://target/.", L"test 500", L"D: No. 0: Test connection failed."},
           attempt(1, L"http://a:1", 200),
           {L"I: Proxy http://a:1 found.", kEnd}})));
}

TEST_F(ResolveTest, NamesNoProxyWhenTheDirectConnectionWins) {
  const UniqueProxyConfig fallback(KivProxyConfig_Direct());
  EXPECT_EQ(textOf(application.resolve(UniqueProxyConfig(), fallback)), L"direct");
  EXPECT_THAT(application.transcript(),
              ElementsAre(kBegin, L"filter direct", L"I: 1 candidates found.", L"D: Candidates: ",
                          L"I: No. 0: Direct connection", L"setServerCred none", L"setProxy direct",
                          L"I: No. 0: Test connection to http://target/.", L"test 200",
                          L"D: No. 0: Test connection succeeded.", L"I: Proxy  found.", kEnd));
}

TEST_F(ResolveTest, GoesDirectWithoutACallOfTheApplicationIfThereIsNoCandidate) {
  EXPECT_EQ(textOf(application.resolve()), L"direct");
  EXPECT_THAT(application.transcript(), ElementsAre(kBegin, L"I: No candidates found. Use direct connection.", kEnd));
}

TEST_F(ResolveTest, TreatsNoneFromTheCallerAsNoCandidate) {
  const UniqueProxyConfig none(KivProxyConfig_None());
  EXPECT_EQ(textOf(application.resolve(none.get(), none.get())), L"direct");
  EXPECT_THAT(application.transcript(), ElementsAre(kBegin, L"I: No candidates found. Use direct connection.", kEnd));
}

TEST_F(ResolveTest, FindsNoneIfTheFilterKeepsNone) {
  windows.user.proxy = L"a:1;b:2";
  application.keep = [](const std::wstring&) { return false; };
  EXPECT_EQ(textOf(application.resolve()), L"none");
  EXPECT_THAT(application.transcript(), ElementsAre(kBegin, L"filter http://a:1", L"filter http://b:2",
                                                    L"I: 0 candidates found.", kNoneAvailable, kEnd));
}

TEST_F(ResolveTest, NumbersTheCandidatesThatTheFilterKept) {
  windows.user.proxy = L"a:1;b:2;c:3;d:4";
  application.keep = [](const std::wstring& text) { return text == L"http://b:2" || text == L"http://d:4"; };
  application.statuses = {404};
  EXPECT_EQ(textOf(application.resolve()), L"http://d:4");
  EXPECT_THAT(application.transcript(),
              ElementsAreArray(
                  joined({{kBegin, L"filter http://a:1", L"filter http://b:2", L"filter http://c:3",
                           L"filter http://d:4", L"I: 2 candidates found.", L"D: Candidates: http://b:2, http://d:4"},
                          attempt(0, L"http://b:2", 404),
                          attempt(1, L"http://d:4", 200),
                          {L"I: Proxy http://d:4 found.", kEnd}})));
}

TEST_F(ResolveTest, SkipsACandidateOfUnknownKindWhichKeepsItsNumber) {
  windows.user.proxy = L"gopher=g:70;b:2;ftp=f:21";
  application.otherwise = 500;
  EXPECT_EQ(textOf(application.resolve()), L"none");
  EXPECT_THAT(
      application.transcript(),
      ElementsAreArray(joined({{kBegin, L"filter none", L"filter http://b:2", L"filter none", L"I: 3 candidates found.",
                                L"D: Candidates: , http://b:2, ", L"D: No. 0: Invalid proxy"},
                               attempt(1, L"http://b:2", 500),
                               {L"D: No. 2: Invalid proxy", kNoneAvailable, kEnd}})));
}

TEST_F(ResolveTest, TestsTheSameProxyTwiceIfCallerAndSystemNameIt) {
  windows.user.proxy = L"a:1";
  application.statuses = {500, 500, 500};
  const UniqueProxyConfig same = parsed(L"a:1");
  EXPECT_EQ(textOf(application.resolve(same.get(), same.get())), L"none");
  EXPECT_THAT(
      application.transcript(),
      ElementsAreArray(joined({{kBegin, L"filter http://a:1", L"filter http://a:1", L"filter http://a:1",
                                L"I: 3 candidates found.", L"D: Candidates: http://a:1, http://a:1, http://a:1"},
                               attempt(0, L"http://a:1", 500),
                               attempt(1, L"http://a:1", 500),
                               attempt(2, L"http://a:1", 500),
                               {kNoneAvailable, kEnd}})));
}

TEST_F(ResolveTest, TestsDirectFromAScriptAsAProxyWithoutAHost) {
  windows.user.autoConfigUrl = L"file://C:/p.pac";
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.answer = "DIRECT";
  EXPECT_EQ(textOf(application.resolve()), L"http://:0");
  EXPECT_THAT(
      application.transcript(),
      ElementsAreArray(joined({{kBegin, L"filter http://:0", L"I: 1 candidates found.", L"D: Candidates: http://:0"},
                               attempt(0, L"http://:0", 200),
                               {L"I: Proxy http://:0 found.", kEnd}})));
}

TEST_F(ResolveTest, CountsEveryStatusFrom200To299AsSuccess) {
  for (const int status : {200, 201, 204, 250, 299}) {
    application.statuses = {status};
    EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"))), L"http://a:1") << status;
  }
  for (const int status : {-1, -200, 0, 1, 100, 199, 300, 301, 400, 402, 403, 405, 406, 408, 500, 2000, 65736}) {
    application.forget();
    application.statuses = {status};
    EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"))), L"none") << status;
    EXPECT_THAT(application.transcript(),
                ElementsAreArray(
                    joined({{kBegin, L"filter http://a:1", L"I: 1 candidates found.", L"D: Candidates: http://a:1"},
                            attempt(0, L"http://a:1", status),
                            {kNoneAvailable, kEnd}})));
  }
}

TEST_F(ResolveTest, AnswersAProxyDemandAndThenAServerDemand) {
  application.statuses = {407, 401, 200};
  application.proxyLogin = kProxyLogin;
  application.serverLogin = kServerLogin;
  EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"))), L"http://pam:proxy-secret@a:1");
  EXPECT_THAT(
      application.transcript(),
      ElementsAre(kBegin, L"filter http://a:1", L"I: 1 candidates found.", L"D: Candidates: http://a:1",
                  L"I: No. 0: Proxy http://a:1", L"setServerCred none", L"setProxy http://a:1",
                  L"I: No. 0: Test connection to http://target/.", L"test 407",
                  L"D: No. 0: Proxy authentication required.", L"proxyCred http://a:1",
                  L"setProxy http://pam:proxy-secret@a:1", L"I: No. 0: Retry test connection to http://target/.",
                  L"test 401", L"D: No. 0: Server authentication required.", L"serverCred http://target/",
                  L"setServerCred sam:server-secret", L"I: No. 0: Retry test connection to http://target/.",
                  L"test 200", L"D: No. 0: Test connection succeeded.", L"I: Proxy http://a:1 found.", kEnd));
}

// What a candidate's requests are answered, and how its attempt continues behind the first answer.
TEST_F(ResolveTest, AnswersEachDemandOnceAtMost) {
  const Lines proxyDemand = {L"D: No. 0: Proxy authentication required.", L"proxyCred http://a:1",
                             L"setProxy http://pam:proxy-secret@a:1",
                             L"I: No. 0: Retry test connection to http://target/."};
  const Lines serverDemand = {L"D: No. 0: Server authentication required.", L"serverCred http://target/",
                              L"setServerCred sam:server-secret",
                              L"I: No. 0: Retry test connection to http://target/."};
  const Lines failed = {L"D: No. 0: Test connection failed.", kNoneAvailable, kEnd};
  const Lines succeeded = {L"D: No. 0: Test connection succeeded.", L"I: Proxy http://a:1 found.", kEnd};
  struct Case {
    std::deque<int> statuses;
    Lines expected;
    const wchar_t* result;
  };
  const Case cases[] = {
      {{407, 200}, joined({{L"test 407"}, proxyDemand, {L"test 200"}, succeeded}), L"http://pam:proxy-secret@a:1"},
      {{407, 407}, joined({{L"test 407"}, proxyDemand, {L"test 407"}, failed}), L"none"},
      {{407, 500}, joined({{L"test 407"}, proxyDemand, {L"test 500"}, failed}), L"none"},
      {{401, 200}, joined({{L"test 401"}, serverDemand, {L"test 200"}, succeeded}), L"http://a:1"},
      {{401, 401}, joined({{L"test 401"}, serverDemand, {L"test 401"}, failed}), L"none"},
      // The order of the demands is fixed: a proxy that asks after the server did is not answered.
      {{401, 407}, joined({{L"test 401"}, serverDemand, {L"test 407"}, failed}), L"none"},
      {{407, 401, 407},
       joined({{L"test 407"}, proxyDemand, {L"test 401"}, serverDemand, {L"test 407"}, failed}),
       L"none"},
      {{407, 401, 401},
       joined({{L"test 407"}, proxyDemand, {L"test 401"}, serverDemand, {L"test 401"}, failed}),
       L"none"},
      {{407, -1}, joined({{L"test 407"}, proxyDemand, {L"test -1"}, failed}), L"none"},
  };
  application.proxyLogin = kProxyLogin;
  application.serverLogin = kServerLogin;
  const Lines begin = {kBegin,
                       L"filter http://a:1",
                       L"I: 1 candidates found.",
                       L"D: Candidates: http://a:1",
                       L"I: No. 0: Proxy http://a:1",
                       L"setServerCred none",
                       L"setProxy http://a:1",
                       L"I: No. 0: Test connection to http://target/."};
  for (const Case& c : cases) {
    application.forget();
    application.statuses = c.statuses;
    EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"))), c.result);
    EXPECT_THAT(application.transcript(), ElementsAreArray(joined({begin, c.expected})));
    EXPECT_THAT(application.statuses, IsEmpty()) << "one demand was not answered";
  }
}

// A direct connection has no proxy that could ask, but a server on its way may say so; what the application answers is
// used.
TEST_F(ResolveTest, AnswersAProxyDemandOnADirectConnectionLikeAnyOther) {
  application.statuses = {407, 200};
  application.proxyLogin = kProxyLogin;
  const UniqueProxyConfig direct(KivProxyConfig_Direct());
  const UniqueProxyConfig result = application.resolve(direct);
  EXPECT_EQ(textOf(result), L"direct");
  EXPECT_EQ(textOf(UniqueCred(KivProxyConfig_Cred(result.get())).get()), L"pam:proxy-secret");
  EXPECT_THAT(application.transcript(),
              ElementsAre(kBegin, L"filter direct", L"I: 1 candidates found.", L"D: Candidates: ",
                          L"I: No. 0: Direct connection", L"setServerCred none", L"setProxy direct",
                          L"I: No. 0: Test connection to http://target/.", L"test 407",
                          L"D: No. 0: Proxy authentication required.", L"proxyCred direct", L"setProxy direct",
                          L"I: No. 0: Retry test connection to http://target/.", L"test 200",
                          L"D: No. 0: Test connection succeeded.", L"I: Proxy  found.", kEnd));
}

TEST_F(ResolveTest, RetriesWithoutCredentialsIfTheApplicationHasNone) {
  application.statuses = {407, 401, 200};
  const UniqueProxyConfig preferred = parsed(L"http://old:word@a:1");
  EXPECT_EQ(textOf(application.resolve(preferred)), L"http://a:1")
      << "the candidate's own credentials are replaced by none";
  EXPECT_THAT(application.transcript(),
              ElementsAre(kBegin, L"filter http://old:word@a:1", L"I: 1 candidates found.",
                          L"D: Candidates: http://a:1", L"I: No. 0: Proxy http://a:1", L"setServerCred none",
                          L"setProxy http://old:word@a:1", L"I: No. 0: Test connection to http://target/.", L"test 407",
                          L"D: No. 0: Proxy authentication required.", L"proxyCred http://old:word@a:1",
                          L"setProxy http://a:1", L"I: No. 0: Retry test connection to http://target/.", L"test 401",
                          L"D: No. 0: Server authentication required.", L"serverCred http://target/",
                          L"setServerCred none", L"I: No. 0: Retry test connection to http://target/.", L"test 200",
                          L"D: No. 0: Test connection succeeded.", L"I: Proxy http://a:1 found.", kEnd));
  EXPECT_EQ(textOf(preferred), L"http://old:word@a:1") << "what the caller gave is only read";
}

TEST_F(ResolveTest, KeepsTheCredentialsThatACandidateCameWith) {
  application.forbid(L"word-of-old");
  EXPECT_EQ(textOf(application.resolve(parsed(L"socks5://old:word-of-old@a"))), L"socks5://old:word-of-old@a");
}

TEST_F(ResolveTest, StartsEachCandidateWithoutServerCredentials) {
  application.statuses = {401, 500, 401, 200};
  application.serverLogin = kServerLogin;
  EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"), parsed(L"b:2"))), L"http://b:2");
  Lines set;
  for (const std::wstring& entry : application.transcript()) {
    if (entry.starts_with(L"set")) set.push_back(entry);
  }
  EXPECT_THAT(set, ElementsAre(L"setServerCred none", L"setProxy http://a:1", L"setServerCred sam:server-secret",
                               L"setServerCred none", L"setProxy http://b:2", L"setServerCred sam:server-secret"));
}

TEST_F(ResolveTest, KeepsTheCredentialsOfOneCandidateFromTheNext) {
  application.statuses = {407, 500, 200};
  application.proxyLogin = kProxyLogin;
  EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"), parsed(L"a:1"))), L"http://a:1");
}

TEST_F(ResolveTest, TriesTheCallersCandidatesIfTheSettingsCannotBeRead) {
  const Lines expected = joined({{kBegin, kUnreadable, L"filter http://first:1", L"filter http://last:2",
                                  L"I: 2 candidates found.", L"D: Candidates: http://first:1, http://last:2"},
                                 attempt(0, L"http://first:1", 500),
                                 attempt(1, L"http://last:2", 200),
                                 {L"I: Proxy http://last:2 found.", kEnd}});
  for (const char* call : {"WinHttpOpen", "WinHttpCrackUrl", "WinHttpGetIEProxyConfigForCurrentUser"}) {
    SimulatedWindows own;
    own.user = {.proxy = L"a:1", .bypass = L"target"};
    own.failOnce(call, 5);
    application.forget();
    application.statuses = {500};
    EXPECT_EQ(textOf(application.resolve(parsed(L"first:1"), parsed(L"last:2"))), L"http://last:2") << call;
    EXPECT_THAT(application.transcript(), ElementsAreArray(expected)) << call;
    expectNoComplaints(own);
  }
}

TEST_F(ResolveTest, GoesDirectIfTheSettingsCannotBeReadAndTheCallerNamesNothing) {
  windows.user.error = 5;
  EXPECT_EQ(textOf(application.resolve()), L"direct");
  EXPECT_THAT(application.transcript(),
              ElementsAre(kBegin, kUnreadable, L"I: No candidates found. Use direct connection.", kEnd));
}

TEST_F(ResolveTest, SendsABypassedTargetDirectWithoutACallOfTheApplication) {
  windows.user = {.proxy = L"a:1", .bypass = L"other;tar*"};
  EXPECT_EQ(textOf(application.resolve(parsed(L"first:1"))), L"direct");
  EXPECT_THAT(
      application.transcript(),
      ElementsAre(kBegin, L"D: Proxy bypass list: other;tar*",
                  L"I: http://target/ is matched to the bypass list (other;tar*). Use direct connection.", kEnd));
}

TEST_F(ResolveTest, SendsALocalTargetDirect) {
  windows.user = {.proxy = L"a:1", .bypass = L"<local>"};
  EXPECT_EQ(textOf(application.resolve()), L"direct");
  application.targetUrl = L"http://target.example/";
  EXPECT_EQ(textOf(application.resolve()), L"http://a:1");
}

TEST_F(ResolveTest, GoesOnIfTheBypassListDoesNotNameTheTarget) {
  windows.user = {.proxy = L"a:1", .bypass = L"other"};
  EXPECT_EQ(textOf(application.resolve()), L"http://a:1");
  EXPECT_THAT(application.transcript(),
              ElementsAreArray(joined({{kBegin, L"D: Proxy bypass list: other", L"filter http://a:1",
                                        L"I: 1 candidates found.", L"D: Candidates: http://a:1"},
                                       attempt(0, L"http://a:1", 200),
                                       {L"I: Proxy http://a:1 found.", kEnd}})));
}

// The override, the system's list, and the list that counts; null is no override.
TEST_F(ResolveTest, PutsTheCallersBypassListInPlaceOfTheSystems) {
  struct Case {
    const wchar_t* override;
    const wchar_t* system;
    const wchar_t* counts;
    const wchar_t* result;
  };
  const Case cases[] = {
      {nullptr, L"target", L"target", L"direct"},  {nullptr, L"other", L"other", L"http://a:1"},
      {L"", L"target", nullptr, L"http://a:1"},    {L"other", L"target", L"other", L"http://a:1"},
      {L"target", L"other", L"target", L"direct"}, {L"target", nullptr, L"target", L"direct"},
      {L" ", L"target", L" ", L"http://a:1"},      {nullptr, L"", nullptr, L"http://a:1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(std::wstring(c.override ? c.override : L"(null)")));
    windows.user.proxy = L"a:1";
    windows.user.bypass = c.system ? std::optional<std::wstring>(c.system) : std::nullopt;
    application.forget();
    EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, c.override)), c.result);
    Lines lists;
    for (const std::wstring& line : application.lines()) {
      if (line.starts_with(L"D: Proxy bypass list: ")) lists.push_back(line);
    }
    EXPECT_THAT(lists,
                ElementsAreArray(c.counts ? Lines{std::wstring(L"D: Proxy bypass list: ") + c.counts} : Lines()));
  }
}

TEST_F(ResolveTest, PutsTheCallersBypassListInPlaceOfWhatDetectionAnswers) {
  windows.user.autoDetect = true;
  windows.autoDetection = {{.proxy = L"a:1", .bypass = L"target"}};
  EXPECT_EQ(textOf(application.resolve()), L"direct");
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"")), L"http://a:1");
}

TEST_F(ResolveTest, AppliesTheCallersBypassListAlsoIfTheSettingsCannotBeRead) {
  windows.user.error = 5;
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"target")), L"direct");
  EXPECT_THAT(application.transcript(),
              ElementsAre(kBegin, kUnreadable, L"D: Proxy bypass list: target",
                          L"I: http://target/ is matched to the bypass list (target). Use direct connection.", kEnd));
}

TEST_F(ResolveTest, SkipsTheBypassCheckForATargetThatIsNoAddress) {
  windows.user = {.proxy = L"a:1", .bypass = L"*"};
  application.targetUrl = L"http://x@y@target/";
  EXPECT_EQ(textOf(application.resolve()), L"http://a:1");
  EXPECT_THAT(application.transcript(),
              ElementsAre(kBegin, L"D: Proxy bypass list: *", L"filter http://a:1", L"I: 1 candidates found.",
                          L"D: Candidates: http://a:1", L"I: No. 0: Proxy http://a:1", L"setServerCred none",
                          L"setProxy http://a:1", L"I: No. 0: Test connection to http://x@y@target/.", L"test 200",
                          L"D: No. 0: Test connection succeeded.", L"I: Proxy http://a:1 found.", kEnd));
}

TEST_F(ResolveTest, SendsATargetWhoseHostHasNoAsciiFormDirectByAStarButNotAsALocalOne) {
  windows.user.proxy = L"a:1";
  application.targetUrl = L"http://bad..host/";
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"*")), L"direct");
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"<local>")), L"http://a:1");
}

// See odd_ports.h.
TEST_F(ResolveTest, GivesNullForABypassRuleWhosePortCannotBeReadAndDropsOneWhosePortIsNone) {
  windows.user.proxy = L"a:1";
  forEachOddPort([&](const OddPort& port) {
    const std::wstring list = L"target:" + std::wstring(port.text);
    application.forget();
    application.targetUrl = L"http://target:9/";
    EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, list.c_str())),
              port.isUnreadable() ? L"null" : L"http://a:1");
    EXPECT_EQ(application.lines().back(), kEnd);
    if (port.isUnreadable()) return;
    const std::wstring url = L"http://target:" + std::to_wstring(port.value.value_or(0)) + L"/";
    application.targetUrl = url.c_str();
    EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, list.c_str())), port.value ? L"direct" : L"http://a:1");
  });
}

TEST_F(ResolveTest, GivesNullAfterItsLastLineForABypassRuleWithAPortTooLarge) {
  windows.user.proxy = L"a:1";
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"other:4294967295")), L"http://a:1");
  application.forget();
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"target;other:4294967296")), L"null");
  EXPECT_THAT(application.transcript(), ElementsAre(kBegin, L"D: Proxy bypass list: target;other:4294967296", kEnd));
}

TEST_F(ResolveTest, GivesNullAfterItsLastLineForATargetWithAPortTooLargeIfThereIsABypassList) {
  application.targetUrl = L"http://target:2147483648/";
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"other")), L"null");
  EXPECT_THAT(application.transcript(), ElementsAre(kBegin, kUnreadable, L"D: Proxy bypass list: other", kEnd));
  application.forget();
  EXPECT_EQ(textOf(application.resolve(parsed(L"a:1"))), L"http://a:1") << "nothing else reads the target";
}

TEST_F(ResolveTest, CountsManyCandidates) {
  std::wstring list;
  for (int i = 0; i < 200; ++i) list += L"p" + std::to_wstring(i) + L":1;";
  windows.user.proxy = list;
  application.otherwise = 502;
  application.statuses.assign(199, 502);
  application.statuses.push_back(200);
  EXPECT_EQ(textOf(application.resolve()), L"http://p199:1");
  EXPECT_THAT(application.lines(), testing::Contains(L"I: 200 candidates found."));
  EXPECT_THAT(application.lines(), testing::Contains(L"I: No. 199: Proxy http://p199:1"));
}

TEST_F(ResolveTest, WritesTextsIntoTheLogAsTheyAre) {
  application.targetUrl = L"http://target/%d%s%ls%n";
  EXPECT_EQ(textOf(application.resolve(nullptr, nullptr, L"%s;target")), L"direct");
  EXPECT_THAT(application.lines(),
              ElementsAre(kBegin, L"D: Proxy bypass list: %s;target",
                          L"I: http://target/%d%s%ls%n is matched to the bypass list (%s;target). Use direct "
                          L"connection.",
                          kEnd));
}

// Whatever the application's functions throw, the last line is logged, and only then the exception leaves the
// procedure.
TEST_F(ResolveTest, LetsAnExceptionOutAfterItsLastLine) {
  struct Surprise {};
  impl::ApplicationCallbacks callbacks{.filter = [](const impl::ProxyConfig&) -> bool { throw Surprise(); },
                                       .serverCred = {},
                                       .proxyCred = {},
                                       .testConnection = {},
                                       .setServerCred = {},
                                       .setProxy = {}};
  EXPECT_THROW(impl::resolveProxyConfig(L"http://target/", L"agent", std::nullopt, impl::ProxyConfig::makeDirect(),
                                        impl::ProxyConfig::makeNone(), std::move(callbacks),
                                        *support::toObject(application.logger())),
               Surprise);
  EXPECT_THAT(application.lines(), ElementsAre(kBegin, kEnd));
}

TEST_F(ResolveTest, ReadsTargetAndAgentOnlyUpToTheirLength) {
  const std::wstring url = L"http://target/";
  impl::ApplicationCallbacks unused;
  const impl::ProxyConfig result = impl::resolveProxyConfig(
      std::wstring_view(L"http://target/and more", url.size()), std::wstring_view(L"agent and more", 5),
      std::wstring_view(L"target;rest", 6), {}, {}, unused, *support::toObject(application.logger()));
  EXPECT_TRUE(result.isDirect());
  EXPECT_EQ(windows.arguments("WinHttpOpen"), L"agent=agent, access=0, proxy=null, bypass=null, flags=0x0");
  EXPECT_THAT(application.lines(),
              ElementsAre(kBegin, L"D: Proxy bypass list: target",
                          L"I: http://target/ is matched to the bypass list (target). Use direct connection.", kEnd));
}

}  // namespace
}  // namespace kiv::test
