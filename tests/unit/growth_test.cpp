// Tests of how the time and memory that hostile texts take grow with their size: no worse than is documented.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <limits>

#include "platform/memory_watch.h"
#include "platform/platform_test.h"
#include "unit/support/hostile_families.h"

namespace kiv::test {
namespace {

// Two sizes of a text, and how many times longer the larger may take: what is documented, times a margin that is beyond
// noise and what caches make of larger blocks, but below what the next power of the size would give.
struct Sizes {
  std::size_t small;
  std::size_t large;
  double most;
};

constexpr Sizes sizesFor(Growth growth) {
  return growth == Growth::Linear ? Sizes{2 * 1024, 64 * 1024, 32 * 12.} : Sizes{512, 4 * 1024, 8 * 8 * 3.};
}

// The least time that something took: what else the machine does can only add to it.
class LeastTime {
 public:
  // On average of some times in succession: a clock may count in tenths of a microsecond.
  void measure(const std::function<void()>& body, int times) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    for (int i = 0; i < times; ++i) body();
    least_ = std::min(least_, std::chrono::duration<double>(Clock::now() - start).count() / times);
  }
  double seconds() const { return least_; }

 private:
  double least_ = std::numeric_limits<double>::max();
};

class GrowthTest : public PlatformTest {
 protected:
  // On a busy machine more repetitions are needed; no number of them helps what really grows faster.
  static void expectGrowth(const HostileFamily& family) {
    constexpr int kMostRepetitions = 60;
    constexpr int kSmallForOneLarge = 8;
    const Sizes sizes = sizesFor(family.growth);
    const std::function<void()> small = family.prepare(sizes.small);
    const std::function<void()> large = family.prepare(sizes.large);
    // Heaps ask the system for larger blocks anew each time, which takes longer than all that is done with them.
    const MemoryWatch::Recycling recycling;
    LeastTime smallTime;
    LeastTime largeTime;
    const auto holds = [&] { return largeTime.seconds() < smallTime.seconds() * sizes.most; };
    int repetitions = 0;
    do {
      smallTime.measure(small, kSmallForOneLarge);
      largeTime.measure(large, 1);
    } while (!holds() && ++repetitions < kMostRepetitions);
    EXPECT_TRUE(holds()) << family.name << ": from " << smallTime.seconds() << " s to " << largeTime.seconds() << " s";
  }

  // Memory grows linearly, that of square time too. A container may have twice the room that it needs.
  static void expectLinearMemory(const HostileFamily& family) {
    const Sizes sizes = sizesFor(family.growth);
    const auto bytesFor = [&family](std::size_t size) {
      const std::function<void()> body = family.prepare(size);
      const MemoryWatch::Scope scope;
      body();
      return scope.mostBytes();
    };
    const std::size_t small = bytesFor(sizes.small);
    const std::size_t large = bytesFor(sizes.large);
    EXPECT_LE(large, small * (sizes.large / sizes.small) * 2) << family.name << ": from " << small << " bytes";
  }
};

// Fails the test that runs it if the check passes what it must not.
void expectNoticed(const std::function<void()>& check) {
  ::testing::TestPartResultArray results;
  {
    const ::testing::ScopedFakeTestPartResultReporter reporter(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
    check();
  }
  EXPECT_EQ(results.size(), 1);
}

TEST_F(GrowthTest, IsNoWorseThanDocumentedForAnyFamilyOfHostileTexts) {
  for (const HostileFamily& family : hostileFamilies()) expectGrowth(family);
}

TEST_F(GrowthTest, IsNoticedWhenItIsWorse) {
  const HostileFamily square = {"Square", Growth::Linear, [](std::size_t size) {
                                  const std::size_t steps = size * size / 8192;
                                  return [steps] {
                                    for (volatile std::size_t i = 0; i < steps;) i = i + 1;
                                  };
                                }};
  expectNoticed([&] { expectGrowth(square); });
}

TEST_F(GrowthTest, AsksForNoMoreMemoryThanDocumentedForAnyFamilyOfHostileTexts) {
  for (const HostileFamily& family : hostileFamilies()) expectLinearMemory(family);
}

TEST_F(GrowthTest, IsNoticedWhenItAsksForMoreMemory) {
  const HostileFamily square = {"Square", Growth::Linear, [](std::size_t size) {
                                  return [size] { const std::vector<char> block(size * size / 1024); };
                                }};
  expectNoticed([&] { expectLinearMemory(square); });
}

}  // namespace
}  // namespace kiv::test
