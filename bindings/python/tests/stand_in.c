// Takes the place of kiv-session.dll in the tests of bindings. It answers as tests script it (StandIn_Answer and
// others), and complains of every argument that the real library must not get: bad texts, unknown numbers, objects that
// were released before.
//
// Objects are never freed, so that their use after release is noticed. Built with -fshort-wchar: wchar_t has 16 bits.
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kiv/session.h"

#ifndef STAND_IN_VERSION
#define STAND_IN_VERSION 0x010000U
#endif

_Static_assert(sizeof(wchar_t) == 2, "built without -fshort-wchar");

enum { KIND_SESSION, KIND_REQUEST, KIND_DECISION, KIND_CHALLENGE, KIND_EVENT, KIND_AUTH, KIND_COUNT };
enum { MOST_ANSWERS = 32, MOST_HOST = 64, MOST_TEXT = 1024, OPTION_COUNT = 66 };

typedef struct {
  unsigned kind;
  unsigned owners;
} Object;

typedef struct {
  char host[MOST_HOST];
  KivStatus status;
  uint32_t kind;
  char scheme[8];
  char proxyHost[MOST_HOST];
  uint32_t port;
  uint32_t authScheme;
  uint32_t reason;
  char password[MOST_HOST];  // that the proxy wants of alice; empty if it wants none
} Answer;

struct KivDecision {
  Object object;
  uint32_t kind, port, authScheme, reason;
  wchar_t scheme[MOST_HOST], host[MOST_HOST], url[2 * MOST_HOST];
  char target[MOST_HOST];
};

struct KivChallenge {
  Object object;
  KivSession* session;
  wchar_t proxy[2 * MOST_HOST];
  uint32_t attempt;
  int settled, withdrawn;
};

struct KivEvent {
  Object object;
  uint32_t kind, status;
  uint64_t tag;
  KivDecision* decision;
  KivChallenge* challenge;
  wchar_t text[MOST_TEXT];
  KivEvent* next;
};

struct KivRequest {
  Object object;
  KivSession* session;
  uint64_t tag;
  char host[MOST_HOST];
  struct timespec deadline;
  int limited, ended;
  KivRequest* next;
};

struct KivSession {
  Object object;
  int closed, began, looked;
  uint32_t numbers[OPTION_COUNT];
  wchar_t texts[OPTION_COUNT][MOST_TEXT];
  wchar_t proxies[3][3][MOST_TEXT];
  KivEvent *first, *last;
  KivRequest* requests;
  KivDecision* kept[MOST_ANSWERS];
  KivChallenge* open;
  char user[MOST_HOST], password[MOST_HOST];
  int known, declined, asked;
  uint32_t reported;
  uint64_t counters[12];
};

struct KivAuth {
  Object object;
  KivSession* session;
  KivDecision* decision;
  int sent, begun, waiting;
  wchar_t* header;
};

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed;
static pthread_once_t prepared = PTHREAD_ONCE_INIT;
static int live[KIND_COUNT];
static char complaint[256];
static Answer answers[MOST_ANSWERS];
static int answerCount;
static char failingFunction[64];
static KivStatus failingStatus;

static void prepare(void) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&changed, &attributes);
}

static void enter(void) {
  pthread_once(&prepared, prepare);
  pthread_mutex_lock(&lock);
}

static void leave(void) { pthread_mutex_unlock(&lock); }

// ---- Complaints -----------------------------------------------------------------------------------------------------

static void complain(const char* format, ...) {
  va_list arguments;
  if (complaint[0]) return;
  va_start(arguments, format);
  vsnprintf(complaint, sizeof complaint, format, arguments);
  va_end(arguments);
}

static int is(const void* object, unsigned kind, const char* function) {
  const Object* const found = object;
  if (found && ((uintptr_t)object & 7) == 0 && found->kind == kind && found->owners > 0) return 1;
  complain("%s: %s", function, found ? "an object of another kind, or one that was released" : "null");
  return 0;
}

static size_t length(const wchar_t* text) {
  size_t units = 0;
  while (text[units]) ++units;
  return units;
}

// A NUL-terminated text of at most `most` units, whose surrogates stand in pairs.
static int isText(const wchar_t* text, size_t most, const char* function) {
  if (!text || ((uintptr_t)text & 1)) return complain("%s: no text", function), 0;
  for (size_t i = 0; i <= most; ++i) {
    if (!text[i]) return 1;
    if ((text[i] & 0xFC00) == 0xD800 && (text[i + 1] & 0xFC00) == 0xDC00) {
      ++i;
    } else if ((text[i] & 0xF800) == 0xD800) {
      return complain("%s: a surrogate without its other half", function), 0;
    }
  }
  return complain("%s: a text that is too long", function), 0;
}

