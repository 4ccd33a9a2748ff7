/* An application over the shipped kiv-session.dll whose callbacks throw C++ exceptions, one after the other. None
 * leaves the library, and none is left behind. What it throws is the compiler's with which it is built. */
#include "../observer.h"
#include "exceptions.h"
#include "kiv/session.h"

static const wchar_t* const url = L"http://target.test/";
enum { PATIENCE = 20000 };

enum callback { WAKE, FILTER, LOG, DONE, SINK };
static const char* const callback_names[] = {"wake", "filter", "log", "done", "sink"};
enum { CALLBACKS = sizeof callback_names / sizeof *callback_names };

/* Which callback throws what, and how often it has. */
struct application {
  enum callback throws;
  int exception;
  volatile int threw;
  volatile int done;
};

static void call_back(struct application* self, enum callback callback) {
  if (callback != self->throws) return;
  self->threw = self->threw + 1;
  cpp_exceptions.throw_it(self->exception);
}

static void wake(void* context) { call_back(context, WAKE); }
static int filter(void* context, const wchar_t* proxy) {
  (void)proxy;
  call_back(context, FILTER);
  return 1;
}
static void take_line(void* context, uint32_t level, const wchar_t* text) {
  (void)level, (void)text;
  call_back(context, LOG);
}
static void take_credentials(void* context, const wchar_t* user, const wchar_t* password) {
  (void)user, (void)password;
  call_back(context, SINK);
}
static void done(uint64_t tag, KivStatus status, KivDecision* decision) {
  struct application* self = (struct application*)tag;
  (void)status;
  KivDecision_Release(decision);
  self->done = self->done + 1;
  call_back(self, DONE);
}

static void set_up(KivSession* session, struct application* self) {
  CHECK(KivSession_SetNumber(session, KIV_OPTION_TEST, KIV_TEST_NONE) == KIV_STATUS_OK);
  CHECK(KivSession_SetNumber(session, KIV_OPTION_LOG_LEVEL, KIV_LOG_LEVEL_DEBUG) == KIV_STATUS_OK);
  CHECK(KivSession_SetNumber(session, KIV_OPTION_DIRECT, KIV_DIRECT_NEVER) == KIV_STATUS_OK);
  CHECK(KivSession_SetProxy(session, KIV_PROXY_PREFERRED, L"gate:8080", L"user", L"password") == KIV_STATUS_OK);
  CHECK(KivSession_SetWake(session, wake, self) == KIV_STATUS_OK);
  CHECK(KivSession_SetFilter(session, filter, self) == KIV_STATUS_OK);
  CHECK(KivSession_SetLog(session, take_line, self) == KIV_STATUS_OK);
}

/* A filter that throws says no, and what the others throw changes nothing. */
static void use(KivSession* session, struct application* self) {
  const uint32_t kind = self->throws == FILTER ? KIV_KIND_NONE : KIV_KIND_PROXY;
  KivDecision* decision = 0;
  CHECK(KivSession_Start(session, url, 0, (uint64_t)self, done, 0) == KIV_STATUS_OK);
  CHECK(KivSession_Start(session, L"http://other.test/", 0, 1, 0, 0) == KIV_STATUS_OK);
  CHECK(KivSession_Resolve(session, url, PATIENCE, &decision) == KIV_STATUS_OK);
  CHECK(KivDecision_Kind(decision) == kind);
  KivDecision_Credentials(decision, self, take_credentials);
  KivDecision_Release(decision);
  KivEvent* event = 0;
  CHECK(KivSession_Next(session, PATIENCE, &event) == KIV_STATUS_OK);
  KivEvent_Release(event);
  /* A pool thread runs it, and never once the session is closed. */
  for (int waited = 0; self->throws == WAKE && self->threw == 0 && waited < PATIENCE; ++waited) {
    KivSession_Next(session, 1, &event);
    KivEvent_Release(event);
  }
}

static void throw_one(enum callback callback, int exception) {
  struct application self = {callback, exception, 0, 0};
  KivSession* session = 0;
  begin_case("%s of the callback %s", cpp_exceptions.name(exception), callback_names[callback]);
  CHECK(KivSession_Create(L"throwing", &session) == KIV_STATUS_OK);
  set_up(session, &self);
  use(session, &self);
  KivSession_Destruct(session);
  CHECK(self.threw > 0);
  CHECK(self.done == 1);
  CHECK(cpp_exceptions.alive() == 0);
}

int main(void) {
  for (int callback = 0; callback < CALLBACKS; ++callback) {
    for (int exception = 0; exception < cpp_exceptions.count; ++exception)
      throw_one((enum callback)callback, exception);
  }
  return report_checks();
}
