// Which source the system's proxies come from, in which order the sources are asked, and which failure ends it.
#include "discovery/system_proxy.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "platform/platform_test.h"
#include "support/owners.h"
#include "unit/support/proxy_entries.h"
#include "unit/support/transcript.h"

namespace kiv::test {
namespace {

using impl::ProxyListEntry;
using testing::ElementsAre;

using Entries = std::vector<ProxyListEntry>;
using Lines = std::vector<std::wstring>;

constexpr std::array<DWORD, 10> kTolerable = {0, 87, 12002, 12006, 12015, 12017, 12166, 12167, 12178, 12180};

const wchar_t* const kCrack = L"WinHttpCrackUrl(url=http://target/x, length=0, flags=0x0, hostLength=2048)";
const wchar_t* const kUser = L"WinHttpGetIEProxyConfigForCurrentUser()";

std::wstring asked(const wchar_t* what, std::optional<DWORD> error = std::nullopt) {
  std::wstring line = L"WinHttpGetProxyForUrl(session=session 1, url=http://target/x, ";
  line += what;
  line += L")";
  if (error) line += L" failed: " + std::to_wstring(*error);
  return line;
}

const wchar_t* const kDetect = L"flags=1, detect=3, configUrl=null, autoLogon=0";
const wchar_t* const kDetectLoggedOn = L"flags=1, detect=3, configUrl=null, autoLogon=1";
const wchar_t* const kScript = L"flags=2, detect=0, configUrl=http://conf/p.pac, autoLogon=0";
const wchar_t* const kScriptLoggedOn = L"flags=2, detect=0, configUrl=http://conf/p.pac, autoLogon=1";

// What the outputs hold before the call: a failure must leave them so.
const Entries kUntouched = {{L"old", L"old", 1}};
const wchar_t* const kOldBypass = L"old bypass";

class SystemProxyTest : public PlatformTest {
 protected:
  SystemProxyTest() : session_(WinHttpOpen(L"agent", 0, nullptr, nullptr, 0)) {}

  bool discover(const std::wstring& url = L"http://target/x") {
    candidates = kUntouched;
    bypass = kOldBypass;
    return impl::lorvResolveProxy(session_.get(), url, candidates, bypass);
  }

  // The calls but for the session's opening, and for the releases, whose order is nobody's business.
  Lines transcript() const {
    Lines lines = transcriptOf(windows, {"GlobalFree"});
    lines.erase(lines.begin());
    return lines;
  }

  // Every text that the system hands out is released; that none is released twice, the fixture sees.
  void expectAllTextsReleased(std::size_t texts) const { EXPECT_EQ(windows.count("GlobalFree"), texts); }

  void expectUntouched() const {
    EXPECT_EQ(candidates, kUntouched);
    EXPECT_EQ(bypass, kOldBypass);
  }

  Entries candidates;
  std::wstring bypass;

 private:
  support::UniqueInternet session_;
};

TEST_F(SystemProxyTest, ReadsTheManualSettingsIfNothingElseIsSetUp) {
  windows.user = {.proxy = L"proxy:8080", .bypass = L"*.local;<local>"};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"proxy", 8080}}));
  EXPECT_EQ(bypass, L"*.local;<local>");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser));
  expectAllTextsReleased(2);
}

TEST_F(SystemProxyTest, TreatsAnEmptyManualListAsAnAnswer) {
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, Entries());
  EXPECT_EQ(bypass, L"");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser));
}

TEST_F(SystemProxyTest, KeepsTheEntriesInFrontOfAnErrorInTheManualList) {
  windows.user = {.proxy = L"a:1;b:2:3;c:4", .bypass = L"x"};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"a", 1}}));
  EXPECT_EQ(bypass, L"x");
}

TEST_F(SystemProxyTest, UsesTheAnswerOfAutomaticDetectionFirst) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{.proxy = L"http=found:2;https=safe:3", .bypass = L"f"}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"http", L"found", 2}, {L"https", L"safe", 3}}));
  EXPECT_EQ(bypass, L"f");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect)));
  expectAllTextsReleased(5);
}

TEST_F(SystemProxyTest, AsksTheScriptUrlAfterDetectionFailedToDetect) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoConfig = {{.proxy = L"scripted:2", .bypass = L"s"}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"scripted", 2}}));
  EXPECT_EQ(bypass, L"s");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 12180), asked(kScript)));
  expectAllTextsReleased(5);
}

