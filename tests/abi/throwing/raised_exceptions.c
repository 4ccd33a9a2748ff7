/* Raises from C what a C++ exception of Visual C++ looks like, as a language of another kind, or a `throw;`, may. */
#include <windows.h>

#include "exceptions.h"

#define CPP_EXCEPTION 0xE06D7363

static const struct kind {
  const char* name;
  DWORD count;
  ULONG_PTR parameters[4];
} kinds[] = {
    {"a C++ exception without parameters", 0, {0, 0, 0, 0}},
    {"a C++ exception without an object", 4, {0x19930520, 0, 0, 0}},
    {"a C++ exception of a 32-bit layout", 3, {0x19930520, 0, 0, 0}},
    {"a C++ exception of an unknown layout", 4, {1, 2, 3, 4}},
    {"a C++ exception whose object has no description", 4, {0x19930522, (ULONG_PTR)&kinds, 0, 0}},
};

static int frames;

static const char* name(int kind) { return kinds[kind].name; }

static void throw_it(int kind) {
  ++frames;
  __try {
    RaiseException(CPP_EXCEPTION, EXCEPTION_NONCONTINUABLE, kinds[kind].count, kinds[kind].parameters);
  } __finally {
    --frames;
  }
}

static int is_unchanged(const EXCEPTION_RECORD* record, const struct kind* kind) {
  if (record->ExceptionCode != CPP_EXCEPTION || record->NumberParameters != kind->count) return 0;
  for (DWORD i = 0; i < kind->count; ++i) {
    if (record->ExceptionInformation[i] != kind->parameters[i]) return 0;
  }
  return 1;
}

static enum outcome catch_it(int kind, void (*run)(void*), void* context) {
  int unchanged = 0;
  __try {
    ++frames;
    __try {
      run(context);
    } __finally {
      --frames;
    }
  } __except (unchanged = is_unchanged(GetExceptionInformation()->ExceptionRecord, &kinds[kind]), 1) {
    return unchanged ? ARRIVED : ARRIVED_CHANGED;
  }
  return RETURNED;
}

static int alive(void) { return frames; }

const struct exceptions cpp_exceptions = {sizeof kinds / sizeof *kinds, name, throw_it, catch_it, alive};
