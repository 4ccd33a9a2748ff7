// Registry keys and their changes, for builds on other systems.
#pragma once

#include <windows.h>

#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002))))
#define KEY_QUERY_VALUE 0x0001
#define KEY_NOTIFY 0x0010
#define KEY_READ 0x20019
#define REG_NOTIFY_CHANGE_NAME 0x00000001
#define REG_NOTIFY_CHANGE_ATTRIBUTES 0x00000002
#define REG_NOTIFY_CHANGE_LAST_SET 0x00000004
#define REG_NOTIFY_CHANGE_SECURITY 0x00000008
#define REG_NOTIFY_THREAD_AGNOSTIC 0x10000000

using HKEY = struct HKEY__*;
using PHKEY = HKEY*;
using REGSAM = DWORD;
using LSTATUS = LONG;

extern "C" {
LSTATUS WINAPI RegOpenCurrentUser(REGSAM access, PHKEY result);
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL watchSubtree, DWORD filter, HANDLE event, BOOL asynchronous);
LSTATUS WINAPI RegCloseKey(HKEY key);
}
