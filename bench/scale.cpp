// How a resolution's time and its peak of memory grow with the number of candidates and of bypass rules and with the
// length of a line: a line of output for each size, "<family> <size> <nanoseconds> <bytes>".
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "application.h"
#include "inputs.h"
#include "peak_memory.h"

namespace kiv::bench {
namespace {

using Clock = std::chrono::steady_clock;

struct Family {
  const char* name;
  std::vector<std::size_t> sizes;
  std::size_t (*candidates)(std::size_t size);
  std::wstring (*bypassList)(std::size_t size);
};

const Family kFamilies[] = {
    {"candidates",
     {1'000, 2'000, 5'000, 10'000, 20'000, 50'000, 100'000},
     [](std::size_t size) { return size; },
     [](std::size_t) { return std::wstring(); }},
    {"rules",
     {1'000, 2'000, 5'000, 10'000, 20'000, 50'000, 100'000},
     [](std::size_t) { return std::size_t{1}; },
     bypassText},
    {"characters",
     {1 << 14, 1 << 15, 1 << 16, 1 << 17, 1 << 18, 1 << 19, 1 << 20},
     [](std::size_t) { return std::size_t{1}; },
     [](std::size_t size) { return std::wstring(size, L'a'); }},
};

// How long one run takes, of as many as make a time that a clock can tell.
double nanosecondsOf(Application& application) {
  constexpr std::chrono::milliseconds kLeast{5};
  application.resolve();
  const Clock::time_point start = Clock::now();
  std::size_t runs = 0;
  for (; Clock::now() - start < kLeast; ++runs) application.resolve();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / static_cast<double>(runs);
}

double medianOf(std::vector<double> figures) {
  const auto middle = figures.begin() + static_cast<std::ptrdiff_t>(figures.size() / 2);
  std::nth_element(figures.begin(), middle, figures.end());
  return *middle;
}

// The sizes alternate, so that what else the machine does is spread over all of them.
void measure(const Family& family) {
  constexpr int kRounds = 9;
  std::map<std::size_t, std::vector<double>> times;
  std::map<std::size_t, std::size_t> peaks;
  for (int round = 0; round < kRounds; ++round) {
    for (const std::size_t size : family.sizes) {
      Application application(family.candidates(size), family.bypassList(size), Application::Log::Dropped);
      peaks[size] = peakBytesOf([&] { application.resolve(); });
      times[size].push_back(nanosecondsOf(application));
    }
  }
  for (const auto& [size, figures] : times) {
    std::printf("%s %zu %.0f %zu\n", family.name, size, medianOf(figures), peaks[size]);
  }
}

}  // namespace
}  // namespace kiv::bench

int main() {
  // Memory stays with the process, or the system's cost of handing out pages again and again is all that is seen.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  for (const kiv::bench::Family& family : kiv::bench::kFamilies) kiv::bench::measure(family);
}