static int fails(const char* function, KivStatus* status) {
  if (strcmp(function, failingFunction) != 0) return 0;
  failingFunction[0] = 0;
  *status = failingStatus;
  return 1;
}

// ---- Texts ----------------------------------------------------------------------------------------------------------

static void widen(wchar_t* to, const char* from) {
  while ((*to++ = (unsigned char)*from++)) continue;
}

static void narrow(char* to, size_t size, const wchar_t* from) {
  size_t i = 0;
  for (; i + 1 < size && from[i]; ++i) to[i] = (char)(from[i] < 128 ? from[i] : '?');
  to[i] = 0;
}

static void copy(wchar_t* to, const wchar_t* from) { memcpy(to, from, (length(from) + 1) * sizeof *from); }

// Whether a narrow text contains a word, whatever the case of its letters.
static int contains(const wchar_t* text, const char* word) {
  const size_t size = strlen(word);
  for (; *text; ++text) {
    size_t i = 0;
    while (i < size && text[i] && (text[i] | 0x20) == (word[i] | 0x20)) ++i;
    if (i == size) return 1;
  }
  return 0;
}

// The host of an http or https URL; none if it is another.
static int hostOf(const wchar_t* url, char host[MOST_HOST]) {
  char text[MOST_TEXT];
  narrow(text, sizeof text, url);
  const char* const begin = strstr(text, "://");
  if (!begin || (strncmp(text, "http:", 5) != 0 && strncmp(text, "https:", 6) != 0)) return 0;
  const size_t size = strcspn(begin + 3, "/?#");
  snprintf(host, MOST_HOST, "%.*s", (int)size, begin + 3);
  char* const port = strrchr(host, ':');
  if (port) *port = 0;
  return host[0] != 0;
}

// ---- Objects --------------------------------------------------------------------------------------------------------

static void* make(unsigned kind, size_t size) {
  Object* const object = calloc(1, size);
  if (!object) abort();
  object->kind = kind;
  object->owners = 1;
  ++live[kind];
  return object;
}

// Whether this was the last owner.
static int give(void* object, unsigned kind, const char* function) {
  if (!object || !is(object, kind, function)) return 0;
  Object* const given = object;
  if (--given->owners) return 0;
  --live[kind];
  return 1;
}

static KivEvent* push(KivSession* session, uint32_t kind) {
  KivEvent* const event = make(KIND_EVENT, sizeof *event);
  event->kind = kind;
  if (session->last) {
    session->last->next = event;
  } else {
    session->first = event;
  }
  session->last = event;
  pthread_cond_broadcast(&changed);
  return event;
}

static KivDecision* retain(KivDecision* decision) {
  ++decision->object.owners;
  return decision;
}

// ---- Resolutions ----------------------------------------------------------------------------------------------------

static const Answer* answerFor(const char* host) {
  for (int i = 0; i < answerCount; ++i) {
    if (strcmp(answers[i].host, host) == 0) return &answers[i];
  }
  return NULL;
}

static KivDecision* decide(const Answer* answer, int wanting) {
  KivDecision* const decision = make(KIND_DECISION, sizeof *decision);
  snprintf(decision->target, sizeof decision->target, "%s", answer->host);
  decision->kind = wanting ? KIV_KIND_NONE : answer->kind;
  decision->reason = wanting ? KIV_REASON_CREDENTIALS_WANTED : answer->reason;
  if (decision->kind != KIV_KIND_PROXY) return decision;
  char url[2 * MOST_HOST];
  snprintf(url, sizeof url, "%s://%s:%u", answer->scheme, answer->proxyHost, answer->port);
  widen(decision->url, url);
  widen(decision->scheme, answer->scheme);
  widen(decision->host, answer->proxyHost);
  decision->port = answer->port;
  decision->authScheme = answer->authScheme;
  return decision;
}

static KivDecision** keptFor(KivSession* session, const char* host) {
  KivDecision** empty = NULL;
  for (int i = 0; i < MOST_ANSWERS; ++i) {
    KivDecision** const place = &session->kept[i];
    if (*place && strcmp((*place)->target, host) == 0) return place;
    if (!*place && !empty) empty = place;
  }
  return empty;
}

static void drop(KivDecision** place) {
  if (place && *place && !--(*place)->object.owners) --live[KIND_DECISION];
  if (place) *place = NULL;
}

