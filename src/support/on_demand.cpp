// Libraries that are loaded when the first of their functions is called: the system's dialogs bring its windows with
// them, and most hosts never ask a question or have a password. Where one of them is missing, its functions fail.
#include <cstring>

#include "support/platform.h"

// After the system's other headers.
#include <delayimp.h>

namespace {

// As the prompt fails, and as all others do.
INT_PTR WINAPI notFound() { return ERROR_PROC_NOT_FOUND; }
INT_PTR WINAPI no() { return FALSE; }

// A library that is missing is first stood in for by one that has none of its functions.
FARPROC WINAPI standIn(unsigned failure, PDelayLoadInfo wanted) {
  if (failure == dliFailLoadLib) return reinterpret_cast<FARPROC>(GetModuleHandleW(L"kernel32.dll"));
  if (failure != dliFailGetProc) return nullptr;
  return std::strcmp(wanted->dlp.szProcName, "CredUIPromptForWindowsCredentialsW") == 0 ? notFound : no;
}

}  // namespace

// Where the toolchains look for it; one of them declares it constant.
#ifdef _MSC_VER
const
#endif
    PfnDliHook __pfnDliFailureHook2 = standIn;
