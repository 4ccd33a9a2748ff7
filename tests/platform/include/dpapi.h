// Protection of memory, for builds on other systems.
#pragma once

#include <windows.h>

#define CRYPTPROTECTMEMORY_BLOCK_SIZE 16
#define CRYPTPROTECTMEMORY_SAME_PROCESS 0x0
#define CRYPTPROTECTMEMORY_CROSS_PROCESS 0x1
#define CRYPTPROTECTMEMORY_SAME_LOGON 0x2

extern "C" {
BOOL WINAPI CryptProtectMemory(LPVOID data, DWORD size, DWORD flags);
BOOL WINAPI CryptUnprotectMemory(LPVOID data, DWORD size, DWORD flags);
}
