/* What the programs that clang compiles need of Windows, which has no SDK here. */
#ifndef KIV_TESTS_WINDOWS_H
#define KIV_TESTS_WINDOWS_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned long DWORD;
typedef unsigned long long ULONG_PTR;

typedef struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;
  struct EXCEPTION_RECORD* ExceptionRecord;
  void* ExceptionAddress;
  DWORD NumberParameters;
  ULONG_PTR ExceptionInformation[15];
} EXCEPTION_RECORD;

typedef struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;
  void* ContextRecord;
} EXCEPTION_POINTERS;

#define EXCEPTION_NONCONTINUABLE 1
#define EXCEPTION_EXECUTE_HANDLER 1
#define EXCEPTION_CONTINUE_EXECUTION (-1)
#define GetExceptionInformation() ((EXCEPTION_POINTERS*)_exception_info())

__declspec(dllimport) void RaiseException(DWORD code, DWORD flags, DWORD count, const ULONG_PTR* parameters);
__declspec(dllimport) __declspec(noreturn) void ExitProcess(unsigned code);

#ifdef __cplusplus
}
#endif

#endif
