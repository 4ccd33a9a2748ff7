// Tests of the credentials of each proxy, and of what became of them.
#include "credentials/proxy_credentials.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using impl::Cred;
using session::makeRef;
using session::ProxyCredentials;
using session::Ref;
using session::Route;
using session::RouteKind;
using Question = ProxyCredentials::Question;

class ProxyCredentialsTest : public PlatformTest {
 protected:
  static Cred cred(const wchar_t* user, const wchar_t* password = L"open sesame") {
    return Cred::create(user, password).value();
  }
  // "user:password" of what is usable; empty if nothing is.
  std::wstring usable(const Route& route) const {
    const std::optional<Cred> found = credentials->usable(route);
    return found ? found->username() + L":" + std::wstring(found->password().view()) : std::wstring();
  }

  const Route proxy = {RouteKind::Http, L"proxy", 80};
  const Route other = {RouteKind::Http, L"other", 80};
  Ref<ProxyCredentials> credentials = makeRef<ProxyCredentials>();
};

TEST_F(ProxyCredentialsTest, AreTheAnswerElseWhatWasGiven) {
  EXPECT_EQ(usable(proxy), L"");
  credentials->give(proxy, cred(L"given", L"g"));
  EXPECT_EQ(usable(proxy), L"given:g");
  EXPECT_TRUE(credentials->answered(proxy, cred(L"answer", L"a")));
  EXPECT_EQ(usable(proxy), L"answer:a");
  EXPECT_EQ(usable(other), L"");
  credentials->refused(proxy, cred(L"answer", L"a"));
  EXPECT_EQ(usable(proxy), L"given:g");
  credentials->refused(proxy, cred(L"given", L"g"));
  EXPECT_EQ(usable(proxy), L"");
}

TEST_F(ProxyCredentialsTest, AreOfOneKindHostAndPort) {
  credentials->give(proxy, cred(L"u", L"p"));
  EXPECT_EQ(usable({RouteKind::Socks5, L"proxy", 80}), L"");
  EXPECT_EQ(usable({RouteKind::Http, L"proxy", 81}), L"");
  EXPECT_EQ(usable({RouteKind::Http, L"proxy2", 80}), L"");
}

TEST_F(ProxyCredentialsTest, AreRefusedByUserNameAndPassword) {
  credentials->refused(proxy, cred(L"u", L"p"));
  EXPECT_FALSE(credentials->answered(proxy, cred(L"u", L"p")));
  EXPECT_EQ(usable(proxy), L"");
  EXPECT_TRUE(credentials->answered(proxy, cred(L"u", L"P")));
  EXPECT_TRUE(credentials->answered(proxy, cred(L"U", L"p")));
  credentials->refused(proxy, cred(L"x", L"p"));
  credentials->refused(other, cred(L"U", L"p"));
  EXPECT_EQ(usable(proxy), L"U:p");
}

TEST_F(ProxyCredentialsTest, ThatWereRefusedCanBeGivenAndAreNotUsable) {
  credentials->refused(proxy, cred(L"u", L"p"));
  credentials->give(proxy, cred(L"u", L"p"));
  EXPECT_EQ(usable(proxy), L"");
  credentials->give(proxy, cred(L"u", L"other"));
  EXPECT_EQ(usable(proxy), L"u:other");
}

TEST_F(ProxyCredentialsTest, AreAskedForTwice) {
  EXPECT_EQ(credentials->question(proxy), Question::MayBeAsked);
  EXPECT_EQ(credentials->nextAttempt(proxy), 1U);
  EXPECT_TRUE(credentials->answered(proxy, cred(L"u", L"p")));
  credentials->refused(proxy, cred(L"u", L"p"));
  EXPECT_EQ(credentials->question(proxy), Question::MayBeAsked);
  EXPECT_EQ(credentials->nextAttempt(proxy), 2U);
  EXPECT_FALSE(credentials->answered(proxy, cred(L"u", L"p")));
  EXPECT_EQ(credentials->question(proxy), Question::AskedEnough);
  EXPECT_EQ(credentials->question(other), Question::MayBeAsked);
}

TEST_F(ProxyCredentialsTest, AreNotAskedForAgainOnceDeclined) {
  credentials->declined(proxy);
  EXPECT_EQ(credentials->question(proxy), Question::Declined);
  EXPECT_EQ(credentials->question(other), Question::MayBeAsked);
}

TEST_F(ProxyCredentialsTest, AreForgottenButForWhatWasGiven) {
  credentials->give(proxy, cred(L"given", L"g"));
  credentials->refused(proxy, cred(L"given", L"g"));
  EXPECT_TRUE(credentials->answered(proxy, cred(L"a", L"a")));
  EXPECT_TRUE(credentials->answered(proxy, cred(L"b", L"b")));
  EXPECT_TRUE(credentials->answered(other, cred(L"c", L"c")));
  credentials->declined(other);
  credentials->forget();
  EXPECT_EQ(usable(proxy), L"given:g");
  EXPECT_EQ(usable(other), L"");
  EXPECT_EQ(credentials->question(proxy), Question::MayBeAsked);
  EXPECT_EQ(credentials->question(other), Question::MayBeAsked);
  EXPECT_EQ(credentials->nextAttempt(proxy), 1U);
}