TEST_F(SystemProxyTest, AsksTheScriptUrlAloneIfDetectionIsOff) {
  windows.user = {.autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1"};
  windows.autoDetection = {{.proxy = L"never:1"}};
  windows.autoConfig = {{.proxy = L"scripted:2"}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"scripted", 2}}));
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kScript)));
}

TEST_F(SystemProxyTest, FallsBackToTheManualSettingsAfterBothFailedTolerably) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 12180), asked(kScript, 12167)));
  expectAllTextsReleased(3);
}

TEST_F(SystemProxyTest, AsksNoScriptForAnEmptyScriptUrl) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"", .proxy = L"manual:1"};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 12180)));
}

TEST_F(SystemProxyTest, TriesDetectionForAUserWithoutSettings) {
  windows.user = {.error = ERROR_FILE_NOT_FOUND};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, Entries());
  EXPECT_EQ(bypass, L"");
  EXPECT_THAT(transcript(),
              ElementsAre(kCrack, L"WinHttpGetIEProxyConfigForCurrentUser() failed: 2", asked(kDetect, 12180)));
}

TEST_F(SystemProxyTest, UsesWhatDetectionAnswersForAUserWithoutSettings) {
  windows.user = {.error = ERROR_FILE_NOT_FOUND};
  windows.autoDetection = {{.proxy = L"found:2", .bypass = L"f"}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"found", 2}}));
  EXPECT_EQ(bypass, L"f");
  expectAllTextsReleased(2);
}

TEST_F(SystemProxyTest, FailsIfTheSettingsCannotBeReadForAnyOtherReason) {
  for (const DWORD error : {1U, 3U, 5U, 8U, 87U, 12002U, 12006U, 12015U, 12180U}) {
    SCOPED_TRACE(error);
    windows.user = {.autoDetect = true, .autoConfigUrl = L"c", .proxy = L"p", .bypass = L"b", .error = error};
    EXPECT_FALSE(discover());
    expectUntouched();
    EXPECT_EQ(windows.count("WinHttpGetProxyForUrl"), 0U);
  }
}

TEST_F(SystemProxyTest, ReleasesTheTextsThatComeWithAFailureToReadTheSettings) {
  windows.user = {.autoConfigUrl = L"c", .proxy = L"p", .bypass = L"b", .error = 5};
  EXPECT_FALSE(discover());
  expectAllTextsReleased(3);
}

TEST_F(SystemProxyTest, UsesTheTextsThatComeWithTheWordThatThereAreNoSettings) {
  windows.user = {
      .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m", .error = ERROR_FILE_NOT_FOUND};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, L"WinHttpGetIEProxyConfigForCurrentUser() failed: 2",
                                        asked(kDetect, 12180), asked(kScript, 12167)));
  expectAllTextsReleased(3);
}

TEST_F(SystemProxyTest, ParsesTheManualListIfDetectionSaysToGoDirect) {
  windows.user = {.autoDetect = true, .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect)));
}

// A source's answer, which text of it is null, and what is then in force.
TEST_F(SystemProxyTest, OverwritesEachTextOnlyWithOneThatIsNotNull) {
  struct Case {
    AutoProxyAnswer answer;
    Entries expected;
    const wchar_t* bypass;
  };
  const Case cases[] = {
      {{}, {{L"", L"manual", 1}}, L"m"},
      {{.proxy = L"new:2"}, {{L"", L"new", 2}}, L"m"},
      {{.bypass = L"n"}, {{L"", L"manual", 1}}, L"n"},
      {{.proxy = L"new:2", .bypass = L"n"}, {{L"", L"new", 2}}, L"n"},
      {{.proxy = L"", .bypass = L""}, {}, L""},
  };
  for (const bool detect : {true, false}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::PrintToString(c.answer.proxy) + testing::PrintToString(c.answer.bypass));
      SimulatedWindows own;
      own.user = {.autoDetect = detect, .proxy = L"manual:1", .bypass = L"m"};
      if (!detect) own.user.autoConfigUrl = L"http://conf/p.pac";
      own.autoDetection = own.autoConfig = {c.answer};
      const support::UniqueInternet session(WinHttpOpen(L"agent", 0, nullptr, nullptr, 0));
      EXPECT_TRUE(impl::lorvResolveProxy(session.get(), L"http://target/x", candidates, bypass));
      EXPECT_EQ(candidates, c.expected);
      EXPECT_EQ(bypass, c.bypass);
      EXPECT_EQ(own.count("WinHttpGetProxyForUrl"), 1U);
    }
  }
}

