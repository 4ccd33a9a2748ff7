// Prints how long hostile texts take, from 1 Ki to 4 Mi characters, and the factor by which each doubling multiplies
// it.
//
// Expected of each family is what stands behind its name: about 2 where time is proportional to size, about 4 where it
// is to the square (there, both the rule and the host grow, which hosts in a resolution cannot: theirs end at 255).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>

#include "platform/simulated_windows.h"
#include "unit/support/hostile_families.h"

namespace {

using kiv::test::Growth;
using kiv::test::HostileFamily;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t kSmallest = 1024;
constexpr std::size_t kLargest = 4 * 1024 * 1024;
constexpr std::size_t kLargestOfSquares = 64 * 1024;

// The least of several times, since what else the machine does can only add to it.
double milliseconds(const std::function<void()>& body) {
  constexpr int kLeastRepetitions = 3;
  constexpr Milliseconds kEnough{50};
  Milliseconds least = Milliseconds::max();
  const auto start = Clock::now();
  for (int i = 0; i < kLeastRepetitions || Clock::now() - start < kEnough; ++i) {
    const auto before = Clock::now();
    body();
    least = std::min(least, Milliseconds(Clock::now() - before));
  }
  return least.count();
}

void measure(const HostileFamily& family) {
  const bool isLinear = family.growth == Growth::Linear;
  std::printf("%s, factor %d expected\n", family.name, isLinear ? 2 : 4);
  double before = 0;
  for (std::size_t size = kSmallest; size <= (isLinear ? kLargest : kLargestOfSquares); size *= 2) {
    const double now = milliseconds(family.prepare(size));
    std::printf("%8zu Ki %12.3f ms", size / 1024, now);
    if (before > 0) std::printf("  x %.2f", now / before);
    std::printf("\n");
    before = now;
  }
}

}  // namespace

// Takes a part of the families' names, to measure only those.
int main(int argc, char** argv) {
  const kiv::test::SimulatedWindows windows;
  for (const HostileFamily& family : kiv::test::hostileFamilies()) {
    if (argc < 2 || std::strstr(family.name, argv[1])) measure(family);
  }
}
