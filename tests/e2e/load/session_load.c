/* Uses one session of the shipped kiv-session.dll from several threads in every way at once, while the user's settings
 * change, and tells whether handles, threads or memory grow once everything is warm.
 *
 *   session_load THREADS SECONDS USER PASSWORD BYPASS-LIST TARGET... SETTINGS...
 *
 * Each TARGET is a URL that each of the SETTINGS leads to, or the bypass list names; a star in it becomes a number.
 * SETTINGS are values of the registry as hexadecimal digits; the user has one after the other, again and again. USER
 * and PASSWORD are what proxies want. Exit code 0 if every call ended as it may, everything happened that is to happen,
 * and nothing grew.
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include <windows.h>

#include "kiv/session.h"
#include "usage.h"

enum { MOST_THREADS = 64, LONGEST_SETTINGS = 1024, LONGEST_URL = 128, NUMBERS = 200 };

enum { SETTINGS_LAST = 500, WARM_UP = 5000, SETTLED_AFTER = 6, MOST_LOOKS = 60 };

/* What is to happen, and is counted. */
enum outcome { THROUGH_PROXY, DIRECTLY, NO_ROUTE, NOT_YET, TIMED_OUT, CANCELLED, ANSWERED, CHANGED, OUTCOMES };
static const wchar_t* const outcome_names[] = {L"through a proxy", L"directly",  L"without a route",    L"not yet",
                                               L"timed out",       L"cancelled", L"questions answered", L"changes"};
static volatile LONG outcomes[OUTCOMES];
static volatile LONG wrong;
static volatile LONG running;

static KivSession* session;
static const wchar_t** targets;
static unsigned target_count;
static const wchar_t* user;
static const wchar_t* password;
static const wchar_t* bypass_list;

static void count(enum outcome outcome) { InterlockedIncrement(&outcomes[outcome]); }

static void complain(const wchar_t* what, const wchar_t* url, uint32_t status) {
  InterlockedIncrement(&wrong);
  fwprintf(stderr, L"%ls of %ls: %ls (0x%x)\n", what, url, KivStatus_Text(status), (unsigned)status);
}

/* Every target is reached by every settings, but for a proxy whose password was reported wrong until it is forgotten.
 */
static void judge(const wchar_t* url, KivDecision* decision) {
  const uint32_t kind = KivDecision_Kind(decision);
  count(kind == KIV_KIND_PROXY ? THROUGH_PROXY : kind == KIV_KIND_DIRECT ? DIRECTLY : NO_ROUTE);
  if (kind == KIV_KIND_NONE && KivDecision_Reason(decision) != KIV_REASON_CREDENTIALS_WANTED) {
    complain(L"route", url, KivDecision_Reason(decision));
  }
}

/* Takes over the decision. `may_be` is a status that the call may end with, too. */
static void ended(const wchar_t* what, const wchar_t* url, KivStatus status, KivStatus may_be, KivDecision* decision) {
  if (status == KIV_STATUS_OK) {
    judge(url, decision);
  } else if (status != may_be) {
    complain(what, url, status);
  } else {
    count(status == KIV_STATUS_TIMED_OUT ? TIMED_OUT : status == KIV_STATUS_CANCELLED ? CANCELLED : NOT_YET);
  }
  if ((decision != NULL) != (status == KIV_STATUS_OK)) complain(L"decision", url, status);
  KivDecision_Release(decision);
}

static void look_up(const wchar_t* url, unsigned number) {
  (void)number;
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Lookup(session, url, &decision);
  ended(L"lookup", url, status, KIV_STATUS_NOT_YET, decision);
}

static void resolve(const wchar_t* url, unsigned number) {
  (void)number;
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Resolve(session, url, 0, &decision);
  ended(L"resolution", url, status, KIV_STATUS_OK, decision);
}

static void resolve_in_a_hurry(const wchar_t* url, unsigned number) {
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Resolve(session, url, 1 + number % 40, &decision);
  ended(L"hurried resolution", url, status, KIV_STATUS_TIMED_OUT, decision);
}

