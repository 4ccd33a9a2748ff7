// Proves that the heap of the tests is watched: secrets are found, allocations fail on demand, blocks are counted.
#include "platform/memory_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include "platform/platform_test.h"

namespace kiv::test {
namespace {

constexpr std::wstring_view kSecret = L"open sesame";

// An escape for blocks, so that the compiler cannot leave the allocation out.
void* volatile sink;

TEST(MemoryWatch, FindsASecretInABlockThatIsReleased) {
  const MemoryWatch::SecretGuard guard(kSecret);
  auto wide = std::make_unique<std::wstring>(L"it is open sesame, of course");
  EXPECT_EQ(guard.scanLiveBlocks().size(), 1U);
  EXPECT_TRUE(guard.violations().empty());
  wide.reset();
  ASSERT_EQ(guard.violations().size(), 1U);
  EXPECT_NE(guard.violations()[0].find("a released block of"), std::string::npos);
}

TEST(MemoryWatch, FindsASecretInNarrowText) {
  const MemoryWatch::SecretGuard guard(kSecret);
  { const std::string narrow = "it is open sesame, of course"; }
  ASSERT_EQ(guard.violations().size(), 1U);
  EXPECT_NE(guard.violations()[0].find("UTF-8"), std::string::npos);
}

TEST(MemoryWatch, FindsNothingInABlockThatWasWiped) {
  const MemoryWatch::SecretGuard guard(kSecret);
  {
    std::wstring wide = L"it is open sesame, of course";
    SecureZeroMemory(wide.data(), wide.size() * sizeof(wchar_t));
  }
  EXPECT_TRUE(guard.violations().empty());
}

TEST(MemoryWatch, IgnoresBlocksOfTheTestItself) {
  auto before = std::make_unique<std::wstring>(L"it is open sesame, of course");
  const MemoryWatch::SecretGuard guard(kSecret);
  before.reset();
  {
    const MemoryWatch::Pause pause;
    const std::wstring paused = L"it is open sesame, of course";
  }
  // What a released block held is no property of the next one in its place.
  std::make_unique<std::array<char, 200>>();
  EXPECT_TRUE(guard.violations().empty());
}

TEST(MemoryWatch, WatchesOtherThreads) {
  const MemoryWatch::SecretGuard guard(kSecret);
  std::thread([] { const std::wstring copy = L"it is open sesame, of course"; }).join();
  EXPECT_EQ(guard.violations().size(), 1U);
}

TEST(MemoryWatch, FailsTheNthAllocation) {
  const auto failure = MemoryWatch::failNth(2);
  sink = ::operator new(8);
  ::operator delete(sink);
  EXPECT_EQ(failure.count(), 1U);
  EXPECT_EQ(::operator new(8, std::nothrow), nullptr);
  EXPECT_TRUE(failure.happened());
  sink = ::operator new(8, std::nothrow);
  EXPECT_NE(sink, nullptr);
  ::operator delete(sink);
}

TEST(MemoryWatch, ThrowsWhenAThrowingAllocationFails) {
  const auto failure = MemoryWatch::failNth(1);
  EXPECT_THROW(sink = ::operator new[](8), std::bad_alloc);
  sink = ::operator new (64, std::align_val_t{64});
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(sink) % 64, 0U);
  ::operator delete (sink, std::align_val_t{64});
  EXPECT_EQ(failure.count(), 2U);
}

TEST(MemoryWatch, CountsNeitherTheSimulatorsAllocationsNorOtherThreads) {
  SimulatedWindows windows;
  std::thread other([] {});
  const auto failure = MemoryWatch::failNth(1);
  HINTERNET session = WinHttpOpen(L"a name that is long enough for the heap", 0, nullptr, nullptr, 0);
  WinHttpCloseHandle(session);
  EXPECT_EQ(failure.count(), 0U);
  other.join();
}

TEST(MemoryWatch, FailsTheNthAllocationOfAllThreads) {
  const MemoryWatch::AllocationFailure failure(2, MemoryWatch::Threads::All);
  const auto allocates = [] {
    sink = ::operator new(8, std::nothrow);
    ::operator delete(sink);
    return sink != nullptr;
  };
  EXPECT_TRUE(allocates());
  bool other = true;
  bool paused = false;
  {
    // The thread's own needs are not counted.
    const MemoryWatch::Pause pause;
    std::thread([&] {
      {
        const MemoryWatch::Pause whilePaused;
        paused = allocates();
      }
      other = allocates();
    }).join();
  }
  EXPECT_TRUE(paused);
  EXPECT_FALSE(other);
  EXPECT_TRUE(failure.happened());
  EXPECT_TRUE(allocates());
  EXPECT_EQ(failure.count(), 3U);
}

TEST(MemoryWatch, CountsTheBlocksOfAScope) {
  const MemoryWatch::Scope scope;
  EXPECT_EQ(scope.liveBlocks(), 0U);
  auto block = std::make_unique<std::array<char, 100>>();
  sink = block.get();
  EXPECT_EQ(scope.liveBlocks(), 1U);
  block.reset();
  EXPECT_EQ(scope.liveBlocks(), 0U);
}

TEST(MemoryWatch, HandsReleasedBlocksOutAgainWhileRecycling) {
  const MemoryWatch::Recycling recycling;
  const auto addressOf = [](std::size_t size) {
    sink = ::operator new(size);
    ::operator delete(sink);
    return reinterpret_cast<std::uintptr_t>(sink);
  };
  const std::uintptr_t large = addressOf(1'000'000);
  const std::uintptr_t small = addressOf(100);
  EXPECT_NE(small, large);
  EXPECT_EQ(addressOf(1'000'000), large);
  EXPECT_EQ(addressOf(100), small);
  EXPECT_NE(addressOf(101), small);
}

TEST(MemoryWatch, SweepsThroughEveryAllocation) {
  int runs = 0;
  forEachAllocation([&](SimulatedWindows& windows, const auto& armed) {
    windows.environment[L"a name that is long enough for the heap"] = L"a value that is long enough for the heap";
    ++runs;
    armed([] {
      for (int index = 0; index < 3; ++index) {
        sink = ::operator new(8, std::nothrow);
        ::operator delete(sink);
      }
    });
  });
  EXPECT_EQ(runs, 4);
}

}  // namespace
}  // namespace kiv::test
