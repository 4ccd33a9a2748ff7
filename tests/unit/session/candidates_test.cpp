// Tests of which routes are attempted, and in which order.
#include "routes/candidates.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::candidatesFor;
using session::CandidateSources;
using session::DirectPolicy;
using session::LeftOut;
using session::ListSource;
using session::Origin;
using session::Route;
using session::RouteKind;
using Entries = std::vector<impl::ProxyListEntry>;

class CandidatesTest : public PlatformTest {
 protected:
  CandidatesTest() { sources.entries = &entries; }

  // The candidates' URLs, separated by blanks; "direct" for the direct connection.
  static std::wstring shown(const std::vector<Route>& candidates) {
    std::wstring text;
    for (const Route& route : candidates) {
      if (!text.empty()) text += L' ';
      text += route.isDirect() ? L"direct" : route.url();
    }
    return text;
  }
  std::wstring candidates(const wchar_t* url = L"http://target") {
    return shown(candidatesFor(*Origin::parse(url), sources));
  }
  void script(const wchar_t* answer) {
    ASSERT_TRUE(impl::ParsePacProxyList(answer, entries)) << answer;
    sources.source = ListSource::Script;
  }
  void manual(const wchar_t* list) {
    ASSERT_TRUE(impl::ParseWinHttpProxyList(list, entries)) << list;
    sources.source = ListSource::Manual;
  }

  Entries entries;
  CandidateSources sources;
};

TEST_F(CandidatesTest, AreDirectWhereTheSettingsNameNothing) {
  EXPECT_EQ(candidates(), L"direct");
  for (const ListSource source : {ListSource::Nothing, ListSource::Manual, ListSource::Script}) {
    sources.source = source;
    EXPECT_EQ(candidates(), L"direct");
  }
  sources.entries = nullptr;
  EXPECT_EQ(candidates(), L"direct");
  sources.preferred = Route{RouteKind::Http, L"first", 1};
  sources.fallback = Route{RouteKind::Socks5, L"last", 2};
  EXPECT_EQ(candidates(), L"http://first:1 direct socks5://last:2");
}

TEST_F(CandidatesTest, OfAManualListAreForTheUrlsThatItSays) {
  struct Case {
    const wchar_t* list;
    const wchar_t* forHttp;
    const wchar_t* forHttps;
  };
  const std::vector<Case> cases = {
      {L"a", L"http://a:80", L"http://a:80"},
      {L"a:1;b:2", L"http://a:1 http://b:2", L"http://a:1 http://b:2"},
      {L"http=a:1", L"http://a:1", L""},
      {L"HTTPS=a:1", L"", L"http://a:1"},
      {L"http=a;https=b", L"http://a:80", L"http://b:80"},
      {L"http=https://a;https=http://b", L"http://a:80", L"http://b:80"},
      {L"ftp=a:1;gopher=b:2", L"", L""},
      {L"socks=a", L"socks4://a:1080", L"socks4://a:1080"},
      {L"socks=s:1;a:2;http=b:3", L"http://a:2 http://b:3 socks4://s:1", L"http://a:2 socks4://s:1"},
      {L"socks5=a:1;socks4=b:2;proxy=c:3", L"", L""},
      {L"b:1;a:1;b:1;A:1", L"http://b:1 http://a:1", L"http://b:1 http://a:1"},
      {L"h%st:1;a:1", L"http://a:1", L"http://a:1"},
  };
  for (const Case& c : cases) {
    manual(c.list);
    EXPECT_EQ(candidates(L"http://target"), c.forHttp) << c.list;
    EXPECT_EQ(candidates(L"ws://target"), c.forHttp) << c.list;
    EXPECT_EQ(candidates(L"https://target"), c.forHttps) << c.list;
  }
}

TEST_F(CandidatesTest, OfAScriptAreWhatItsKeywordsSay) {
  struct Case {
    const wchar_t* answer;
    const wchar_t* expected;
  };
  const std::vector<Case> cases = {
      {L"DIRECT", L"direct"},
      {L"PROXY a:1; HTTP b:2; HTTPS c:3", L"http://a:1 http://b:2 https://c:3"},
      {L"SOCKS a:1; SOCKS4 b:2; SOCKS5 c:3", L"socks4://a:1 socks4://b:2 socks5://c:3"},
      {L"socks5 a:1; Proxy b:2; direct", L"socks5://a:1 http://b:2 direct"},
      {L"SOCKS a:1; DIRECT; PROXY b:2; DIRECT", L"socks4://a:1 direct http://b:2"},
      {L"QUIC a:1; PROXY b:2; SOCKS6 c:3", L"http://b:2"},
      {L"QUIC a:1", L""},
      {L"PROXY a:65535; PROXY b:65536; PROXY c:-1", L"http://a:65535"},
  };
  for (const Case& c : cases) {
    script(c.answer);
    EXPECT_EQ(candidates(L"http://target"), c.expected) << c.answer;
    EXPECT_EQ(candidates(L"https://target"), c.expected) << c.answer;
  }
}

TEST_F(CandidatesTest, OfAScriptWhoseAnswerTheSystemReadAreHttpProxies) {
  manual(L"a:1;b");
  sources.source = ListSource::Script;
  EXPECT_EQ(candidates(L"https://target"), L"http://a:1 http://b:80");
}

