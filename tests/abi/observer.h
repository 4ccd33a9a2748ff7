/* Watches kiv.dll and the process from outside, serves what it requests, and counts checks, for test programs of any
 * compiler: a DLL of C functions, so that a program without a C library can use it. */
#ifndef KIV_TESTS_OBSERVER_H
#define KIV_TESTS_OBSERVER_H

#include <wchar.h>

#ifdef KIV_BUILDING_OBSERVER
#define OBSERVER __declspec(dllexport)
#else
#define OBSERVER __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Names, as printf does, what the next checks are about. */
OBSERVER void begin_case(const char* format, ...);
OBSERVER void check(int holds, const char* statement);
#define CHECK(condition) check((condition) ? 1 : 0, #condition)
/* Tells the sum; gives the exit code. */
OBSERVER int report_checks(void);

/* From here on counts what kiv.dll, which must be loaded, obtains and releases. Tells whether it can. */
OBSERVER int watch_kiv(void);
/* What kiv.dll holds: blocks of memory, and handles of WinHTTP. Only differences mean something. */
OBSERVER long live_blocks(void);
OBSERVER long live_internet_handles(void);
/* How many blocks kiv.dll has freed with `text`, of the last call of this function, still in them. */
OBSERVER void watch_for_secret(const wchar_t* text);
OBSERVER long freed_with_secret(void);

/* The whole process: handles of the kernel, threads that exist, and threads that have started since it did. */
OBSERVER int process_handles(void);
OBSERVER int process_threads(void);
OBSERVER int started_threads(void);

/* Runs `run` on a thread of its own, and returns when that has ended. */
OBSERVER void on_new_thread(void (*run)(void* context), void* context);

/* URLs of an HTTP server on loopback, which lives as long as the process: one that it answers with 200, and one with a
 * user name and a password that it answers with 401; and a URL of a port of loopback where nothing listens. */
OBSERVER const wchar_t* served_url(void);
OBSERVER const wchar_t* challenging_url(void);
OBSERVER const wchar_t* closed_url(void);

#ifdef __cplusplus
}
#endif

#endif
