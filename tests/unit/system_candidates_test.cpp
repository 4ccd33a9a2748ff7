// The system's candidates: the session they are read with, and the configurations that raw entries become.
#include "resolver/system_candidates.h"

#include <gmock/gmock.h>

#include "platform/platform_test.h"
#include "unit/support/recorded_log.h"
#include "unit/support/scripted_application.h"
#include "unit/support/transcript.h"

namespace kiv::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Lines = std::vector<std::wstring>;

const wchar_t* const kOpen = L"WinHttpOpen(agent=the agent, access=0, proxy=null, bypass=null, flags=0x0)";
const wchar_t* const kCrack = L"WinHttpCrackUrl(url=http://target/, length=0, flags=0x0, hostLength=2048)";
const wchar_t* const kUser = L"WinHttpGetIEProxyConfigForCurrentUser()";
const wchar_t* const kClose = L"WinHttpCloseHandle(handle=session 1)";

class SystemCandidatesTest : public PlatformTest {
 protected:
  Lines read() {
    const auto& logger = *support::toObject(log.logger());
    impl::SystemProxySettings settings = impl::readSystemProxySettings(L"http://target/", L"the agent", logger);
    bypass = settings.bypassList;
    Lines texts;
    for (impl::ProxyConfig& config : settings.candidates) {
      EXPECT_FALSE(config.hasCred());
      texts.push_back(textOf(support::toHandle<KivProxyConfig>(&config)));
    }
    return texts;
  }

  RecordedLog log;
  std::wstring bypass;
};

TEST_F(SystemCandidatesTest, ReadsTheSettingsInASessionOfItsOwn) {
  windows.user = {.proxy = L"a:1;b:2", .bypass = L"<local>"};
  EXPECT_THAT(read(), ElementsAre(L"http://a:1", L"http://b:2"));
  EXPECT_EQ(bypass, L"<local>");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(transcriptOf(windows, {"GlobalFree"}), ElementsAre(kOpen, kCrack, kUser, kClose));
}

TEST_F(SystemCandidatesTest, WarnsIfTheSessionCannotBeOpened) {
  windows.user = {.proxy = L"a:1", .bypass = L"b"};
  windows.failOnce("WinHttpOpen", 5);
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_EQ(bypass, L"");
  EXPECT_THAT(log.lines(), ElementsAre(L"W: lorvResolveProxy() returned error status."));
  EXPECT_THAT(transcriptOf(windows), ElementsAre(std::wstring(kOpen) + L" failed: 5"));
}

TEST_F(SystemCandidatesTest, WarnsIfTheSettingsCannotBeReadAndClosesTheSession) {
  windows.user = {.proxy = L"a:1", .bypass = L"b", .error = 5};
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_EQ(bypass, L"");
  EXPECT_THAT(log.lines(), ElementsAre(L"W: lorvResolveProxy() returned error status."));
  EXPECT_THAT(transcriptOf(windows, {"GlobalFree"}),
              ElementsAre(kOpen, kCrack, std::wstring(kUser) + L" failed: 5", kClose));
}

TEST_F(SystemCandidatesTest, DoesNotWarnOfAnEmptyAnswer) {
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

// The user's manual list, and the candidates that it makes.
TEST_F(SystemCandidatesTest, MakesAConfigurationOfEachEntry) {
  struct Case {
    const wchar_t* list;
    Lines expected;
  };
  const Case cases[] = {
      {L"proxy:8080", {L"http://proxy:8080"}},
      {L"proxy", {L"http://proxy:0"}},
      {L"proxy:0", {L"http://proxy:0"}},
      {L"proxy:-1", {L"http://proxy"}},
      {L"proxy:-8080", {L"http://proxy"}},
      {L"proxy:-99999999999", {L"http://proxy"}},
      {L"proxy:99999999999", {L"http://proxy:2147483647"}},
      {L"proxy:nonsense", {L"http://proxy:0"}},
      {L"http=a:1;https=b:2;socks=c:3;socks4=d:4;socks5=e:5;proxy=f:6",
       {L"http://a:1", L"https://b:2", L"socks5://c:3", L"socks4://d:4", L"socks5://e:5", L"http://f:6"}},
      {L"HTTPS=a:1", {L"https://a:1"}},
      {L"gopher=a:1;b:2;ftp=c:3", {L"none", L"http://b:2", L"none"}},
      {L"direct=a:1", {L"direct"}},
      {L"https://a:1", {L"http://a:1"}},
      {L"\x65E5\x672C:1", {L"http://\x65E5\x672C:1"}},
  };
  for (const Case& c : cases) {
    windows.user.proxy = c.list;
    EXPECT_THAT(read(), ElementsAreArray(c.expected)) << testing::PrintToString(std::wstring(c.list));
  }
}

TEST_F(SystemCandidatesTest, KeepsTheDifferenceBetweenPortZeroAndNoPort) {
  windows.user.proxy = L"a;b:-1";
  const auto& logger = *support::toObject(log.logger());
  const auto settings = impl::readSystemProxySettings(L"http://target/", L"the agent", logger);
  ASSERT_EQ(settings.candidates.size(), 2U);
  EXPECT_TRUE(settings.candidates[0].hasExplicitPort());
  EXPECT_EQ(settings.candidates[0].port(true), 0);
  EXPECT_FALSE(settings.candidates[1].hasExplicitPort());
  EXPECT_EQ(settings.candidates[1].port(true), 80);
}

TEST_F(SystemCandidatesTest, TreatsDirectFromAScriptAsAProxyWithoutAHost) {
  windows.user.autoConfigUrl = L"file://C:/p.pac";
  windows.autoConfig = {{.error = 12006}};
  windows.scriptEngine.answer = "SOCKS s:1; DIRECT; PROXY p:2; HTTPS h:3; UNKNOWN u:4";
  EXPECT_THAT(read(), ElementsAre(L"socks5://s:1", L"http://:0", L"http://p:2", L"https://h:3", L"none"));
  EXPECT_EQ(bypass, L"");
}

}  // namespace
}  // namespace kiv::test
