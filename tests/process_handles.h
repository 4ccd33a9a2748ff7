/* How many handles this process has. Link with ntdll. */
#ifndef KIV_TESTS_PROCESS_HANDLES_H
#define KIV_TESTS_PROCESS_HANDLES_H

#include <stdlib.h>

#include <windows.h>
#include <winternl.h>

/* One handle of any process, as the system lists them. */
struct system_handle {
  USHORT process;
  USHORT trace;
  UCHAR type;
  UCHAR flags;
  USHORT value;
  void* object;
  ULONG access;
};
struct system_handles {
  ULONG count;
  struct system_handle handles[];
};

/* GetProcessHandleCount says 0 in Wine, which does keep the whole system's list. */
static int count_process_handles(void) {
  enum { SIZE = 4 << 20 };
  const SYSTEM_INFORMATION_CLASS system_handles = (SYSTEM_INFORMATION_CLASS)16;
  struct system_handles* list = malloc(SIZE);
  int count = 0;
  if (list && NtQuerySystemInformation(system_handles, list, SIZE, NULL) == 0) {
    for (ULONG i = 0; i < list->count; ++i) count += list->handles[i].process == (USHORT)GetCurrentProcessId();
  }
  free(list);
  return count;
}

#endif
