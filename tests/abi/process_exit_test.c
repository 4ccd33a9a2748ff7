/* Applications that end while a session is at work that nobody has closed, or that only a library of theirs gives up
 * when the process ends: each must end at once, with the exit code that it wants.
 *
 * Without arguments this program runs itself for each stage of a resolution and each way to end:
 *
 *   process_exit_test STAGE END PORT ARRIVED GIVEN-UP
 *
 * PORT is a server's that never completes anything; the event ARRIVED is set when somebody has said something to it.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <winsock2.h>

#include <windows.h>

#include "../loopback.h"
#include "check.h"
#include "script_settings.h"
#include "session_owner.h"

enum { PATIENCE = 60000, EXIT_CODE = 42 };

#define CRASH_CODE 0xE0000042U
static const wchar_t* const url = L"http://target.test/";

/* ---- The application. */

static struct owned all;
static unsigned server;
static HANDLE arrived;
static HANDLE inside;

static void need(int holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "cannot get there: %s\n", what);
  ExitProcess(1);
}
#define NEED(condition) need((condition) ? 1 : 0, #condition)

static void prefer(const wchar_t* scheme) {
  wchar_t proxy[64];
  swprintf(proxy, 64, L"%ls://127.0.0.1:%u", scheme, server);
  NEED(KivSession_SetProxy(all.session, KIV_PROXY_PREFERRED, proxy, NULL, NULL) == KIV_STATUS_OK);
}

static void start(KivDoneFunction done) {
  NEED(KivSession_Start(all.session, url, KIV_NO_TIME_OUT, 0, done, &all.request) == KIV_STATUS_OK);
}

static void await(HANDLE event) { NEED(WaitForSingleObject(event, PATIENCE) == WAIT_OBJECT_0); }

static void test_nothing(void) {
  NEED(KivSession_SetNumber(all.session, KIV_OPTION_TEST, KIV_TEST_NONE) == KIV_STATUS_OK);
}

static void idle(void) {}

static void decided(void) {
  const wchar_t* header = NULL;
  test_nothing();
  NEED(KivSession_SetProxy(all.session, KIV_PROXY_PREFERRED, L"gate:8080", L"user", L"password") == KIV_STATUS_OK);
  NEED(KivSession_Resolve(all.session, url, 0, &all.decision) == KIV_STATUS_OK);
  NEED(KivAuth_Create(all.session, all.decision, &all.auth) == KIV_STATUS_OK);
  NEED(KivAuth_Next(all.auth, L"Basic realm=\"gate\"", &header) == KIV_STATUS_DONE && header);
}

static void awaiting_a_script(void) {
  NEED(use_script_at(server, 1));
  start(NULL);
  await(arrived);
}

static void talking_to_a_socks_proxy(void) {
  prefer(L"socks5");
  start(NULL);
  await(arrived);
}

static void awaiting_an_answer(void) {
  prefer(L"http");
  start(NULL);
  await(arrived);
}

/* The server answers this one with 407. */
static void asking_for_a_password(void) {
  KivEvent* nothing = NULL;
  prefer(L"http");
  NEED(KivSession_Next(all.session, 0, &nothing) == KIV_STATUS_NOT_YET);
  start(NULL);
  NEED(KivSession_Next(all.session, PATIENCE, &all.event) == KIV_STATUS_OK);
  NEED(KivEvent_Kind(all.event) == KIV_EVENT_CHALLENGE);
  all.challenge = KivEvent_Challenge(all.event);
}

static void stay(uint64_t tag, KivStatus status, KivDecision* decision) {
  (void)tag, (void)status, (void)decision;
  SetEvent(inside);
  Sleep(INFINITE);
}

static void in_a_callback(void) {
  decided();
  start(stay);
  await(inside);
}

static DWORD WINAPI close_session(void* parameter) {
  KivSession_Close(parameter);
  return 0;
}

/* Closing waits for the callback. */
static void closing(void) {
  KivDecision* none = NULL;
  in_a_callback();
  CreateThread(NULL, 0, close_session, all.session, 0, NULL);
  while (KivSession_Lookup(all.session, url, &none) != KIV_STATUS_CLOSED) {
    KivDecision_Release(none);
    Sleep(1);
  }
}

static void closed(void) {
  awaiting_an_answer();
  KivSession_Close(all.session);
}

static DWORD WINAPI wait_for_decision(void* parameter) {
  KivDecision* decision = NULL;
  KivSession_Resolve(parameter, url, KIV_NO_TIME_OUT, &decision);
  return 0;
}

static DWORD WINAPI wait_for_event(void* parameter) {
  KivEvent* event = NULL;
  KivSession_Next(parameter, KIV_NO_TIME_OUT, &event);
  return 0;
}

static void with_callers_who_wait(void) {
  awaiting_an_answer();
  CreateThread(NULL, 0, wait_for_decision, all.session, 0, NULL);
  CreateThread(NULL, 0, wait_for_event, all.session, 0, NULL);
  while (KivSession_GetCounter(all.session, KIV_COUNTER_WAITING) < 2) Sleep(1);
}