static void endRequest(KivRequest* request, KivStatus status, KivDecision* decision) {
  KivSession* const session = request->session;
  request->ended = 1;
  for (KivRequest** at = &session->requests; *at; at = &(*at)->next) {
    if (*at != request) continue;
    *at = request->next;
    break;
  }
  KivEvent* const event = push(session, KIV_EVENT_COMPLETED);
  event->tag = request->tag;
  event->status = status;
  event->decision = decision;
  if (!--request->object.owners) --live[KIND_REQUEST];
}

static int isRight(const KivSession* session, const char* password) {
  return strcmp(session->user, "alice") == 0 && strcmp(session->password, password) == 0;
}

static int openQuestion(KivSession* session, const char* proxy) {
  if (session->open) return 1;
  if (session->declined || session->asked == 2 || !session->looked) return 0;
  KivChallenge* const challenge = make(KIND_CHALLENGE, sizeof *challenge);
  challenge->session = session;
  challenge->attempt = (uint32_t)++session->asked;
  widen(challenge->proxy, proxy);
  session->open = challenge;
  ++session->counters[KIV_COUNTER_CHALLENGES];
  push(session, KIV_EVENT_CHALLENGE)->challenge = challenge;
  return 1;
}

// Whether a request's answer waits for credentials; if nobody gives any, the answer is that they are wanted.
static int waits(const Answer* answer, KivSession* session, int* wanting) {
  char proxy[2 * MOST_HOST];
  if (!answer->password[0] || (session->known && isRight(session, answer->password))) return 0;
  snprintf(proxy, sizeof proxy, "%s://%s:%u", answer->scheme, answer->proxyHost, answer->port);
  session->known = 0;
  *wanting = !openQuestion(session, proxy);
  return !*wanting;
}

// Ends a request if its answer is known.
static void proceed(KivRequest* request) {
  KivSession* const session = request->session;
  const Answer* const answer = answerFor(request->host);
  KivDecision** const kept = keptFor(session, request->host);
  int wanting = 0;
  if (*kept) {
    endRequest(request, KIV_STATUS_OK, retain(*kept));
  } else if (answer && answer->status != KIV_STATUS_OK) {
    endRequest(request, answer->status, NULL);
  } else if (answer && !waits(answer, session, &wanting)) {
    *kept = decide(answer, wanting);
    endRequest(request, KIV_STATUS_OK, retain(*kept));
  }
}

static void proceedAll(KivSession* session) {
  for (KivRequest *request = session->requests, *next; request; request = next) {
    next = request->next;
    proceed(request);
  }
  pthread_cond_broadcast(&changed);
}

static int isOver(const struct timespec* deadline) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec > deadline->tv_sec || (now.tv_sec == deadline->tv_sec && now.tv_nsec >= deadline->tv_nsec);
}

static struct timespec in(uint32_t milliseconds) {
  struct timespec at;
  clock_gettime(CLOCK_MONOTONIC, &at);
  const long nanoseconds = at.tv_nsec + (long)(milliseconds % 1000) * 1000000;
  at.tv_sec += milliseconds / 1000 + nanoseconds / 1000000000;
  at.tv_nsec = nanoseconds % 1000000000;
  return at;
}

static KivStatus begin(KivSession* session, const wchar_t* url, uint32_t timeout, uint64_t tag, KivRequest** request) {
  char host[MOST_HOST];
  if (!isText(url, MOST_TEXT, "a URL")) return KIV_STATUS_BAD_ARGUMENT;
  if (session->closed) return KIV_STATUS_CLOSED;
  if (!hostOf(url, host)) return KIV_STATUS_BAD_URL;
  session->began = 1;
  ++session->counters[KIV_COUNTER_RESOLUTIONS];
  KivRequest* const made = make(KIND_REQUEST, sizeof *made);
  made->session = session;
  made->tag = tag;
  made->limited = timeout != KIV_NO_TIME_OUT;
  made->deadline = in(timeout ? timeout : session->numbers[KIV_OPTION_TIME_OUT]);
  memcpy(made->host, host, sizeof host);
  made->next = session->requests;
  session->requests = made;
  if (request) {
    ++made->object.owners;
    *request = made;
  }
  proceed(made);
  pthread_cond_broadcast(&changed);
  return KIV_STATUS_OK;
}

// ---- What tests say and ask
// ------------------------------------------------------------------------------------------

void StandIn_Reset(void) {
  enter();
  answerCount = 0;
  complaint[0] = failingFunction[0] = 0;
  leave();
}

const char* StandIn_Complaint(void) { return complaint; }

int StandIn_Live(int kind) {
  enter();
  const int count = live[kind];
  leave();
  return count;
}

