/* Raises and catches exceptions that are not C++'s. Compiled by clang, since GCC has no __try. */
#include <windows.h>

#include "exceptions.h"

enum { WRITE_VIOLATION = 1 };
static const ULONG_PTR nowhere = 8;
static const ULONG_PTR own_parameters[] = {7, 8, 9};

static void write_nowhere(void) { *(volatile int*)nowhere = 1; }
static void read_nowhere(void) { (void)*(volatile int*)nowhere; }
static void divide_by_zero(void) {
  volatile int zero = 0;
  zero = 100 / zero;
}
static void stop_at_breakpoint(void) { __debugbreak(); }
static void raise_own(void) { RaiseException(0xE0000001, 0, 3, own_parameters); }
/* Raised: a stack that has really overflowed has no space left on which Wine could call handlers. */
static void raise_stack_overflow(void) { RaiseException(0xC00000FD, 0, 0, 0); }
static void raise_continued(void) { RaiseException(0xE0000002, 0, 3, own_parameters); }

static const struct kind {
  const char* name;
  void (*raise)(void);
  DWORD code;
  DWORD count;
  ULONG_PTR parameters[3];
  int continues; /* the application's filter lets the callback go on */
} kinds[] = {
    {"a write access violation", write_nowhere, 0xC0000005, 2, {WRITE_VIOLATION, 8, 0}, 0},
    {"a read access violation", read_nowhere, 0xC0000005, 2, {0, 8, 0}, 0},
    {"a division by zero", divide_by_zero, 0xC0000094, 0, {0, 0, 0}, 0},
    {"a breakpoint", stop_at_breakpoint, 0x80000003, 0, {0, 0, 0}, 0},
    {"an exception of the application's own code", raise_own, 0xE0000001, 3, {7, 8, 9}, 0},
    {"a stack overflow", raise_stack_overflow, 0xC00000FD, 0, {0, 0, 0}, 0},
    {"an exception after which the application continues", raise_continued, 0xE0000002, 3, {7, 8, 9}, 1},
};

static int frames;

static const char* name(int kind) { return kinds[kind].name; }

static void throw_it(int kind) {
  ++frames;
  __try {
    kinds[kind].raise();
  } __finally {
    --frames;
  }
}

static int filter(const EXCEPTION_RECORD* record, const struct kind* kind, volatile enum outcome* outcome) {
  *outcome = record->ExceptionCode == kind->code && record->NumberParameters >= kind->count ? ARRIVED : ARRIVED_CHANGED;
  for (DWORD i = 0; i < kind->count; ++i) {
    if (record->ExceptionInformation[i] != kind->parameters[i]) *outcome = ARRIVED_CHANGED;
  }
  return kind->continues ? EXCEPTION_CONTINUE_EXECUTION : EXCEPTION_EXECUTE_HANDLER;
}

static enum outcome catch_it(int kind, void (*run)(void*), void* context) {
  volatile enum outcome outcome = RETURNED; /* the filter writes it while the call goes on */
  __try {
    ++frames;
    __try {
      run(context);
    } __finally {
      --frames;
    }
  } __except (filter(GetExceptionInformation()->ExceptionRecord, &kinds[kind], &outcome)) {
    return outcome;
  }
  return outcome == ARRIVED ? CONTINUED : outcome;
}

static int alive(void) { return frames; }

const struct exceptions system_exceptions = {sizeof kinds / sizeof *kinds, name, throw_it, catch_it, alive};
