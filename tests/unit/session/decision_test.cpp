// Tests of the result of a resolution.
#include "routes/decision.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::Decision;
using session::DecisionKind;
using session::makeRef;
using session::Origin;
using session::ProxyCredentials;
using session::Ref;
using session::Route;
using session::RouteKind;

class DecisionTest : public PlatformTest {
 protected:
  Ref<ProxyCredentials> credentials = makeRef<ProxyCredentials>();
};

TEST_F(DecisionTest, TellsWhatItWasMadeOf) {
  const Route proxy = {RouteKind::Socks5, L"::1", 1080};
  const auto decision = makeRef<Decision>(*Origin::parse(L"https://target"), DecisionKind::Proxy, proxy,
                                          KIV_SCHEME_NTLM, KIV_REASON_REACHED, 42U, credentials);
  EXPECT_EQ(decision->kind(), DecisionKind::Proxy);
  EXPECT_EQ(decision->route(), proxy);
  EXPECT_STREQ(decision->proxyUrl(), L"socks5://[::1]:1080");
  EXPECT_EQ(decision->authScheme(), KIV_SCHEME_NTLM);
  EXPECT_EQ(decision->reason(), KIV_REASON_REACHED);
  EXPECT_EQ(decision->madeAt(), 42U);
  EXPECT_EQ(&decision->credentials(), credentials.get());
}

TEST_F(DecisionTest, NamesNoProxyUnlessItIsOne) {
  for (const DecisionKind kind : {DecisionKind::None, DecisionKind::Direct}) {
    const auto decision =
        makeRef<Decision>(*Origin::parse(L"https://target"), kind, Route(), 0U, KIV_REASON_BYPASSED, 0U, credentials);
    EXPECT_STREQ(decision->proxyUrl(), L"");
    EXPECT_TRUE(decision->route().isDirect());
  }
}

TEST_F(DecisionTest, KnowsItsOrigin) {
  for (const std::wstring& url : {std::wstring(L"https://target:8443/"), std::wstring(L"http://[::1]:80/"),
                                  L"http://" + std::wstring(255, L'h') + L":65535/"}) {
    const auto decision =
        makeRef<Decision>(*Origin::parse(url), DecisionKind::Direct, Route(), 0U, KIV_REASON_REACHED, 0U, credentials);
    EXPECT_TRUE(decision->isFor(*Origin::parse(url)));
    EXPECT_EQ(decision->origin(), *Origin::parse(url));
    EXPECT_EQ(decision->origin().url(), url);
  }
  const auto decision = makeRef<Decision>(*Origin::parse(L"http://target"), DecisionKind::Direct, Route(), 0U,
                                          KIV_REASON_REACHED, 0U, credentials);
  for (const wchar_t* url : {L"https://target:80", L"http://target:81", L"http://target1", L"http://targe"}) {
    EXPECT_FALSE(decision->isFor(*Origin::parse(url))) << url;
  }
}

}  // namespace
}  // namespace kiv::test