TEST_F(SystemProxyTest, IgnoresTheTextsThatComeWithAFailure) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{.error = 12180, .proxy = L"bad:1", .bypass = L"bad"}};
  windows.autoConfig = {{.error = 12167, .proxy = L"worse:1", .bypass = L"worse"}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
  expectAllTextsReleased(7);
}

TEST_F(SystemProxyTest, ReleasesTheTextsThatComeWithAnIntolerableFailure) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{.error = 12007, .proxy = L"bad:1", .bypass = L"bad"}};
  EXPECT_FALSE(discover());
  expectUntouched();
  expectAllTextsReleased(5);
}

TEST_F(SystemProxyTest, ToleratesJustTheTenCodes) {
  std::set<DWORD> probes = {2, 5, 6, 8, 0xFFFFFFFF};
  for (const DWORD code : kTolerable) probes.insert({code - 1, code, code + 1});
  for (DWORD code = 11990; code < 12200; ++code) probes.insert(code);
  for (const DWORD code : probes) {
    EXPECT_EQ(impl::IsTolerableAutoProxyError(code), std::ranges::count(kTolerable, code) == 1) << code;
  }
}

TEST_F(SystemProxyTest, AsksTheNextSourceAfterATolerableFailureAndNoneAfterAnother) {
  const std::array<DWORD, 8> others = {2, 5, 8, 12005, 12007, 12016, 12029, 12181};
  const auto expectAfter = [&](DWORD code, bool tolerable) {
    SCOPED_TRACE(code);
    SimulatedWindows own;
    own.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
    own.autoDetection = {{.error = code}};
    own.autoConfig = {{.proxy = L"scripted:2", .bypass = L"s"}};
    const support::UniqueInternet session(WinHttpOpen(L"agent", 0, nullptr, nullptr, 0));
    candidates = kUntouched;
    bypass = kOldBypass;
    EXPECT_EQ(impl::lorvResolveProxy(session.get(), L"http://target/x", candidates, bypass), tolerable);
    EXPECT_EQ(candidates, tolerable ? (Entries{{L"", L"scripted", 2}}) : kUntouched);
    EXPECT_EQ(bypass, tolerable ? L"s" : kOldBypass);

    own.user.autoDetect = false;
    own.autoConfig = {{.error = code}};
    own.scriptEngine.present = false;
    candidates = kUntouched;
    bypass = kOldBypass;
    EXPECT_EQ(impl::lorvResolveProxy(session.get(), L"http://target/x", candidates, bypass), tolerable);
    EXPECT_EQ(candidates, tolerable ? (Entries{{L"", L"manual", 1}}) : kUntouched);
    EXPECT_EQ(bypass, tolerable ? L"m" : kOldBypass);
  };
  for (const DWORD code : kTolerable) {
    if (code != 0) expectAfter(code, true);
  }
  for (const DWORD code : others) expectAfter(code, false);
}

TEST_F(SystemProxyTest, EndsTheSearchAtAFailureWithoutACode) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.failOnce("WinHttpGetProxyForUrl", 0);
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 0)));
}

TEST_F(SystemProxyTest, DropsTheTextsThatComeWithAFailureWithoutACode) {
  const AutoProxyAnswer failure = {.proxy = L"bad:1", .bypass = L"bad", .failsWithoutCode = true};
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = windows.autoConfig = {failure};
  for (const bool detect : {true, false}) {
    windows.user.autoDetect = detect;
    EXPECT_TRUE(discover());
    EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
    EXPECT_EQ(bypass, L"m");
  }
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 0), kCrack, kUser, asked(kScript, 0)));
  expectAllTextsReleased(2 * 5);
}

TEST_F(SystemProxyTest, DropsTheTextsOfARetryThatFailsWithoutACode) {
  windows.user = {.autoDetect = true, .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{.error = 12015}, {.proxy = L"bad:1", .bypass = L"bad", .failsWithoutCode = true}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
}

TEST_F(SystemProxyTest, DoesNotConsultTheManualListWhenANameWasNotResolved) {
  windows.user = {.autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoConfig = {{.error = 12007}};
  EXPECT_FALSE(discover());
  expectUntouched();
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kScript, 12007)));
}