// How URLs of a host are resolved. Those of hosts without an answer are never.
void StandIn_Answer(const char* host, KivStatus status, uint32_t kind, const char* scheme, const char* proxyHost,
                    uint32_t port, uint32_t authScheme, uint32_t reason, const char* password) {
  enter();
  Answer* answer = (Answer*)answerFor(host);
  if (!answer) answer = &answers[answerCount++];
  *answer = (Answer){.status = status, .kind = kind, .port = port, .authScheme = authScheme, .reason = reason};
  snprintf(answer->host, sizeof answer->host, "%s", host);
  snprintf(answer->scheme, sizeof answer->scheme, "%s", scheme);
  snprintf(answer->proxyHost, sizeof answer->proxyHost, "%s", proxyHost);
  snprintf(answer->password, sizeof answer->password, "%s", password);
  leave();
}

// The next call of a function returns this status.
void StandIn_Fail(const char* function, KivStatus status) {
  enter();
  snprintf(failingFunction, sizeof failingFunction, "%s", function);
  failingStatus = status;
  leave();
}

int StandIn_WillFail(void) {
  enter();
  const int will = failingFunction[0] != 0;
  leave();
  return will;
}

void StandIn_Change(KivSession* session) {
  enter();
  push(session, KIV_EVENT_CHANGED);
  leave();
}

void StandIn_Log(KivSession* session, uint32_t level, const wchar_t* text) {
  enter();
  KivEvent* const event = push(session, KIV_EVENT_LOG);
  event->status = level;
  copy(event->text, text);
  leave();
}

void StandIn_Withdraw(KivSession* session) {
  enter();
  KivChallenge* const challenge = session->open;
  if (challenge) {
    session->open = NULL;
    --session->asked;
    challenge->withdrawn = challenge->settled = 1;
    ++challenge->object.owners;
    push(session, KIV_EVENT_WITHDRAWN)->challenge = challenge;
  }
  leave();
}

uint32_t StandIn_Number(KivSession* session, uint32_t option) { return session->numbers[option]; }
const wchar_t* StandIn_Text(KivSession* session, uint32_t option) { return session->texts[option]; }
const wchar_t* StandIn_Proxy(KivSession* session, uint32_t which, uint32_t part) {
  return session->proxies[which][part];
}
uint32_t StandIn_Reported(KivSession* session) { return session->reported; }

// ---- The interface: session
// ------------------------------------------------------------------------------------------

const wchar_t* KivStatus_Text(uint32_t statusOrReason) {
  static const wchar_t text[] = L"as scripted";
  (void)statusOrReason;
  return text;
}

uint32_t KivSession_Version(void) { return STAND_IN_VERSION; }

KivStatus KivSession_Create(const wchar_t* userAgent, KivSession** session) {
  KivStatus status = KIV_STATUS_OK;
  enter();
  if (!session || !isText(userAgent, 1024, "KivSession_Create")) {
    status = KIV_STATUS_BAD_ARGUMENT;
  } else if (*session = NULL, !fails("KivSession_Create", &status)) {
    *session = make(KIND_SESSION, sizeof **session);
    (*session)->numbers[KIV_OPTION_TIME_OUT] = 30000;
    (*session)->numbers[KIV_OPTION_SCHEMES] = 0x1B;
  }
  leave();
  return status;
}

static void close(KivSession* session) {
  if (session->closed) return;
  session->closed = 1;
  while (session->requests) endRequest(session->requests, KIV_STATUS_CLOSED, NULL);
  for (int i = 0; i < MOST_ANSWERS; ++i) drop(&session->kept[i]);
  pthread_cond_broadcast(&changed);
}

void KivSession_Close(KivSession* session) {
  enter();
  if (is(session, KIND_SESSION, "KivSession_Close")) close(session);
  leave();
}

static void freeEvent(KivEvent* event);

void KivSession_Destruct(KivSession* session) {
  enter();
  if (session && is(session, KIND_SESSION, "KivSession_Destruct")) {
    close(session);
    while (session->first) {
      KivEvent* const event = session->first;
      session->first = event->next;
      freeEvent(event);
    }
    give(session, KIND_SESSION, "KivSession_Destruct");
  }
  leave();
}

static KivStatus settable(KivSession* session, const char* function) {
  KivStatus status;
  if (!is(session, KIND_SESSION, function)) return KIV_STATUS_BAD_ARGUMENT;
  if (fails(function, &status)) return status;
  return session->closed ? KIV_STATUS_CLOSED : session->began ? KIV_STATUS_TOO_LATE : KIV_STATUS_OK;
}

