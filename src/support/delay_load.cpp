// Delay-loaded libraries, which are loaded when the first of their functions is called: the system's dialogs bring its
// windows with them, and most applications never ask a question or have a password. Where one is missing, its functions
// fail.
#include <cstring>

#include "support/platform.h"

// After the system's other headers.
#include <delayimp.h>

namespace {

// As most fail; as those do for which zero is success; and as the security packages do, of which nothing is called
// without credentials.
INT_PTR WINAPI no() { return FALSE; }
INT_PTR WINAPI notFound() { return ERROR_PROC_NOT_FOUND; }
INT_PTR WINAPI noPackage() { return static_cast<INT_PTR>(SEC_E_SECPKG_NOT_FOUND); }

struct Replacement {
  const char* name;
  FARPROC function;
};
constexpr Replacement kReplacements[] = {
    {"AcquireCredentialsHandleW", noPackage},
    {"CredUIPromptForWindowsCredentialsW", notFound},
    {"GetAddrInfoW", notFound},
    {"RegOpenCurrentUser", notFound},
    {"RegOpenKeyExW", notFound},
    {"WSAStartup", notFound},
};

FARPROC inPlaceOf(const char* name) {
  for (const Replacement& replacement : kReplacements) {
    if (std::strcmp(name, replacement.name) == 0) return replacement.function;
  }
  return no;
}

// Left to itself the helper would call LoadLibrary with the bare name, which searches the application's folder first
// ("Dynamic-link library search order"): whoever can write a file there would be shown the user's passwords. With this
// flag "%windows%\system32 is searched for the DLL and its dependencies. Directories in the standard search path are
// not searched" ("LoadLibraryExW function"). Windows 7 has the flag since its update KB2533623; before, the call fails
// and the library counts as missing.
HMODULE loadFromSystem(const char* name) { return LoadLibraryExA(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32); }

// The helper stores the function's address where the next call finds it. GNU's linker puts that place among the
// ordinary imports, and the one of binutils 2.44 makes all of these read-only, which the one of 2.40 did not: the
// helper's write would be an access violation. The place may lie across two pages; "a 2-byte range straddling a page
// boundary causes the protection attributes of both pages to be changed" ("VirtualProtect function").
void makeWritable(FARPROC* place) {
  DWORD former = 0;
  VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &former);
}

// A null result would let the helper go on to LoadLibrary, so a library that is missing is replaced by one that has
// none of its functions.
FARPROC WINAPI beforeEachStep(unsigned step, PDelayLoadInfo wanted) {
  if (step == dliNotePreGetProcAddress) makeWritable(wanted->ppfn);
  if (step != dliNotePreLoadLibrary) return nullptr;
  const HMODULE library = loadFromSystem(wanted->szDll);
  return reinterpret_cast<FARPROC>(library ? library : GetModuleHandleW(L"kernel32.dll"));
}

FARPROC WINAPI afterFailure(unsigned step, PDelayLoadInfo wanted) {
  return step == dliFailGetProc ? inPlaceOf(wanted->dlp.szProcName) : nullptr;
}

}  // namespace

// Where the toolchains' helpers look for the hooks; Visual C++'s header declares them constant.
#ifdef _MSC_VER
#define KIV_HOOK const PfnDliHook
#else
#define KIV_HOOK PfnDliHook
#endif
KIV_HOOK __pfnDliNotifyHook2 = beforeEachStep;
KIV_HOOK __pfnDliFailureHook2 = afterFailure;