TEST_F(SystemProxyTest, LogsOnAndUsesTheResultOfTheRetryAfterALoginFailure) {
  windows.user = {.autoDetect = true, .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{.error = 12015, .proxy = L"bad:1", .bypass = L"bad"},
                           {.proxy = L"found:2", .bypass = L"f"}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"found", 2}}));
  EXPECT_EQ(bypass, L"f");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 12015), asked(kDetectLoggedOn)));
  expectAllTextsReleased(6);
}

TEST_F(SystemProxyTest, ReleasesTheTextsOfALoginFailureBeforeItAsksAgain) {
  windows.user = {.autoDetect = true};
  windows.autoDetection = {{.error = 12015, .proxy = L"bad:1", .bypass = L"bad"}, {.proxy = L"found:2"}};
  EXPECT_TRUE(discover());
  EXPECT_THAT(windows.callNames(),
              ElementsAre("WinHttpOpen", "WinHttpCrackUrl", "WinHttpGetIEProxyConfigForCurrentUser",
                          "WinHttpGetProxyForUrl", "GlobalFree", "GlobalFree", "WinHttpGetProxyForUrl", "GlobalFree"));
}

TEST_F(SystemProxyTest, RetriesALoginOnceForEachSource) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoDetection = {{.error = 12015}};
  windows.autoConfig = {{.error = 12015}};
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
  EXPECT_THAT(transcript(), ElementsAre(kCrack, kUser, asked(kDetect, 12015), asked(kDetectLoggedOn, 12015),
                                        asked(kScript, 12015), asked(kScriptLoggedOn, 12015)));
}

TEST_F(SystemProxyTest, GoesByTheErrorOfTheRetry) {
  windows.user = {.autoDetect = true, .proxy = L"manual:1"};
  windows.autoDetection = {{.error = 12015}, {.error = 12007, .proxy = L"bad:1", .bypass = L"bad"}};
  EXPECT_FALSE(discover());
  expectUntouched();
  expectAllTextsReleased(3);
}

TEST_F(SystemProxyTest, DoesNotRetryAfterAnyOtherError) {
  for (const DWORD code : {12002U, 12007U, 12014U, 12016U, 12180U}) {
    SimulatedWindows own;
    own.user = {.autoDetect = true};
    own.autoDetection = {{.error = code}, {.proxy = L"found:2"}};
    const support::UniqueInternet session(WinHttpOpen(L"agent", 0, nullptr, nullptr, 0));
    impl::lorvResolveProxy(session.get(), L"http://target/x", candidates, bypass);
    EXPECT_EQ(own.count("WinHttpGetProxyForUrl"), 1U) << code;
  }
}

TEST_F(SystemProxyTest, HandsTheLoggedOnAnswerOverOnlyToItsOwnSource) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"http://conf/p.pac"};
  windows.autoDetection = {{.error = 12015}, {.error = 12180}};
  windows.autoConfig = {{.proxy = L"scripted:2"}};
  EXPECT_TRUE(discover());
  EXPECT_THAT(transcript(),
              ElementsAre(kCrack, kUser, asked(kDetect, 12015), asked(kDetectLoggedOn, 12180), asked(kScript)));
}

TEST_F(SystemProxyTest, RunsALocalScriptAndHandsBackNoBypassList) {
  windows.user = {.autoConfigUrl = L"file://C:/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.answer = "PROXY scripted:8080; DIRECT";
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"PROXY", L"scripted", 8080}, {L"", L"", 0}}));
  EXPECT_EQ(bypass, L"");
  EXPECT_EQ(windows.arguments("WinHttpGetProxyForUrl"),
            L"session=session 1, url=http://target/x, flags=2, detect=0, configUrl=file://C:/p.pac, autoLogon=0");
  EXPECT_EQ(windows.arguments("InternetInitializeAutoProxyDll"),
            L"version=0, path=C:/p.pac, mime=null, functions=null, script=null");
  EXPECT_EQ(windows.arguments("InternetGetProxyInfo"), L"url=http://target/x, urlLength=15, host=target, hostLength=6");
}