KivStatus KivSession_SetNumber(KivSession* session, uint32_t option, uint32_t value) {
  static const uint32_t least[] = {0, 0, 1, 1, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0};
  static const uint32_t most[] = {0,        2,        86400000, 86400000, 86400000, 86400000, 86400000, 86400000,
                                  86400000, 86400000, 10000,    32,       2,        2,        0x1B,     4};
  enter();
  KivStatus status = settable(session, "KivSession_SetNumber");
  if (option == 0 || option > 15) {
    complain("KivSession_SetNumber: option %u", option);
    status = KIV_STATUS_BAD_ARGUMENT;
  } else if (status == KIV_STATUS_OK) {
    if (value < least[option] || value > most[option]) {
      status = KIV_STATUS_BAD_ARGUMENT;
    } else {
      session->numbers[option] = value;
    }
  }
  leave();
  return status;
}

KivStatus KivSession_SetText(KivSession* session, uint32_t option, const wchar_t* text) {
  enter();
  KivStatus status = settable(session, "KivSession_SetText");
  if (option != KIV_OPTION_LEFT_OUT && option != KIV_OPTION_BYPASS_LIST) {
    complain("KivSession_SetText: option %u", option);
    status = KIV_STATUS_BAD_ARGUMENT;
  } else if (status == KIV_STATUS_OK && isText(text, MOST_TEXT, "KivSession_SetText")) {
    copy(session->texts[option], text);
  }
  leave();
  return status;
}

KivStatus KivSession_SetProxy(KivSession* session, uint32_t which, const wchar_t* text, const wchar_t* user,
                              const wchar_t* password) {
  const wchar_t* const parts[] = {text, user, password};
  enter();
  KivStatus status = settable(session, "KivSession_SetProxy");
  if (which != KIV_PROXY_PREFERRED && which != KIV_PROXY_FALLBACK) complain("KivSession_SetProxy: which %u", which);
  for (int i = 0; i < 3 && status == KIV_STATUS_OK && !complaint[0]; ++i) {
    if (parts[i] && isText(parts[i], MOST_TEXT, "KivSession_SetProxy")) copy(session->proxies[which][i], parts[i]);
  }
  leave();
  return status;
}

KivStatus KivSession_Lookup(KivSession* session, const wchar_t* url, KivDecision** decision) {
  char host[MOST_HOST];
  KivStatus status = KIV_STATUS_BAD_ARGUMENT;
  enter();
  if (!decision) complain("KivSession_Lookup: no place for the decision");
  if (decision && is(session, KIND_SESSION, "KivSession_Lookup") && isText(url, MOST_TEXT, "KivSession_Lookup")) {
    *decision = NULL;
    KivDecision** const kept = hostOf(url, host) ? keptFor(session, host) : NULL;
    status = session->closed ? KIV_STATUS_CLOSED : !kept ? KIV_STATUS_BAD_URL : KIV_STATUS_NOT_YET;
    if (status == KIV_STATUS_NOT_YET && *kept) {
      *decision = retain(*kept);
      ++session->counters[KIV_COUNTER_KEPT_ANSWERS];
      status = KIV_STATUS_OK;
    }
  }
  leave();
  return status;
}

KivStatus KivSession_Start(KivSession* session, const wchar_t* url, uint32_t timeout, uint64_t tag,
                           KivDoneFunction done, KivRequest** request) {
  KivStatus status = KIV_STATUS_BAD_ARGUMENT;
  enter();
  if (done) complain("KivSession_Start: native threads must not run the language's code");
  if (request) *request = NULL;
  if (is(session, KIND_SESSION, "KivSession_Start") && !fails("KivSession_Start", &status)) {
    status = begin(session, url, timeout, tag, request);
  }
  leave();
  return status;
}

void KivRequest_Cancel(KivRequest* request) {
  enter();
  if (is(request, KIND_REQUEST, "KivRequest_Cancel") && !request->ended) {
    endRequest(request, KIV_STATUS_CANCELLED, NULL);
  }
  leave();
}

void KivRequest_Release(KivRequest* request) {
  enter();
  give(request, KIND_REQUEST, "KivRequest_Release");
  leave();
}

KivStatus KivSession_ReportFailure(KivSession* session, KivDecision* decision, uint32_t reason) {
  KivStatus status = KIV_STATUS_BAD_ARGUMENT;
  enter();
  if (is(session, KIND_SESSION, "KivSession_ReportFailure") &&
      is(decision, KIND_DECISION, "KivSession_ReportFailure") && reason >= 1 && reason <= KIV_FAILURE_TARGET) {
    status = session->closed ? KIV_STATUS_CLOSED : KIV_STATUS_OK;
    session->reported = reason;
    drop(keptFor(session, decision->target));
  }
  leave();
  return status;
}

