/* What this process holds of the system's, and whether that grew. Link with ntdll. */
#ifndef KIV_TESTS_USAGE_H
#define KIV_TESTS_USAGE_H

#include <stdint.h>
#include <wchar.h>

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

#include "../../process_handles.h"

/* Threads of the system come and go, with their handles; a leak of one in each resolution is far beyond this. */
enum { HANDLE_MARGIN = 32, THREAD_MARGIN = 8, MEMORY_MARGIN_KIB = 8 * 1024 };

struct usage {
  int handles;
  int threads;
  uint64_t working_set_kib;
};

static int count_threads(void) {
  THREADENTRY32 thread = {.dwSize = sizeof thread};
  int count = 0;
  const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  for (BOOL more = Thread32First(all, &thread); more; more = Thread32Next(all, &thread)) {
    count += thread.th32OwnerProcessID == GetCurrentProcessId();
  }
  CloseHandle(all);
  return count;
}

static struct usage usage_now(void) {
  struct usage usage = {count_process_handles(), count_threads(), 0};
  PROCESS_MEMORY_COUNTERS memory = {.cb = sizeof memory};
  if (K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory)) {
    usage.working_set_kib = memory.WorkingSetSize / 1024;
  }
  return usage;
}

static void print_usage(const wchar_t* when, struct usage usage) {
  wprintf(L"%ls: %d handles, %d threads, working set %llu KiB\n", when, usage.handles, usage.threads,
          (unsigned long long)usage.working_set_kib);
}

/* Prints each figure's verdict; whether all passed. */
static int has_not_grown(struct usage warm, struct usage end) {
  const struct {
    const wchar_t* what;
    long long grown, margin;
  } figures[] = {
      {L"handles", end.handles - warm.handles, HANDLE_MARGIN},
      {L"threads", end.threads - warm.threads, THREAD_MARGIN},
      {L"KiB of working set", (long long)(end.working_set_kib - warm.working_set_kib), MEMORY_MARGIN_KIB},
  };
  int all = 1;
  for (size_t i = 0; i < sizeof figures / sizeof *figures; ++i) {
    const int passed = figures[i].grown <= figures[i].margin;
    wprintf(L"%+lld %ls (goal: at most %+lld): %ls\n", figures[i].grown, figures[i].what, figures[i].margin,
            passed ? L"pass" : L"miss");
    all &= passed;
  }
  return all;
}

#endif