/* The end is an event, too. */
static void start(const wchar_t* url, unsigned number) {
  KivRequest* request = NULL;
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Start(session, url, 0, number, NULL, &request);
  if (status != KIV_STATUS_OK) {
    complain(L"start", url, status);
    return;
  }
  if (number % 2) KivRequest_Cancel(request);
  const KivStatus end = KivRequest_Wait(request, KIV_NO_TIME_OUT, &decision);
  ended(L"request", url, end, number % 2 ? KIV_STATUS_CANCELLED : KIV_STATUS_OK, decision);
  KivRequest_Release(request);
}

static void report(const wchar_t* url, unsigned number) {
  KivDecision* decision = NULL;
  if (KivSession_Lookup(session, url, &decision) != KIV_STATUS_OK) return;
  const KivStatus status = KivSession_ReportFailure(session, decision, 1 + number % 3);
  if (status != KIV_STATUS_OK) complain(L"report", url, status);
  KivDecision_Release(decision);
}

static void forget(const wchar_t* url, unsigned number) {
  (void)url, (void)number;
  KivSession_Forget(session);
}

static void forget_credentials(const wchar_t* url, unsigned number) {
  (void)url, (void)number;
  KivSession_ForgetCredentials(session);
}

static void look_around(const wchar_t* url, unsigned number) {
  (void)url;
  KivSession_SetNumber(session, KIV_OPTION_LOG_LEVEL, number % 5);
  for (uint32_t counter = 0; counter <= KIV_COUNTER_LOST_LOG_LINES + 1; ++counter) {
    KivSession_GetCounter(session, counter);
  }
}

static void (*const uses[])(const wchar_t* url, unsigned number) = {look_up,
                                                                    resolve,
                                                                    resolve_in_a_hurry,
                                                                    start,
                                                                    look_up,
                                                                    start,
                                                                    forget,
                                                                    resolve,
                                                                    look_up,
                                                                    resolve,
                                                                    resolve_in_a_hurry,
                                                                    start,
                                                                    report,
                                                                    start,
                                                                    forget_credentials,
                                                                    look_around};

static void choose_url(wchar_t* url, unsigned number) {
  const wchar_t* const target = targets[number % target_count];
  const wchar_t* const star = wcschr(target, L'*');
  if (star) {
    swprintf(url, LONGEST_URL, L"%.*ls%u%ls", (int)(star - target), target, number % NUMBERS, star + 1);
  } else {
    swprintf(url, LONGEST_URL, L"%ls", target);
  }
}

static DWORD WINAPI work(void* parameter) {
  unsigned state = (unsigned)(ULONG_PTR)parameter;
  wchar_t url[LONGEST_URL];
  while (running) {
    state = state * 1103515245U + 12345U;
    const unsigned number = state >> 16;
    choose_url(url, number / 16);
    uses[number % (sizeof uses / sizeof *uses)](url, number / 256);
    Sleep(1); /* so that processors are left for the servers */
  }
  return 0;
}

/* Reads events until the session is closed, and answers what is asked. */
static DWORD WINAPI listen(void* parameter) {
  (void)parameter;
  for (;;) {
    KivEvent* event = NULL;
    const KivStatus status = KivSession_Next(session, KIV_NO_TIME_OUT, &event);
    if (KivEvent_Kind(event) == KIV_EVENT_CHALLENGE) {
      KivChallenge* challenge = KivEvent_Challenge(event);
      if (KivChallenge_Answer(challenge, user, password) == KIV_STATUS_OK) count(ANSWERED);
      KivChallenge_Release(challenge);
    }
    if (KivEvent_Kind(event) == KIV_EVENT_CHANGED) count(CHANGED);
    KivDecision_Release(KivEvent_Decision(event));
    KivEvent_Release(event);
    if (status != KIV_STATUS_OK) return 0;
  }
}

static void write_settings(const wchar_t* digits) {
  BYTE bytes[LONGEST_SETTINGS];
  DWORD size = 0;
  for (; size < sizeof bytes && digits[0] && digits[1]; digits += 2) {
    const wchar_t byte[] = {digits[0], digits[1], L'\0'};
    bytes[size++] = (BYTE)wcstoul(byte, NULL, 16);
  }
  RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections",
                  L"DefaultConnectionSettings", REG_BINARY, bytes, size);
}