void KivSession_Forget(KivSession* session) {
  enter();
  if (is(session, KIND_SESSION, "KivSession_Forget")) {
    for (int i = 0; i < MOST_ANSWERS; ++i) drop(&session->kept[i]);
  }
  leave();
}

void KivSession_ForgetCredentials(KivSession* session) {
  enter();
  if (is(session, KIND_SESSION, "KivSession_ForgetCredentials")) {
    session->known = session->declined = session->asked = 0;
    for (int i = 0; i < MOST_ANSWERS; ++i) drop(&session->kept[i]);
  }
  leave();
}

uint64_t KivSession_GetCounter(KivSession* session, uint32_t counter) {
  uint64_t value = 0;
  enter();
  if (is(session, KIND_SESSION, "KivSession_GetCounter") && counter >= 1 && counter <= KIV_COUNTER_LOST_LOG_LINES) {
    value = session->counters[counter];
    for (KivRequest* at = session->requests; at && counter == KIV_COUNTER_WAITING; at = at->next) ++value;
  }
  leave();
  return value;
}

// ---- The interface: events
// -------------------------------------------------------------------------------------------

// Ends what is overdue; returns when to look again.
static struct timespec expire(KivSession* session, struct timespec until) {
  for (KivRequest *request = session->requests, *next; request; request = next) {
    next = request->next;
    if (!request->limited) continue;
    if (isOver(&request->deadline)) {
      endRequest(request, KIV_STATUS_TIMED_OUT, NULL);
    } else if (request->deadline.tv_sec < until.tv_sec ||
               (request->deadline.tv_sec == until.tv_sec && request->deadline.tv_nsec < until.tv_nsec)) {
      until = request->deadline;
    }
  }
  return until;
}

KivStatus KivSession_Next(KivSession* session, uint32_t timeout, KivEvent** event) {
  KivStatus status = KIV_STATUS_BAD_ARGUMENT;
  enter();
  if (!event) complain("KivSession_Next: no place for the event");
  if (event && is(session, KIND_SESSION, "KivSession_Next")) {
    const struct timespec end = in(timeout == KIV_NO_TIME_OUT ? 86400000 : timeout);
    *event = NULL;
    session->looked = 1;
    for (status = KIV_STATUS_OK; status == KIV_STATUS_OK && !*event;) {
      const struct timespec until = expire(session, end);
      if (fails("KivSession_Next", &status)) break;
      if (session->first) {
        *event = session->first;
        session->first = (*event)->next;
        if (!session->first) session->last = NULL;
      } else if (session->closed) {
        *event = make(KIND_EVENT, sizeof **event);
        (*event)->kind = KIV_EVENT_CLOSED;
        status = KIV_STATUS_CLOSED;
      } else if (isOver(&end)) {
        status = KIV_STATUS_NOT_YET;
      } else {
        pthread_cond_timedwait(&changed, &lock, &until);
      }
    }
  }
  leave();
  return status;
}

