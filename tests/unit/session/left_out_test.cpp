// Tests of candidates that are never used.
#include "routes/left_out.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::LeftOut;
using session::Route;
using session::RouteKind;

class LeftOutTest : public PlatformTest {};

TEST_F(LeftOutTest, NamesProxiesBySchemeHostAndPort) {
  struct Case {
    const wchar_t* text;
    const wchar_t* proxy;
    bool named;
  };
  const std::vector<Case> cases = {
      {L"", L"http://host:80", false},
      {L"host", L"http://host:80", true},
      {L"host", L"socks5://host:1", true},
      {L"HOST", L"http://host:80", true},
      {L"host", L"http://host.example:80", false},
      {L"host", L"http://ahost:80", false},
      {L"host:80", L"http://host:80", true},
      {L"host:80", L"http://host:81", false},
      {L"http://host", L"http://host:80", true},
      {L"HTTP://host", L"https://host:80", false},
      {L"*.example", L"http://a.example:80", true},
      {L"*.example", L"http://example:80", false},
      {L"a*c:8*", L"http://abc:80", false},
      {L"*", L"https://any:1", true},
      {L"*:1080", L"https://any:1080", true},
      {L"*://host", L"socks4://host:1", true},
      {L"http*://host", L"https://host:1", true},
      {L"http*://host", L"socks4://host:1", false},
      {L"socks://host", L"socks4://host:1", true},
      {L"socks://host", L"socks5://host:1", true},
      {L"socks://host", L"http://host:1", false},
      {L"SOCKS4://host", L"socks5://host:1", false},
      {L"a;b", L"http://b:80", true},
      {L";; a ;\tb\t;", L"http://b:80", true},
      {L"a b", L"http://b:80", false},
      {L"[::1]", L"http://[::1]:80", true},
      {L"[::1]:81", L"http://[::1]:80", false},
      {L"[fe80::*]", L"http://[fe80::1]:80", true},
      {L"b\x00FC"
       L"cher",
       L"http://xn--bcher-kva:80", true},
      {L"host:0", L"http://host:80", false},
      {L"host:65616", L"http://host:80", false},
      {L"host:x", L"http://host:80", false},
      {L"://host", L"http://host:80", false},
      {L":80", L"http://host:80", false},
      {L"user@host", L"http://host:80", false},
      {L"host/", L"http://host:80", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(LeftOut(c.text).names(*Route::parse(c.proxy, RouteKind::Socks5)), c.named) << c.text << L" " << c.proxy;
  }
}

TEST_F(LeftOutTest, NeverNamesTheDirectConnection) { EXPECT_FALSE(LeftOut(L"*;*://*;direct").names(Route())); }

TEST_F(LeftOutTest, NamesTheSameWhenCopied) {
  LeftOut copy;
  {
    const LeftOut original(L"a.example;*.b");
    copy = original;
  }
  EXPECT_TRUE(copy.names({RouteKind::Http, L"a.example", 80}));
  EXPECT_TRUE(copy.names({RouteKind::Http, L"a.b", 80}));
  EXPECT_FALSE(copy.names({RouteKind::Http, L"c", 80}));
}

}  // namespace
}  // namespace kiv::test