TEST_F(SystemProxyTest, RunsALocalScriptThatDetectionWasTriedBefore) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"file://C:/p.pac"};
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.answer = "DIRECT";
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"", 0}}));
  EXPECT_EQ(bypass, L"");
}

TEST_F(SystemProxyTest, RunsALocalScriptAlsoWhenTheRetrySaysThatTheSchemeIsUnknown) {
  windows.user = {.autoConfigUrl = L"file://C:/p.pac"};
  windows.autoConfig = {{.error = 12015}, {.error = 12006}};
  windows.scriptEngine.answer = "PROXY scripted:8080";
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"PROXY", L"scripted", 8080}}));
}

TEST_F(SystemProxyTest, FallsBackToTheManualSettingsIfTheLocalScriptGivesNothing) {
  windows.user = {.autoConfigUrl = L"file://C:/p.pac", .proxy = L"manual:1", .bypass = L"m"};
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.initializeResult = FALSE;
  EXPECT_TRUE(discover());
  EXPECT_EQ(candidates, (Entries{{L"", L"manual", 1}}));
  EXPECT_EQ(bypass, L"m");
}

TEST_F(SystemProxyTest, RunsALocalScriptAfterNoOtherError) {
  windows.user = {.autoDetect = true, .autoConfigUrl = L"file://C:/p.pac"};
  windows.autoDetection = {{.error = 12006}};
  for (const DWORD code : {12002U, 12015U, 12017U, 12166U, 12167U, 12178U, 12180U, 87U}) {
    windows.autoConfig = {{.error = code}};
    EXPECT_TRUE(discover());
    EXPECT_EQ(windows.count("LoadLibraryW"), 0U) << code;
  }
}

TEST_F(SystemProxyTest, FailsForATargetThatCannotBeCracked) {
  windows.user = {.proxy = L"manual:1"};
  for (const wchar_t* url : {L"", L"target", L"http://", L"ftp://target/", L"http://target:99999/"}) {
    EXPECT_FALSE(discover(url)) << testing::PrintToString(std::wstring(url));
    expectUntouched();
  }
  EXPECT_EQ(windows.count("WinHttpGetIEProxyConfigForCurrentUser"), 0U);
}

TEST_F(SystemProxyTest, TakesHostsOfUpTo2047Characters) {
  windows.user = {.autoConfigUrl = L"file://C:/p.pac"};
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.answer = "PROXY scripted:8080";
  EXPECT_TRUE(discover(L"http://" + std::wstring(2047, L'a') + L"/"));
  EXPECT_EQ(candidates, (Entries{{L"PROXY", L"scripted", 8080}}));
  EXPECT_EQ(windows.arguments("InternetGetProxyInfo"), L"url=http://" + std::wstring(2047, L'a') +
                                                           L"/, urlLength=2055, host=" + std::wstring(2047, L'a') +
                                                           L", hostLength=2047");
  EXPECT_FALSE(discover(L"http://" + std::wstring(2048, L'a') + L"/"));
  expectUntouched();
}

// The host ends where the system says and at the buffer's first null, whichever comes first.
TEST_F(SystemProxyTest, TakesTheHostUpToTheReportedLengthAndTheFirstNull) {
  struct Case {
    DWORD reported;
    const wchar_t* host;
  };
  windows.user = {.autoConfigUrl = L"file://C:/p.pac"};
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.answer = "DIRECT";
  std::size_t nth = 0;
  for (const Case& c : {Case{0, L""}, Case{1, L"t"}, Case{5, L"targe"}, Case{6, L"target"}, Case{7, L"target"},
                        Case{2048, L"target"}}) {
    windows.crackedHostLength = c.reported;
    EXPECT_TRUE(discover());
    EXPECT_EQ(windows.arguments("InternetGetProxyInfo", ++nth), L"url=http://target/x, urlLength=15, host=" +
                                                                    std::wstring(c.host) + L", hostLength=" +
                                                                    std::to_wstring(std::wstring_view(c.host).size()));
  }
}

TEST_F(SystemProxyTest, LeavesTheSessionToItsOwner) {
  windows.user = {.autoDetect = true};
  discover();
  EXPECT_EQ(windows.count("WinHttpOpen"), 1U);
  EXPECT_EQ(windows.count("WinHttpCloseHandle"), 0U);
}

}  // namespace
}  // namespace kiv::test