#define EVENT_FIELD(type, name, field) \
  type name(const KivEvent* event) {   \
    enter();                           \
    is(event, KIND_EVENT, #name);      \
    const type value = event->field;   \
    leave();                           \
    return value;                      \
  }

EVENT_FIELD(uint32_t, KivEvent_Kind, kind)
EVENT_FIELD(uint64_t, KivEvent_Tag, tag)
EVENT_FIELD(uint32_t, KivEvent_Status, status)

const wchar_t* KivEvent_Text(const KivEvent* event) {
  is(event, KIND_EVENT, "KivEvent_Text");
  return event->text;
}

KivDecision* KivEvent_Decision(const KivEvent* event) {
  enter();
  is(event, KIND_EVENT, "KivEvent_Decision");
  KivDecision* const decision = event->decision ? retain(event->decision) : NULL;
  leave();
  return decision;
}

KivChallenge* KivEvent_Challenge(const KivEvent* event) {
  enter();
  is(event, KIND_EVENT, "KivEvent_Challenge");
  if (event->challenge) ++event->challenge->object.owners;
  KivChallenge* const challenge = event->challenge;
  leave();
  return challenge;
}

static void settle(KivChallenge* challenge, int declined) {
  KivSession* const session = challenge->session;
  challenge->settled = 1;
  if (session->open == challenge) session->open = NULL;
  session->declined |= declined;
  if (!session->closed) proceedAll(session);
}

static void freeChallenge(KivChallenge* challenge) {
  if (give(challenge, KIND_CHALLENGE, "KivChallenge_Release") && !challenge->settled) settle(challenge, 1);
}

static void freeEvent(KivEvent* event) {
  if (!give(event, KIND_EVENT, "KivEvent_Release")) return;
  drop(&event->decision);
  if (event->challenge) freeChallenge(event->challenge);
}

void KivEvent_Release(KivEvent* event) {
  enter();
  freeEvent(event);
  leave();
}

// ---- The interface: decisions
// ----------------------------------------------------------------------------------------

#define DECISION_FIELD(type, name, field)  \
  type name(const KivDecision* decision) { \
    enter();                               \
    is(decision, KIND_DECISION, #name);    \
    leave();                               \
    return decision->field;                \
  }

DECISION_FIELD(uint32_t, KivDecision_Kind, kind)
DECISION_FIELD(const wchar_t*, KivDecision_Scheme, scheme)
DECISION_FIELD(const wchar_t*, KivDecision_Host, host)
DECISION_FIELD(uint32_t, KivDecision_Port, port)
DECISION_FIELD(const wchar_t*, KivDecision_ProxyUrl, url)
DECISION_FIELD(uint32_t, KivDecision_AuthScheme, authScheme)
DECISION_FIELD(uint32_t, KivDecision_Reason, reason)

uint64_t KivDecision_Age(const KivDecision* decision) {
  is(decision, KIND_DECISION, "KivDecision_Age");
  return 1500;
}

void KivDecision_Release(KivDecision* decision) {
  enter();
  give(decision, KIND_DECISION, "KivDecision_Release");
  leave();
}

// ---- The interface: challenges
// ---------------------------------------------------------------------------------------

const wchar_t* KivChallenge_Proxy(const KivChallenge* challenge) {
  is(challenge, KIND_CHALLENGE, "KivChallenge_Proxy");
  return challenge->proxy;
}

uint32_t KivChallenge_Scheme(const KivChallenge* challenge) {
  is(challenge, KIND_CHALLENGE, "KivChallenge_Scheme");
  return KIV_SCHEME_BASIC;
}

const wchar_t* KivChallenge_Realm(const KivChallenge* challenge) {
  static const wchar_t realm[] = {'g', 0xE4, 't', 'e', ' ', 0x65E5, 0x672C, ' ', 0xD83D, 0xDE00, 0};
  is(challenge, KIND_CHALLENGE, "KivChallenge_Realm");
  return realm;
}

uint32_t KivChallenge_Attempt(const KivChallenge* challenge) {
  is(challenge, KIND_CHALLENGE, "KivChallenge_Attempt");
  return challenge->attempt;
}

int KivChallenge_IsWithdrawn(const KivChallenge* challenge) {
  enter();
  const int withdrawn = is(challenge, KIND_CHALLENGE, "KivChallenge_IsWithdrawn") && challenge->withdrawn;
  leave();
  return withdrawn;
}

static KivStatus answerable(const KivChallenge* challenge, const char* function) {
  if (!is(challenge, KIND_CHALLENGE, function)) return KIV_STATUS_BAD_ARGUMENT;
  return challenge->session->closed ? KIV_STATUS_CLOSED : challenge->settled ? KIV_STATUS_TOO_LATE : KIV_STATUS_OK;
}

KivStatus KivChallenge_Answer(KivChallenge* challenge, const wchar_t* user, const wchar_t* password) {
  enter();
  KivStatus status = answerable(challenge, "KivChallenge_Answer");
  if (status == KIV_STATUS_OK && (!isText(user, MOST_HOST, "KivChallenge_Answer") || !user[0])) {
    status = KIV_STATUS_BAD_ARGUMENT;
  }
  if (status == KIV_STATUS_OK && isText(password, MOST_HOST, "KivChallenge_Answer")) {
    narrow(challenge->session->user, MOST_HOST, user);
    narrow(challenge->session->password, MOST_HOST, password);
    challenge->session->known = 1;
    settle(challenge, 0);
  }
  leave();
  return status;
}

KivStatus KivChallenge_Decline(KivChallenge* challenge) {
  enter();
  const KivStatus status = answerable(challenge, "KivChallenge_Decline");
  if (status == KIV_STATUS_OK) settle(challenge, 1);
  leave();
  return status;
}

void KivChallenge_Release(KivChallenge* challenge) {
  enter();
  if (challenge) freeChallenge(challenge);
  leave();
}

// ---- The interface: authentication
// -----------------------------------------------------------------------------------

KivStatus KivAuth_Create(KivSession* session, KivDecision* decision, KivAuth** auth) {
  KivStatus status = KIV_STATUS_BAD_ARGUMENT;
  enter();
  if (auth) *auth = NULL;
  if (auth && is(session, KIND_SESSION, "KivAuth_Create") && is(decision, KIND_DECISION, "KivAuth_Create") &&
      decision->kind == KIV_KIND_PROXY) {
    status = session->closed ? KIV_STATUS_CLOSED : KIV_STATUS_OK;
    if (status == KIV_STATUS_OK) {
      *auth = make(KIND_AUTH, sizeof **auth);
      (*auth)->session = session;
      (*auth)->decision = retain(decision);
    }
  }
  leave();
  return status;
}

// Gives a header; the last one is overwritten, since it lives only until this call.
static KivStatus send(KivAuth* auth, const char* text, KivStatus status, const wchar_t** header) {
  if (auth->header) memset(auth->header, 'X', length(auth->header) * sizeof(wchar_t));
  *header = auth->header = calloc(strlen(text) + 1, sizeof(wchar_t));
  widen(auth->header, text);
  auth->sent = 1;
  return status;
}

static KivStatus sendBasic(KivAuth* auth, const wchar_t** header) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  char plain[2 * MOST_HOST + 4] = "", text[4 * MOST_HOST] = "Basic ";
  const int size = snprintf(plain, sizeof plain, "%s:%s", auth->session->user, auth->session->password);
  char* to = text + strlen(text);
  for (int i = 0; i < size; i += 3) {
    const unsigned bits = (unsigned char)plain[i] << 16 | (i + 1 < size ? (unsigned char)plain[i + 1] << 8 : 0) |
                          (i + 2 < size ? (unsigned char)plain[i + 2] : 0);
    *to++ = digits[bits >> 18];
    *to++ = digits[bits >> 12 & 63];
    *to++ = i + 1 < size ? digits[bits >> 6 & 63] : '=';
    *to++ = i + 2 < size ? digits[bits & 63] : '=';
  }
  return send(auth, text, KIV_STATUS_DONE, header);
}

static KivStatus nextOf(KivAuth* auth, const wchar_t* offered, const wchar_t** header) {
  KivSession* const session = auth->session;
  const uint32_t schemes = session->numbers[KIV_OPTION_SCHEMES];
  const int first = !auth->begun;
  auth->begun = 1;
  if (session->closed) return KIV_STATUS_CLOSED;
  if (!offered[0]) {
    if (first && session->known && auth->decision->authScheme == KIV_SCHEME_BASIC) return sendBasic(auth, header);
    return KIV_STATUS_DONE;
  }
  if (contains(offered, "NTLM") && schemes & KIV_SCHEME_NTLM) {
    return auth->sent ? send(auth, "NTLM second", KIV_STATUS_DONE, header)
                      : send(auth, "NTLM first", KIV_STATUS_AGAIN, header);
  }
  if (auth->sent) {
    auth->sent = session->known = 0;
    return KIV_STATUS_REJECTED;
  }
  if (!contains(offered, "Basic") || !(schemes & KIV_SCHEME_BASIC)) return KIV_STATUS_UNSUPPORTED;
  if (session->known) return sendBasic(auth, header);
  char proxy[2 * MOST_HOST];
  narrow(proxy, sizeof proxy, auth->decision->url);
  return openQuestion(session, proxy) ? KIV_STATUS_NOT_YET : KIV_STATUS_UNSUPPORTED;
}

#ifdef STAND_IN_WITHOUT_NEXT
#define KivAuth_Next StandIn_AuthNext
#endif

KivStatus KivAuth_Next(KivAuth* auth, const wchar_t* proxyAuthenticate, const wchar_t** proxyAuthorization) {
  KivStatus status = KIV_STATUS_BAD_ARGUMENT;
  enter();
  if (!proxyAuthorization) complain("KivAuth_Next: no place for the header");
  if (proxyAuthorization && is(auth, KIND_AUTH, "KivAuth_Next") && isText(proxyAuthenticate, 65536, "KivAuth_Next")) {
    *proxyAuthorization = NULL;
    status = nextOf(auth, proxyAuthenticate, proxyAuthorization);
  }
  leave();
  return status;
}

void KivAuth_Release(KivAuth* auth) {
  enter();
  if (auth && give(auth, KIND_AUTH, "KivAuth_Release")) {
    if (auth->header) memset(auth->header, 'X', length(auth->header) * sizeof(wchar_t));
    drop(&auth->decision);
  }
  leave();
}
