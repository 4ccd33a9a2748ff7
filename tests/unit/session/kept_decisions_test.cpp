// Tests of the decisions that are remembered.
#include "routes/kept_decisions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

using session::Decision;
using session::DecisionKind;
using session::KeptDecisions;
using session::kNever;
using session::makeRef;
using session::Origin;
using session::ProxyCredentials;
using session::Ref;
using session::Route;
using session::RouteKind;
using session::Time;

Origin origin(std::size_t number) {
  return *Origin::parse(L"https://host" + std::to_wstring(number) + L".a.rather.long.name.of.a.server.example/path");
}

class KeptDecisionsTest : public PlatformTest {
 protected:
  Ref<Decision> decision(const Origin& target, Time madeAt = 0) {
    return makeRef<Decision>(target, DecisionKind::Proxy, Route{RouteKind::Http, L"proxy.example", 3128}, 0U,
                             KIV_REASON_REACHED, madeAt, credentials);
  }
  void keep(KeptDecisions& kept, std::size_t number) {
    kept.keep(origin(number), decision(origin(number), number), kNever, kNever);
  }
  static bool has(KeptDecisions& kept, std::size_t number) {
    const KeptDecisions::Found found = kept.find(origin(number), 0);
    if (found.decision) {
      EXPECT_TRUE(found.decision->isFor(origin(number)));
    }
    return static_cast<bool>(found.decision);
  }

  Ref<ProxyCredentials> credentials = makeRef<ProxyCredentials>();
};

TEST_F(KeptDecisionsTest, AreFoundByTheirOrigin) {
  KeptDecisions kept(10);
  EXPECT_FALSE(has(kept, 1));
  const Ref<Decision> made = decision(origin(1));
  kept.keep(origin(1), made, 100, 200);
  EXPECT_EQ(kept.find(origin(1), 0).decision, made);
  EXPECT_FALSE(has(kept, 2));
  EXPECT_FALSE(kept.find(*Origin::parse(L"http://host1.a.rather.long.name.of.a.server.example"), 0).decision);
  EXPECT_EQ(kept.size(), 1U);
}

TEST_F(KeptDecisionsTest, AreFreshAndThenKeptAndThenGone) {
  KeptDecisions kept(10);
  kept.keep(origin(1), decision(origin(1)), 100, 200);
  EXPECT_TRUE(kept.find(origin(1), 99).fresh);
  EXPECT_FALSE(kept.find(origin(1), 100).fresh);
  EXPECT_TRUE(kept.find(origin(1), 199).decision);
  EXPECT_FALSE(kept.find(origin(1), 200).decision);
  EXPECT_FALSE(kept.find(origin(1), 200).fresh);
}

TEST_F(KeptDecisionsTest, ReplaceTheFormerOne) {
  KeptDecisions kept(1);
  const Ref<Decision> second = decision(origin(1));
  kept.keep(origin(1), decision(origin(1)), 100, 200);
  kept.keep(origin(1), second, 300, 400);
  EXPECT_EQ(kept.find(origin(1), 299).decision, second);
  EXPECT_TRUE(kept.find(origin(1), 299).fresh);
  EXPECT_EQ(kept.size(), 1U);
}

TEST_F(KeptDecisionsTest, AreDropped) {
  KeptDecisions kept(100);
  for (std::size_t i = 0; i < 100; ++i) keep(kept, i);
  kept.drop(origin(50));
  kept.drop(origin(50));
  EXPECT_FALSE(has(kept, 50));
  kept.dropIf([](const Decision& each) { return each.madeAt() % 2 == 1; });
  for (std::size_t i = 0; i < 100; ++i) EXPECT_EQ(has(kept, i), i % 2 == 0 && i != 50) << i;
  EXPECT_EQ(kept.size(), 49U);
  kept.dropAll();
  for (std::size_t i = 0; i < 100; ++i) EXPECT_FALSE(has(kept, i)) << i;
  EXPECT_EQ(kept.size(), 0U);
  keep(kept, 1);
  EXPECT_TRUE(has(kept, 1));
}