/* All threads work for that long, while settings change. */
static void run(unsigned threads, ULONGLONG duration, wchar_t** settings, unsigned settings_count) {
  HANDLE handles[MOST_THREADS] = {NULL};
  const ULONGLONG begun = GetTickCount64();
  running = 1;
  for (ULONG_PTR i = 0; i < threads; ++i) handles[i] = CreateThread(NULL, 0, work, (void*)(i + 1), 0, NULL);
  for (unsigned turn = 0; GetTickCount64() - begun < duration; ++turn) {
    write_settings(settings[turn % settings_count]);
    Sleep(SETTINGS_LAST);
  }
  running = 0;
  WaitForMultipleObjects(threads, handles, TRUE, INFINITE);
  for (unsigned i = 0; i < threads; ++i) CloseHandle(handles[i]);
}

/* What is held once the system's threads, and requests that were cancelled, have gone. */
static struct usage settled_usage(void) {
  struct usage usage = usage_now();
  for (int looks = 0, same = 0; looks < MOST_LOOKS && same < SETTLED_AFTER; ++looks) {
    Sleep(SETTINGS_LAST);
    const struct usage now = usage_now();
    same = now.handles == usage.handles && now.threads == usage.threads ? same + 1 : 0;
    usage = now;
  }
  return usage;
}

static int create_session(void) {
  return KivSession_Create(L"session_load", &session) == KIV_STATUS_OK &&
         KivSession_SetNumber(session, KIV_OPTION_LOGGED_ON_USER, KIV_LOGGED_ON_USER_NEVER) == KIV_STATUS_OK &&
         KivSession_SetNumber(session, KIV_OPTION_ANSWER_TIME_OUT, 5000) == KIV_STATUS_OK &&
         KivSession_SetText(session, KIV_OPTION_BYPASS_LIST, bypass_list) == KIV_STATUS_OK;
}

static int everything_happened(void) {
  int all = 1;
  for (int i = 0; i < OUTCOMES; ++i) {
    wprintf(L"%ld %ls\n", (long)outcomes[i], outcome_names[i]);
    all &= outcomes[i] > 0 || i == NO_ROUTE;
  }
  return all;
}

int wmain(int argument_count, wchar_t** arguments) {
  if (argument_count < 8) {
    fwprintf(stderr, L"usage: session_load THREADS SECONDS USER PASSWORD BYPASS-LIST TARGET... SETTINGS...\n");
    return 64;
  }
  const unsigned wanted = (unsigned)_wtoi(arguments[1]);
  const unsigned threads = wanted < MOST_THREADS ? wanted : MOST_THREADS;
  const ULONGLONG duration = (ULONGLONG)_wtoi(arguments[2]) * 1000;
  user = arguments[3];
  password = arguments[4];
  bypass_list = arguments[5];
  targets = (const wchar_t**)(arguments + 6);
  while (target_count + 7 < (unsigned)argument_count && wcsncmp(targets[target_count], L"http", 4) == 0) ++target_count;
  wchar_t** const settings = arguments + 6 + target_count;
  const unsigned settings_count = (unsigned)argument_count - 6 - target_count;
  if (!create_session()) return 1;
  const HANDLE reader = CreateThread(NULL, 0, listen, NULL, 0, NULL);

  run(threads, WARM_UP, settings, settings_count);
  const struct usage warm = settled_usage();
  print_usage(L"warm", warm);
  const ULONGLONG begun = GetTickCount64();
  run(threads, duration, settings, settings_count);
  wprintf(L"%u threads for %llu ms\n", threads, (unsigned long long)(GetTickCount64() - begun));
  const struct usage end = settled_usage();
  print_usage(L"end", end);

  KivSession_Close(session);
  WaitForSingleObject(reader, INFINITE);
  CloseHandle(reader);
  KivSession_Destruct(session);
  const int happened = everything_happened();
  return has_not_grown(warm, end) && happened && wrong == 0 ? 0 : 1;
}
