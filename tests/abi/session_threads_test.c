/* Eight threads call everything of one session that can be called at any time, until it is closed under their hands. */
#include <stdlib.h>
#include <wchar.h>

#include <windows.h>

#include "check.h"
#include "kiv/session.h"

enum { THREADS = 8, MILLISECONDS = 4000, PATIENCE = 60000, CALLS = 1000, ORIGINS = 50 };

static KivSession* session;
static volatile LONG started;
static volatile LONG ended;
static volatile LONG calls;
static volatile LONG wrong;
static volatile LONG running;

static void expect(int good) {
  if (!good) InterlockedIncrement(&wrong);
}

static wchar_t urls[ORIGINS][32];

static const wchar_t* next_url(unsigned* state) {
  *state = *state * 1103515245U + 12345U;
  return urls[(*state >> 16) % ORIGINS];
}

static void check_kind(KivDecision* decision, KivStatus status) {
  expect((decision != NULL) == (status == KIV_STATUS_OK));
  expect(!decision || KivDecision_Kind(decision) == KIV_KIND_PROXY);
}

static void resolve(const wchar_t* url) {
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Resolve(session, url, KIV_NO_TIME_OUT, &decision);
  expect(status == KIV_STATUS_OK || status == KIV_STATUS_CLOSED);
  check_kind(decision, status);
  if (decision) KivSession_ReportFailure(session, decision, KIV_FAILURE_TARGET);
  KivDecision_Release(decision);
}

static void look_up(const wchar_t* url) {
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Lookup(session, url, &decision);
  expect(status == KIV_STATUS_OK || status == KIV_STATUS_NOT_YET || status == KIV_STATUS_CLOSED);
  check_kind(decision, status);
  KivDecision_Release(KivDecision_Retain(decision));
  KivDecision_Release(decision);
}

static void done(uint64_t tag, KivStatus status, KivDecision* decision) {
  expect(tag == 7);
  expect(status == KIV_STATUS_OK || status == KIV_STATUS_CANCELLED || status == KIV_STATUS_CLOSED);
  KivDecision_Release(decision);
  InterlockedIncrement(&ended);
}

static void start(const wchar_t* url) {
  KivRequest* request = NULL;
  const KivStatus status = KivSession_Start(session, url, KIV_NO_TIME_OUT, 7, done, &request);
  expect((request != NULL) == (status == KIV_STATUS_OK));
  if (status != KIV_STATUS_OK) return;
  InterlockedIncrement(&started);
  KivDecision* decision = NULL;
  if (started % 2) KivRequest_Cancel(request);
  const KivStatus end = KivRequest_Wait(request, KIV_NO_TIME_OUT, &decision);
  expect(end == KIV_STATUS_OK || end == KIV_STATUS_CANCELLED || end == KIV_STATUS_CLOSED);
  check_kind(decision, end);
  KivDecision_Release(decision);
  KivRequest_Release(request);
}

static void forget(const wchar_t* url) {
  (void)url;
  KivSession_Forget(session);
  KivSession_ForgetCredentials(session);
}

static void read_events(const wchar_t* url) {
  (void)url;
  KivEvent* event = NULL;
  const KivStatus status = KivSession_Next(session, 1, &event);
  expect(status == KIV_STATUS_OK || status == KIV_STATUS_NOT_YET || status == KIV_STATUS_CLOSED);
  KivEvent_Release(event);
}

static void count(const wchar_t* url) {
  (void)url;
  KivSession_SetNumber(session, KIV_OPTION_LOG_LEVEL, KIV_LOG_LEVEL_DEBUG);
  for (uint32_t counter = 0; counter <= 12; ++counter) KivSession_GetCounter(session, counter);
}

static void (*const uses[])(const wchar_t* url) = {look_up,     resolve, look_up, start,
                                                   read_events, look_up, forget,  count};

static DWORD WINAPI work(void* parameter) {
  unsigned state = (unsigned)(ULONG_PTR)parameter;
  while (running) {
    const wchar_t* url = next_url(&state);
    uses[(state >> 8) % (sizeof uses / sizeof *uses)](url);
    InterlockedIncrement(&calls);
  }
  return 0;
}

/* On a machine with other work, the first discovery alone may take longer than the usual time. */
static void work_together(void) {
  const ULONGLONG begun = GetTickCount64();
  ULONGLONG passed = 0;
  while (passed < MILLISECONDS || (passed < PATIENCE && (calls <= CALLS || started == 0))) {
    Sleep(10);
    passed = GetTickCount64() - begun;
  }
}

int main(void) {
  CHECK(KivSession_Create(L"threads", &session) == KIV_STATUS_OK);
  CHECK(KivSession_SetNumber(session, KIV_OPTION_TEST, KIV_TEST_NONE) == KIV_STATUS_OK);
  CHECK(KivSession_SetProxy(session, KIV_PROXY_PREFERRED, L"gate:8080", L"user", L"password") == KIV_STATUS_OK);
  for (int i = 0; i < ORIGINS; ++i) swprintf(urls[i], 32, L"https://host%d.test/", i);
  running = 1;
  HANDLE threads[THREADS];
  for (ULONG_PTR i = 0; i < THREADS; ++i) threads[i] = CreateThread(NULL, 0, work, (void*)(i + 1), 0, NULL);
  work_together();
  KivSession_Close(session);
  Sleep(200);
  running = 0;
  for (int i = 0; i < THREADS; ++i) {
    CHECK(WaitForSingleObject(threads[i], 20000) == WAIT_OBJECT_0);
    CloseHandle(threads[i]);
  }
  KivSession_Destruct(session);
  CHECK(calls > CALLS);
  CHECK(started > 0 && started == ended);
  CHECK(wrong == 0);
  return report_checks();
}
