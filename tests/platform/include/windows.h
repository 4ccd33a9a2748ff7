// The part of the system's base declarations that the library uses, for builds on other systems; layouts as on Windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#define WINAPI
#define CALLBACK
#define TRUE 1
#define FALSE 0

using BYTE = std::uint8_t;
using BOOLEAN = BYTE;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using UINT = unsigned int;
using INT = int;
using BOOL = int;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using INT_PTR = std::intptr_t;
using DWORD_PTR = std::uintptr_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using CHAR = char;
using WCHAR = wchar_t;
#define VOID void

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using PULONG = ULONG*;
using LPBOOL = BOOL*;
using LPSTR = char*;
using PSTR = char*;
using LPCSTR = const char*;
using PCSTR = const char*;
using LPCCH = const char*;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PCWSTR = const wchar_t*;
using LPCWCH = const wchar_t*;

using HANDLE = void*;
using PHANDLE = HANDLE*;
using HGLOBAL = HANDLE;
using HWND = struct HWND__*;
using HBITMAP = struct HBITMAP__*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using FARPROC = INT_PTR (*)();
using LPSECURITY_ATTRIBUTES = struct SecurityAttributes*;

using UCHAR = unsigned char;
using USHORT = std::uint16_t;
using ULONG64 = std::uint64_t;
union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  std::int64_t QuadPart;
};
static_assert(sizeof(LARGE_INTEGER) == 8);

#define LOAD_LIBRARY_SEARCH_SYSTEM32 0x00000800u
#define NTAPI

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
using PFILETIME = FILETIME*;
static_assert(sizeof(FILETIME) == 8);

struct SRWLOCK {
  PVOID Ptr;
};
using PSRWLOCK = SRWLOCK*;
#define SRWLOCK_INIT \
  { 0 }

struct CONDITION_VARIABLE {
  PVOID Ptr;
};
using PCONDITION_VARIABLE = CONDITION_VARIABLE*;
#define CONDITION_VARIABLE_INIT \
  { 0 }
#define CONDITION_VARIABLE_LOCKMODE_SHARED 0x1u

using PTP_CALLBACK_INSTANCE = struct _TP_CALLBACK_INSTANCE*;
using PTP_CALLBACK_ENVIRON = struct TP_CALLBACK_ENVIRON*;
using TP_WORK = struct _TP_WORK;
using TP_TIMER = struct _TP_TIMER;
using TP_WAIT = struct _TP_WAIT;
using PTP_WORK = TP_WORK*;
using PTP_TIMER = TP_TIMER*;
using PTP_WAIT = TP_WAIT*;
using TP_WAIT_RESULT = DWORD;
using PTP_SIMPLE_CALLBACK = void(CALLBACK*)(PTP_CALLBACK_INSTANCE, PVOID);
using PTP_WORK_CALLBACK = void(CALLBACK*)(PTP_CALLBACK_INSTANCE, PVOID, PTP_WORK);
using PTP_TIMER_CALLBACK = void(CALLBACK*)(PTP_CALLBACK_INSTANCE, PVOID, PTP_TIMER);
using PTP_WAIT_CALLBACK = void(CALLBACK*)(PTP_CALLBACK_INSTANCE, PVOID, PTP_WAIT, TP_WAIT_RESULT);

#define TOKEN_DUPLICATE 0x0002u
#define TOKEN_IMPERSONATE 0x0004u
#define TOKEN_QUERY 0x0008u

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0u
#define WAIT_TIMEOUT 258u
#define WAIT_FAILED 0xFFFFFFFFu

#define NO_ERROR 0u
#define ERROR_SUCCESS 0u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_INVALID_HANDLE 6u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_INVALID_DATA 13u
#define ERROR_OUTOFMEMORY 14u
#define ERROR_GEN_FAILURE 31u
#define ERROR_NOT_SUPPORTED 50u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_INSUFFICIENT_BUFFER 122u
#define ERROR_INVALID_NAME 123u
#define ERROR_MOD_NOT_FOUND 126u
#define ERROR_PROC_NOT_FOUND 127u
#define ERROR_ENVVAR_NOT_FOUND 203u
#define ERROR_NO_TOKEN 1008u
#define ERROR_CANCELLED 1223u
#define ERROR_LOGON_FAILURE 1326u
#define ERROR_BAD_IMPERSONATION_LEVEL 1346u
#define ERROR_TIMEOUT 1460u

