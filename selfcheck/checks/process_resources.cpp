// What this process has of what the system lends.
#include "checks/process_resources.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/owners.h"

namespace selfcheck {
namespace {

// One handle of any process, as NtQuerySystemInformation lists them.
struct ListedHandle {
  std::uint16_t process;
  std::uint16_t trace;
  std::uint8_t type;
  std::uint8_t flags;
  std::uint16_t value;
  void* object;
  std::uint32_t access;
};

// Wine counts no handles of a process, but lists those of all.
std::size_t countListedHandles() {
  using Query = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);
  constexpr ULONG kSystemHandleInformation = 16;
  constexpr std::size_t kEnough = std::size_t{4} << 20;
  const auto query = reinterpret_cast<Query>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  std::vector<std::byte> list(kEnough);
  if (!query || query(kSystemHandleInformation, list.data(), kEnough, nullptr) != 0) return 0;
  ULONG count = 0;
  std::memcpy(&count, list.data(), sizeof(count));
  const auto* const handles = reinterpret_cast<const ListedHandle*>(list.data() + sizeof(void*));
  const auto process = static_cast<std::uint16_t>(GetCurrentProcessId());
  return static_cast<std::size_t>(
      std::count_if(handles, handles + count, [=](const ListedHandle& handle) { return handle.process == process; }));
}

std::size_t countHandles() {
  DWORD count = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &count) && count > 0) return count;
  return countListedHandles();
}

// Wine tells no private bytes: there it is the working set.
std::size_t privateBytes() {
  PROCESS_MEMORY_COUNTERS_EX memory{};
  GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory), sizeof(memory));
  return memory.PrivateUsage > 0 ? memory.PrivateUsage : memory.WorkingSetSize;
}

std::size_t countThreads() {
  const kiv::support::UniqueEvent snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 thread{};
  thread.dwSize = sizeof(thread);
  std::size_t count = 0;
  for (BOOL more = Thread32First(snapshot.get(), &thread); more; more = Thread32Next(snapshot.get(), &thread)) {
    count += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1U : 0U;
  }
  return count;
}

std::size_t growth(std::size_t before, std::size_t after) { return after > before ? after - before : 0; }

}  // namespace

Resources Resources::now() { return {countHandles(), privateBytes(), countThreads()}; }

Resources leastGrowth(const std::function<void()>& round) {
  constexpr int kRounds = 4;
  round();
  Resources least{SIZE_MAX, SIZE_MAX, SIZE_MAX};
  Resources before = Resources::now();
  for (int i = 0; i < kRounds; ++i) {
    round();
    const Resources after = Resources::now();
    least.handles = std::min(least.handles, growth(before.handles, after.handles));
    least.bytes = std::min(least.bytes, growth(before.bytes, after.bytes));
    least.threads = std::min(least.threads, growth(before.threads, after.threads));
    before = after;
  }
  return least;
}

}  // namespace selfcheck