static const struct stage {
  const char* name;
  void (*reach)(void);
} stages[] = {
    {"idle", idle},
    {"decided", decided},
    {"awaiting-a-script", awaiting_a_script},
    {"talking-to-a-socks-proxy", talking_to_a_socks_proxy},
    {"awaiting-an-answer", awaiting_an_answer},
    {"asking-for-a-password", asking_for_a_password},
    {"in-a-callback", in_a_callback},
    {"with-callers-who-wait", with_callers_who_wait},
    {"closing", closing},
    {"closed", closed},
};
enum { STAGES = sizeof stages / sizeof *stages };

static DWORD WINAPI exit_process(void* parameter) {
  (void)parameter;
  ExitProcess(EXIT_CODE);
}

/* Instead of the system's, which would fetch a debugger. */
static LONG WINAPI end_process(EXCEPTION_POINTERS* exception) {
  (void)exception;
  return EXCEPTION_EXECUTE_HANDLER;
}

static const struct end {
  const char* name;
  int detaches; /* libraries are told */
  DWORD code;
} ends[] = {{"return", 1, EXIT_CODE}, {"exit-on-another-thread", 1, EXIT_CODE}, {"crash", 0, CRASH_CODE}};
enum { ENDS = sizeof ends / sizeof *ends };

static int run_application(char** arguments) {
  server = (unsigned)atoi(arguments[3]);
  arrived = (HANDLE)(ULONG_PTR)strtoull(arguments[4], NULL, 10);
  all.given_up = (HANDLE)(ULONG_PTR)strtoull(arguments[5], NULL, 10);
  inside = CreateEventW(NULL, TRUE, FALSE, NULL);
  NEED(KivSession_Create(L"process-exit", &all.session) == KIV_STATUS_OK);
  for (size_t i = 0; i < STAGES; ++i) {
    if (strcmp(arguments[1], stages[i].name) == 0) stages[i].reach();
  }
  own(all);
  if (strcmp(arguments[2], "exit-on-another-thread") == 0) {
    CreateThread(NULL, 0, exit_process, NULL, 0, NULL);
    Sleep(INFINITE);
  }
  if (strcmp(arguments[2], "crash") == 0) {
    SetUnhandledExceptionFilter(end_process);
    RaiseException(CRASH_CODE, EXCEPTION_NONCONTINUABLE, 0, NULL);
  }
  return EXIT_CODE;
}

/* ---- The test. */

struct scene {
  SOCKET listening;
  HANDLE arrived;
  volatile LONG wants_password;
};

static DWORD WINAPI serve(void* parameter) {
  static const char answer[] =
      "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: Basic realm=\"gate\"\r\nContent-Length: 0\r\n"
      "Connection: close\r\n\r\n";
  const struct scene* scene = parameter;
  for (;;) {
    char request[4096];
    const SOCKET connection = accept(scene->listening, NULL, NULL);
    if (connection == INVALID_SOCKET) return 0;
    if (recv(connection, request, sizeof request, 0) <= 0) continue;
    if (scene->wants_password) {
      send(connection, answer, (int)sizeof answer - 1, 0);
      closesocket(connection);
    } else {
      SetEvent(scene->arrived);
    }
  }
}

/* Gives the exit code, or STILL_ACTIVE if it had to be ended. */
static DWORD run(char* command) {
  STARTUPINFOA start_up = {.cb = sizeof start_up};
  PROCESS_INFORMATION process;
  DWORD code = 0;
  if (!CreateProcessA(NULL, command, NULL, NULL, TRUE, 0, NULL, NULL, &start_up, &process)) return STILL_ACTIVE;
  const int ended = WaitForSingleObject(process.hProcess, PATIENCE) == WAIT_OBJECT_0;
  if (!ended) TerminateProcess(process.hProcess, 0);
  WaitForSingleObject(process.hProcess, INFINITE);
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return ended ? code : STILL_ACTIVE;
}

static void run_stage(struct scene* scene, unsigned port, HANDLE given_up, const struct stage* stage,
                      const struct end* how) {
  char program[MAX_PATH];
  char command[2 * MAX_PATH];
  GetModuleFileNameA(NULL, program, sizeof program);
  snprintf(command, sizeof command, "\"%s\" %s %s %u %llu %llu", program, stage->name, how->name, port,
           (unsigned long long)(ULONG_PTR)scene->arrived, (unsigned long long)(ULONG_PTR)given_up);
  scene->wants_password = stage->reach == asking_for_a_password;
  ResetEvent(scene->arrived);
  ResetEvent(given_up);
  const int before = failed_checks;
  CHECK(run(command) == how->code);
  CHECK((WaitForSingleObject(given_up, 0) == WAIT_OBJECT_0) == how->detaches);
  if (failed_checks > before) fprintf(stderr, "%s, %s\n", stage->name, how->name);
}

int main(int count, char** arguments) {
  if (count == 6) return run_application(arguments);
  SECURITY_ATTRIBUTES inherited = {.nLength = sizeof inherited, .bInheritHandle = TRUE};
  unsigned port = 0;
  struct scene scene = {.listening = listen_on_loopback(&port), .arrived = CreateEventW(&inherited, TRUE, FALSE, NULL)};
  const HANDLE given_up = CreateEventW(&inherited, TRUE, FALSE, NULL);
  CloseHandle(CreateThread(NULL, 0, serve, &scene, 0, NULL));
  for (size_t stage = 0; stage < STAGES; ++stage) {
    for (size_t how = 0; how < ENDS; ++how) run_stage(&scene, port, given_up, &stages[stage], &ends[how]);
  }
  return report_checks();
}