#define CP_ACP 0u
#define CP_THREAD_ACP 3u
#define CP_UTF8 65001u

extern "C" {
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD code);
HGLOBAL WINAPI GlobalFree(HGLOBAL block);
HMODULE WINAPI LoadLibraryW(LPCWSTR fileName);
FARPROC WINAPI GetProcAddress(HMODULE module, LPCSTR name);
BOOL WINAPI FreeLibrary(HMODULE module);
HMODULE WINAPI LoadLibraryExW(LPCWSTR fileName, HANDLE file, DWORD flags);
HMODULE WINAPI GetModuleHandleW(LPCWSTR moduleName);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wide, int wideLength, LPSTR narrow, int narrowSize,
                               LPCCH defaultCharacter, LPBOOL usedDefault);
int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH narrow, int narrowLength, LPWSTR wide, int wideSize);
DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
BOOL WINAPI ResetEvent(HANDLE event);
DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL WINAPI CloseHandle(HANDLE handle);
DWORD WINAPI GetCurrentThreadId();
ULONGLONG WINAPI GetTickCount64();
void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock);
void WINAPI AcquireSRWLockShared(PSRWLOCK lock);
void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock);
void WINAPI ReleaseSRWLockShared(PSRWLOCK lock);
BOOL WINAPI SleepConditionVariableSRW(PCONDITION_VARIABLE variable, PSRWLOCK lock, DWORD milliseconds, ULONG flags);
void WINAPI WakeConditionVariable(PCONDITION_VARIABLE variable);
void WINAPI WakeAllConditionVariable(PCONDITION_VARIABLE variable);
BOOL WINAPI TrySubmitThreadpoolCallback(PTP_SIMPLE_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment);
BOOL WINAPI CallbackMayRunLong(PTP_CALLBACK_INSTANCE instance);
PTP_WORK WINAPI CreateThreadpoolWork(PTP_WORK_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment);
void WINAPI SubmitThreadpoolWork(PTP_WORK work);
void WINAPI WaitForThreadpoolWorkCallbacks(PTP_WORK work, BOOL cancelPending);
void WINAPI CloseThreadpoolWork(PTP_WORK work);
PTP_TIMER WINAPI CreateThreadpoolTimer(PTP_TIMER_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment);
void WINAPI SetThreadpoolTimer(PTP_TIMER timer, PFILETIME due, DWORD period, DWORD window);
void WINAPI WaitForThreadpoolTimerCallbacks(PTP_TIMER timer, BOOL cancelPending);
void WINAPI CloseThreadpoolTimer(PTP_TIMER timer);
PTP_WAIT WINAPI CreateThreadpoolWait(PTP_WAIT_CALLBACK callback, PVOID context, PTP_CALLBACK_ENVIRON environment);
void WINAPI SetThreadpoolWait(PTP_WAIT wait, HANDLE event, PFILETIME limit);
void WINAPI WaitForThreadpoolWaitCallbacks(PTP_WAIT wait, BOOL cancelPending);
void WINAPI CloseThreadpoolWait(PTP_WAIT wait);
HANDLE WINAPI GetCurrentThread();
BOOL WINAPI OpenThreadToken(HANDLE thread, DWORD access, BOOL openAsSelf, PHANDLE token);
BOOL WINAPI SetThreadToken(PHANDLE thread, HANDLE token);
BOOL WINAPI RevertToSelf();
int WINAPI IdnToAscii(DWORD flags, LPCWSTR unicode, int unicodeLength, LPWSTR ascii, int asciiSize);
}

// Not memset, whose stores the compiler drops if nothing reads the memory again.
inline PVOID SecureZeroMemory(PVOID memory, SIZE_T size) {
  explicit_bzero(memory, size);
  return memory;
}

#include <winreg.h>