TEST_F(ProxyCredentialsTest, AreAllDroppedWhenTheSessionCloses) {
  credentials->give(proxy, cred(L"given", L"g"));
  EXPECT_TRUE(credentials->answered(proxy, cred(L"u", L"p")));
  EXPECT_FALSE(credentials->isClosed());
  credentials->close();
  EXPECT_TRUE(credentials->isClosed());
  EXPECT_EQ(usable(proxy), L"");
  credentials->give(proxy, cred(L"given", L"g"));
  EXPECT_FALSE(credentials->answered(proxy, cred(L"u", L"p")));
  credentials->forget();
  EXPECT_EQ(usable(proxy), L"");
  EXPECT_EQ(credentials->question(proxy), Question::Declined);
}

TEST_F(ProxyCredentialsTest, AreAllRefusedBeyondEightThatWere) {
  const auto numbered = [](std::size_t i) { return cred(L"u", std::to_wstring(i).c_str()); };
  for (std::size_t i = 0; i < ProxyCredentials::kMostRefused; ++i) {
    credentials->refused(proxy, numbered(i));
    credentials->refused(proxy, numbered(0));
  }
  EXPECT_TRUE(credentials->answered(proxy, numbered(100)));
  credentials->give(proxy, numbered(101));
  credentials->refused(proxy, numbered(102));
  EXPECT_EQ(usable(proxy), L"");
  EXPECT_FALSE(credentials->answered(proxy, numbered(103)));
  EXPECT_EQ(usable(proxy), L"");
}

TEST_F(ProxyCredentialsTest, AreKeptForAtMost1024Proxies) {
  const auto numbered = [](std::size_t i) { return Route{RouteKind::Http, std::to_wstring(i), 80}; };
  for (std::size_t i = 0; i < ProxyCredentials::kMostProxies - 1; ++i) credentials->declined(numbered(i));
  EXPECT_EQ(credentials->question(proxy), Question::MayBeAsked);
  EXPECT_TRUE(credentials->answered(proxy, cred(L"u", L"p")));
  EXPECT_EQ(credentials->question(proxy), Question::MayBeAsked);
  EXPECT_EQ(credentials->question(other), Question::Declined);
  EXPECT_FALSE(credentials->answered(other, cred(L"u", L"p")));
  credentials->give(other, cred(L"u", L"p"));
  credentials->refused(other, cred(L"u", L"p"));
  EXPECT_EQ(usable(other), L"");
  credentials->forget();
  EXPECT_EQ(credentials->question(other), Question::MayBeAsked);
  EXPECT_TRUE(credentials->answered(other, cred(L"u", L"p")));
}

TEST_F(ProxyCredentialsTest, ThatCannotBeComparedCountAsTheSame) {
  EXPECT_TRUE(credentials->answered(proxy, cred(L"u", L"p")));
  credentials->give(proxy, cred(L"v", L"p"));
  windows.failAlways("CryptUnprotectMemory", ERROR_GEN_FAILURE);
  credentials->refused(proxy, cred(L"u", L"other"));
  EXPECT_EQ(credentials->usable(proxy)->username(), L"v");
  EXPECT_FALSE(credentials->answered(proxy, cred(L"u", L"third")));
}

TEST_F(ProxyCredentialsTest, AreComparedAlsoIfAPasswordIsEmpty) {
  credentials->refused(proxy, cred(L"u", L""));
  EXPECT_FALSE(credentials->answered(proxy, cred(L"u", L"")));
  EXPECT_TRUE(credentials->answered(proxy, cred(L"u", L"p")));
}

TEST_F(ProxyCredentialsTest, AreNeverUsableAgainWhenMemoryRanOutAsTheyWereRefused) {
  const Route third = {RouteKind::Http, L"third", 80};
  for (std::size_t nth = 1;; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
    const Ref<ProxyCredentials> fresh = makeRef<ProxyCredentials>();
    const Cred wrong = cred(L"u", L"p");
    EXPECT_TRUE(fresh->answered(proxy, wrong));
    fresh->give(proxy, wrong);
    bool happened = false;
    {
      const MemoryWatch::AllocationFailure failure(nth);
      fresh->refused(proxy, wrong);
      fresh->refused(other, wrong);
      fresh->declined(third);
      happened = failure.happened();
    }
    EXPECT_FALSE(fresh->usable(proxy));
    EXPECT_FALSE(fresh->answered(proxy, wrong));
    EXPECT_FALSE(fresh->answered(other, wrong));
    EXPECT_EQ(fresh->question(third), Question::Declined);
    if (!happened) {
      EXPECT_GT(nth, 6U);
      return;
    }
  }
}

TEST_F(ProxyCredentialsTest, LeaveNoCopyOfAPasswordBehind) {
  const ExpectSecretWiped expectation(L"open sesame");
  const Ref<ProxyCredentials> fresh = makeRef<ProxyCredentials>();
  fresh->give(proxy, cred(L"given"));
  EXPECT_TRUE(fresh->answered(proxy, cred(L"u")));
  EXPECT_TRUE(fresh->usable(proxy));
  fresh->refused(proxy, cred(L"u"));
  EXPECT_FALSE(fresh->answered(proxy, cred(L"u")));
  fresh->forget();
  fresh->close();
}

}  // namespace
}  // namespace kiv::test
