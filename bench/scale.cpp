// How a resolution grows with the number of candidates and of bypass rules and with the length of a line: its time and
// its peak of memory, in a line of output for each size, "<family> <size> <nanoseconds> <bytes>". Run by callgrind, its
// instructions, in a file for each size, whose trigger is "<family> <size>".
#include <malloc.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "application.h"
#include "inputs.h"
#include "peak_memory.h"

namespace kiv::bench {
namespace {

struct Family {
  const char* name;
  std::size_t least;
  std::size_t most;
  std::size_t (*candidates)(std::size_t size);
  std::wstring (*bypassList)(std::size_t size);
};

const Family kFamilies[] = {
    {"candidates", 1'000, 128'000, [](std::size_t size) { return size; }, [](std::size_t) { return std::wstring(); }},
    {"rules", 1'000, 128'000, [](std::size_t) { return std::size_t{1}; }, bypassText},
    {"characters", 1 << 14, 1 << 20, [](std::size_t) { return std::size_t{1}; },
     [](std::size_t size) { return std::wstring(size, L'a'); }},
};

std::vector<std::size_t> sizesOf(const Family& family) {
  std::vector<std::size_t> sizes;
  for (std::size_t size = family.least; size <= family.most; size *= 2) sizes.push_back(size);
  return sizes;
}

Application applicationOf(const Family& family, std::size_t size) {
  return {family.candidates(size), family.bypassList(size), Application::Log::Dropped};
}

// The processor's time that one run takes, of as many runs as make a time that a clock can tell.
double nanosecondsOf(Application& application) {
  constexpr std::clock_t kLeast = CLOCKS_PER_SEC / 200;
  application.resolve();
  const std::clock_t start = std::clock();
  std::size_t runs = 0;
  for (; std::clock() - start < kLeast; ++runs) application.resolve();
  return static_cast<double>(std::clock() - start) * (1e9 / CLOCKS_PER_SEC) / static_cast<double>(runs);
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
    for (const std::size_t size : sizesOf(family)) {
      Application application = applicationOf(family, size);
      peaks[size] = peakBytesOf([&] { application.resolve(); });
      times[size].push_back(nanosecondsOf(application));
    }
  }
  for (const auto& [size, figures] : times) {
    std::printf("%s %zu %.0f %zu\n", family.name, size, medianOf(figures), peaks[size]);
  }
}

// Only of the resolution: neither making its input nor what only the first one does is counted.
void countInstructions(const Family& family) {
  for (const std::size_t size : sizesOf(family)) {
    Application application = applicationOf(family, size);
    const std::string name = std::string(family.name) + ' ' + std::to_string(size);
    application.resolve();
    CALLGRIND_START_INSTRUMENTATION;
    application.resolve();
    CALLGRIND_STOP_INSTRUMENTATION;
    CALLGRIND_DUMP_STATS_AT(name.c_str());
  }
}

}  // namespace
}  // namespace kiv::bench

int main() {
  // Memory stays with the process, or the system's cost of handing out pages again and again is all that is seen.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  const auto work = RUNNING_ON_VALGRIND ? kiv::bench::countInstructions : kiv::bench::measure;
  for (const kiv::bench::Family& family : kiv::bench::kFamilies) work(family);
}
