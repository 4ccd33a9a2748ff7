// Tests of proxies to which no connection could be made.
#include "routes/dead_proxies.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::DeadProxies;
using session::Route;
using session::RouteKind;

Route proxy(int number) { return {RouteKind::Http, L"proxy" + std::to_wstring(number), 80}; }

class DeadProxiesTest : public PlatformTest {
 protected:
  DeadProxies dead;
};

TEST_F(DeadProxiesTest, AreDeadUntilTheirTimeHasPassed) {
  EXPECT_FALSE(dead.isDead(proxy(1), 0));
  dead.died(proxy(1), 100);
  EXPECT_TRUE(dead.isDead(proxy(1), 99));
  EXPECT_FALSE(dead.isDead(proxy(1), 100));
  dead.died(proxy(1), 200);
  EXPECT_TRUE(dead.isDead(proxy(1), 199));
}

TEST_F(DeadProxiesTest, AreToldApartByKindHostAndPort) {
  dead.died({RouteKind::Http, L"a", 80}, 100);
  EXPECT_TRUE(dead.isDead({RouteKind::Http, L"a", 80}, 1));
  EXPECT_FALSE(dead.isDead({RouteKind::Https, L"a", 80}, 1));
  EXPECT_FALSE(dead.isDead({RouteKind::Http, L"b", 80}, 1));
  EXPECT_FALSE(dead.isDead({RouteKind::Http, L"a", 81}, 1));
}

TEST_F(DeadProxiesTest, LiveAfterASuccess) {
  dead.died(proxy(1), 100);
  dead.died(proxy(2), 100);
  dead.lives(proxy(1));
  dead.lives(proxy(3));
  EXPECT_FALSE(dead.isDead(proxy(1), 1));
  EXPECT_TRUE(dead.isDead(proxy(2), 1));
  dead.forget();
  EXPECT_FALSE(dead.isDead(proxy(2), 1));
}

TEST_F(DeadProxiesTest, ForgetTheOneThatDiedFirstWhenThereAreTooMany) {
  constexpr int kMost = DeadProxies::kMost;
  for (int i = 0; i < kMost; ++i) dead.died(proxy(i), 1000U + static_cast<unsigned>(i));
  dead.died(proxy(0), 5000);  // again: the first is now another
  EXPECT_TRUE(dead.isDead(proxy(1), 1));
  dead.died(proxy(kMost), 6000);
  EXPECT_TRUE(dead.isDead(proxy(0), 1));
  EXPECT_FALSE(dead.isDead(proxy(1), 1));
  EXPECT_TRUE(dead.isDead(proxy(2), 1));
  EXPECT_TRUE(dead.isDead(proxy(kMost), 1));
}

}  // namespace
}  // namespace kiv::test