TEST_F(KeptDecisionsTest, AreAsManyAsThereIsRoomFor) {
  for (const std::size_t capacity : {1U, 2U, 63U, 64U, 65U, 1024U, 10'000U}) {
    KeptDecisions kept(capacity);
    for (std::size_t i = 0; i < capacity; ++i) keep(kept, i);
    EXPECT_EQ(kept.size(), capacity);
    std::size_t found = 0;
    for (std::size_t i = 0; i < capacity; ++i) found += has(kept, i) ? 1 : 0;
    EXPECT_EQ(found, capacity);
    for (std::size_t i = capacity; i < capacity + 100; ++i) {
      keep(kept, i);
      EXPECT_TRUE(has(kept, i));
      EXPECT_EQ(kept.size(), capacity);
    }
  }
}

TEST_F(KeptDecisionsTest, MakeRoomWithThoseThatWereNotUsed) {
  for (const std::size_t capacity : {2U, 3U, 64U, 1000U}) {
    KeptDecisions kept(capacity);
    for (std::size_t i = 0; i < capacity; ++i) keep(kept, i);
    for (std::size_t i = capacity; i < 4 * capacity; ++i) {
      EXPECT_TRUE(has(kept, 0)) << i << " of " << capacity;
      keep(kept, i);
    }
    EXPECT_TRUE(has(kept, 0));
    EXPECT_FALSE(has(kept, 1));
    EXPECT_EQ(has(kept, 4 * capacity - 2), capacity > 2);
  }
}

TEST_F(KeptDecisionsTest, MakeRoomInTheOrderInWhichTheyCameIfNoneWasUsed) {
  KeptDecisions kept(3);
  for (std::size_t i = 0; i < 5; ++i) keep(kept, i);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(has(kept, i), i >= 2) << i;
}

TEST_F(KeptDecisionsTest, AreNotUsedByAnAskerWhoComesTooLate) {
  KeptDecisions kept(2);
  kept.keep(origin(1), decision(origin(1)), 1, 1);
  keep(kept, 2);
  EXPECT_FALSE(kept.find(origin(1), 1).decision);
  EXPECT_TRUE(has(kept, 2));
  keep(kept, 3);
  EXPECT_TRUE(has(kept, 2));
  EXPECT_TRUE(has(kept, 3));
}

TEST_F(KeptDecisionsTest, AreFoundWithoutMemoryAndWithoutTheSystem) {
  KeptDecisions kept(10);
  keep(kept, 1);
  has(kept, 1);
  const Origin known = origin(1);
  const Origin unknown = origin(2);
  const std::size_t calls = windows.callNames().size();
  const MemoryWatch::AllocationFailure allocations(0);
  static_cast<void>(kept.find(known, 0));
  static_cast<void>(kept.find(unknown, 0));
  EXPECT_EQ(allocations.count(), 0U);
  EXPECT_EQ(windows.callNames().size(), calls);
}

TEST_F(KeptDecisionsTest, TakeLessThan1024BytesEach) {
  const MemoryWatch::Scope scope;
  KeptDecisions kept(10'000);
  for (std::size_t i = 0; i < 10'000; ++i) {
    kept.keep(origin(i), decision(origin(i)), kNever, kNever);
  }
  ASSERT_EQ(kept.size(), 10'000U);
  EXPECT_LT(scope.liveBytes() + sizeof(kept), 10'000 * 1024U);
}

TEST_F(KeptDecisionsTest, OfTheLongestHostTakeLessThan1024Bytes) {
  KeptDecisions kept(2);
  const Origin longest = *Origin::parse(L"https://" + std::wstring(255, L'h'));
  keep(kept, 1);
  const MemoryWatch::Scope scope;
  kept.keep(longest, decision(longest), kNever, kNever);
  EXPECT_GT(scope.liveBytes(), 255U);
  EXPECT_LT(scope.liveBytes(), 1024U);
}

TEST_F(KeptDecisionsTest, StayAsTheyAreIfMemoryRunsOut) {
  for (const std::size_t capacity : {1U, 2U, 100U}) {
    for (std::size_t nth = 1;; ++nth) {
      KeptDecisions kept(capacity);
      keep(kept, 1);
      const Ref<Decision> made = decision(origin(2));
      bool failed = false;
      try {
        const MemoryWatch::AllocationFailure failure(nth);
        kept.keep(origin(2), made, kNever, kNever);
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      EXPECT_EQ(has(kept, 2), !failed);
      EXPECT_EQ(has(kept, 1), failed || capacity > 1);
      if (!failed) {
        EXPECT_GT(nth, 1U);
        break;
      }
    }
  }
}

TEST_F(KeptDecisionsTest, AreReleasedWhenTheyGo) {
  const MemoryWatch::Scope scope;
  {
    KeptDecisions kept(2);
    for (std::size_t i = 0; i < 5; ++i) keep(kept, i);
    const Ref<Decision> held = kept.find(origin(4), 0).decision;
    kept.dropAll();
    EXPECT_EQ(held->madeAt(), 4U);
  }
  EXPECT_EQ(scope.liveBlocks(), 0U);
}

}  // namespace
}  // namespace kiv::test
