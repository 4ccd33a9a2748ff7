// Tests of how the time that hostile texts take grows with their size: no worse than is documented.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>

#include "platform/platform_test.h"
#include "unit/support/hostile_families.h"

namespace kiv::test {
namespace {

constexpr std::size_t kFactor = 8;
// Beyond noise, but far below the next power of the factor.
constexpr double kMargin = 3;

// The least time that something took: what else the machine does can only add to it.
class LeastTime {
 public:
  void measure(const std::function<void()>& body) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    body();
    least_ = std::min(least_, std::chrono::duration<double>(Clock::now() - start).count());
  }
  double seconds() const { return least_; }

 private:
  double least_ = std::numeric_limits<double>::max();
};

class GrowthTest : public PlatformTest {
 protected:
  // On a busy machine more repetitions are needed; no number of them helps what really grows faster.
  static void expectGrowth(const HostileFamily& family) {
    constexpr int kLeastRepetitions = 4;
    constexpr int kMostRepetitions = 60;
    const bool isLinear = family.growth == Growth::Linear;
    const std::size_t size = isLinear ? 8 * 1024 : 512;
    const double most = kMargin * kFactor * (isLinear ? 1 : kFactor);
    const std::function<void()> small = family.prepare(size);
    const std::function<void()> large = family.prepare(size * kFactor);
    LeastTime smallTime;
    LeastTime largeTime;
    const auto holds = [&] { return largeTime.seconds() < smallTime.seconds() * most; };
    for (int i = 0; i < kLeastRepetitions || (i < kMostRepetitions && !holds()); ++i) {
      smallTime.measure(small);
      largeTime.measure(large);
    }
    EXPECT_TRUE(holds()) << family.name << ": from " << smallTime.seconds() << " s to " << largeTime.seconds() << " s";
  }
};

TEST_F(GrowthTest, IsNoWorseThanDocumentedForAnyFamilyOfHostileTexts) {
  for (const HostileFamily& family : hostileFamilies()) expectGrowth(family);
}

TEST_F(GrowthTest, IsNoticedWhenItIsWorse) {
  const HostileFamily square = {"Square", Growth::Linear, [](std::size_t size) {
                                  const std::size_t steps = size * size / 1024;
                                  return [steps] {
                                    for (volatile std::size_t i = 0; i < steps;) i = i + 1;
                                  };
                                }};
  ::testing::TestPartResultArray results;
  {
    const ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
    expectGrowth(square);
  }
  EXPECT_EQ(results.size(), 1);
}

}  // namespace
}  // namespace kiv::test