TEST_F(CandidatesTest, WithoutAPortHaveTheirSchemes) {
  sources.source = ListSource::Script;
  entries = {{L"PROXY", L"a", 0}, {L"HTTPS", L"a", 0}, {L"SOCKS", L"a", 0}, {L"SOCKS5", L"a", 0}};
  EXPECT_EQ(candidates(), L"http://a:80 https://a:443 socks4://a:1080 socks5://a:1080");
}

TEST_F(CandidatesTest, AreNeverMadeOfAnEntryWithoutAHostOrWithABadPort) {
  for (const ListSource source : {ListSource::Manual, ListSource::Script}) {
    sources.source = source;
    entries = {{L"", L"", 1}, {L"http", L"", 1}, {L"", L"a", -1}, {L"", L"a", 65536}, {L"", L"a", 2147483647}};
    EXPECT_EQ(candidates(), L"");
  }
}

TEST_F(CandidatesTest, ObeyThePolicyOfDirectConnections) {
  struct Case {
    DirectPolicy policy;
    const wchar_t* answer;
    const wchar_t* expected;
  };
  const std::vector<Case> cases = {
      {DirectPolicy::Settings, L"DIRECT; PROXY a:1", L"direct http://a:1"},
      {DirectPolicy::LastResort, L"DIRECT; PROXY a:1", L"http://a:1 direct"},
      {DirectPolicy::LastResort, L"PROXY a:1", L"http://a:1 direct"},
      {DirectPolicy::LastResort, L"DIRECT; DIRECT", L"direct"},
      {DirectPolicy::LastResort, L"QUIC a:1", L"direct"},
      {DirectPolicy::LastResort, L"", L"direct"},
      {DirectPolicy::Never, L"DIRECT; PROXY a:1", L"http://a:1"},
      {DirectPolicy::Never, L"DIRECT", L""},
      {DirectPolicy::Never, L"", L""},
  };
  for (const Case& c : cases) {
    script(c.answer);
    sources.direct = c.policy;
    EXPECT_EQ(candidates(), c.expected) << c.answer;
  }
  script(L"PROXY a:1");
  sources.direct = DirectPolicy::LastResort;
  sources.fallback = Route{RouteKind::Http, L"last", 2};
  EXPECT_EQ(candidates(), L"http://a:1 http://last:2 direct");
}

TEST_F(CandidatesTest, AreLeftOutByNameButNotDirectOnes) {
  const LeftOut leftOut(L"*:1");
  sources.leftOut = &leftOut;
  sources.preferred = Route{RouteKind::Http, L"first", 1};
  sources.fallback = Route{RouteKind::Http, L"last", 1};
  script(L"PROXY a:1; DIRECT; PROXY a:2");
  EXPECT_EQ(candidates(), L"direct http://a:2");
}

TEST_F(CandidatesTest, AreThereOnceWhereTheyWereFirst) {
  script(L"PROXY a:1; PROXY b:1; PROXY A:1; PROXY first:1");
  sources.preferred = Route{RouteKind::Http, L"first", 1};
  sources.fallback = Route{RouteKind::Http, L"a", 1};
  EXPECT_EQ(candidates(), L"http://first:1 http://a:1 http://b:1");
}

TEST_F(CandidatesTest, AreNoMoreThanWasSaid) {
  sources.source = ListSource::Script;
  for (int i = 1; i <= 33; ++i) entries.push_back({L"PROXY", L"a", i});
  EXPECT_EQ(candidatesFor(*Origin::parse(L"http://target"), sources).size(), 32U);
  sources.most = 2;
  EXPECT_EQ(candidates(), L"http://a:1 http://a:2");
  sources.direct = DirectPolicy::LastResort;
  EXPECT_EQ(candidates(), L"http://a:1 direct");
  sources.most = 1;
  EXPECT_EQ(candidates(), L"direct");
}

TEST_F(CandidatesTest, AreNotAskedForABypassedTarget) {
  struct Case {
    const wchar_t* url;
    const wchar_t* list;
    bool bypassed;
  };
  const std::vector<Case> cases = {
      {L"http://host", L"", false},
      {L"http://host", L"host", true},
      {L"http://HOST", L"Host", true},
      {L"http://host.example", L"host", false},
      {L"http://host.example", L"a;*.example", true},
      {L"http://host", L"<local>", true},
      {L"http://host.example", L"<local>", false},
      {L"http://host", L"host:80", true},
      {L"https://host", L"host:80", false},
      {L"wss://host", L"https://host:443", true},
      {L"ws://host", L"https://host", false},
      {L"http://[::1]:81", L"*", true},
      {L"http://[::1]", L"[*]", true},
      {L"http://[::1]", L"*1]:80", true},
      {L"http://[::1]", L"<local>", false},
      {L"http://host", L"a:99999999999;host", true},
      {L"http://host", L"host:99999999999", false},
      {L"http://host", L"host:\xFF18;:;//;host:", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(session::isBypassed(*Origin::parse(c.url), c.list), c.bypassed) << c.url << L" " << c.list;
  }
  EXPECT_EQ(windows.count("IdnToAscii"), 0U);
}

}  // namespace
}  // namespace kiv::test
