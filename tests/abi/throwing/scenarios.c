/* An application over the shipped kiv.dll whose callbacks throw, one after the other. What it throws, and how it
 * catches that, is the compiler's with which it is built; this file is the same for all of them. */
#include "../observer.h"
#include "exceptions.h"
#include "kiv/kiv.h"

static const wchar_t* const agent = L"throwing";
static const wchar_t* const password = L"a password that is wiped";

/* What is called, and what becomes of an exception that a callback throws meanwhile. */
struct call {
  const char* name;
  enum outcome outcome;
  void (*run)(void* application);
  void (*log)(const KivLogger* logger, const wchar_t* message);
  int (*request)(const KivHttpClient* client, const KivLogger* logger);
  const wchar_t* (*url)(void); /* what is requested */
  int status;                  /* the result, if no callback throws */
};

enum callback { LOG, FILTER, SERVER_CRED, PROXY_CRED, TEST_CONNECTION, SET_SERVER_CRED, SET_PROXY, GET_LOGGER, SINK };
static const char* const callback_names[] = {"log",           "filter",   "serverCred", "proxyCred", "testConnection",
                                             "setServerCred", "setProxy", "getLogger",  "sink"};
enum { CALLBACKS = sizeof callback_names / sizeof *callback_names };
static int throws_of[CALLBACKS];

/* An application in the middle of a call. */
struct application {
  const struct call* call;
  const struct exceptions* exceptions;
  int exception;
  int throw_at; /* which of the calls of callbacks throws, from 1; 0 for none */
  int callbacks;
  int threw;
  int requesting; /* the test callback sends a request */
  int threw_in_request;
  int ended; /* the last line of a resolution was logged */
  int tests;
  int right; /* the call returned what it should */
  KivLogger* logger;
  KivHttpClient* client;
};

/* Every callback does this, as the last thing that it does but for giving its result. */
static void call_back(const void* context, enum callback callback) {
  struct application* self = (struct application*)context;
  if (++self->callbacks != self->throw_at) return;
  ++throws_of[callback];
  self->threw = 1;
  self->threw_in_request = self->requesting;
  begin_case("%s: %s of %s, call %d of a callback", self->call->name, self->exceptions->name(self->exception),
             callback_names[callback], self->throw_at);
  self->exceptions->throw_it(self->exception);
  self->threw = 0; /* the application continued it: nothing has happened */
}

static int same_text(const wchar_t* left, const wchar_t* right) {
  while (*left && *left == *right) ++left, ++right;
  return *left == *right;
}

static void take_line(void* context, const KivLog* log) {
  ((struct application*)context)->ended = same_text(KivLog_Message(log), L"END: ProxyResolver");
  call_back(context, LOG);
}
static int filter(const void* context, KivProxyConfig* candidate) {
  (void)candidate;
  call_back(context, FILTER);
  return 1;
}
static KivCred* server_cred(const void* context, const wchar_t* url) {
  (void)url;
  call_back(context, SERVER_CRED);
  return KivCred_Create(L"user", password);
}
static KivCred* proxy_cred(const void* context, KivProxyConfig* proxy) {
  (void)proxy;
  call_back(context, PROXY_CRED);
  return KivCred_Create(L"user", password);
}
static void set_server_cred(void* context, KivCred* cred) {
  KivHttpClient_SetServerCred(((struct application*)context)->client, cred);
  KivCred_Destruct(cred);
  call_back(context, SET_SERVER_CRED);
}
static void set_proxy(void* context, KivProxyConfig* proxy) {
  KivHttpClient_SetProxy(((struct application*)context)->client, proxy);
  call_back(context, SET_PROXY);
}
static KivLogger* get_logger(const void* context) {
  call_back(context, GET_LOGGER);
  return ((const struct application*)context)->logger;
}
static int test_connection(const void* client, const void* context) {
  static const int answers[] = {407, 401, 200};
  struct application* self = (struct application*)client;
  call_back(context, TEST_CONNECTION);
  if (!self->call->request) return answers[self->tests++ % 3];
  self->requesting = 1;
  const int status = self->call->request(self->client, self->logger);
  self->requesting = 0;
  return status;
}
static void take_text(void* context, const wchar_t* text) {
  ((struct application*)context)->right = same_text(text, L"http://user:a password that is wiped@gate:8080");
  call_back(context, SINK);
}

static void log_line(void* application) {
  struct application* self = application;
  self->call->log(self->logger, L"a line that is not short");
  self->right = !self->threw;
}

static void request(void* application) {
  struct application* self = application;
  const struct call* call = self->call;
  self->right = call->request(self->client, self->logger) == (self->threw ? -1 : call->status);
  /* The client is as good as before. */
  if (self->threw) self->right = self->right && call->request(self->client, self->logger) == call->status;
}

static KivProxyConfig* gate(void) {
  KivCred* cred = KivCred_Create(L"user", password);
  KivProxyConfig* config = KivProxyConfig_Http(L"gate", 8080, cred);
  KivCred_Destruct(cred);
  return config;
}

static void to_string(void* application) {
  KivProxyConfig* config = gate();
  KivProxyConfig_ToString(config, 1, 1, application, take_text);
  KivProxyConfig_Destruct(config);
}

static void resolve(void* application) {
  struct application* self = application;
  KivProxyConfig* preferred = self->client ? KivProxyConfig_Direct() : gate();
  KivProxyConfig* found =
      KivProxyResolver_Resolve(L"http://target/", agent, L"", preferred, 0, self, filter, self, server_cred, self,
                               proxy_cred, self, test_connection, set_server_cred, set_proxy, self, get_logger);
  /* What the log throws at a line of a request fails the request, and what it throws at the last line fails nothing. */
  const int threw_at_end = self->ended && self->callbacks == self->throw_at;
  const int failed = self->threw && !self->threw_in_request && !threw_at_end;
  const int has_logger = self->callbacks > 1;
  self->right = (found == 0) == failed && self->ended == has_logger;
  KivProxyConfig_Destruct(found);
  KivProxyConfig_Destruct(preferred);
}

static const struct call calls[] = {
    {"KivLogger_Error", ARRIVED, log_line, .log = KivLogger_Error},
    {"KivLogger_Warn", ARRIVED, log_line, .log = KivLogger_Warn},
    {"KivLogger_Info", ARRIVED, log_line, .log = KivLogger_Info},
    {"KivLogger_Debug", ARRIVED, log_line, .log = KivLogger_Debug},
    {"KivHttpClient_Head, 200", RETURNED, request, .request = KivHttpClient_Head, .url = served_url, .status = 200},
    {"KivHttpClient_Get, 200", RETURNED, request, .request = KivHttpClient_Get, .url = served_url, .status = 200},
    {"KivHttpClient_Head, 401", RETURNED, request, .request = KivHttpClient_Head, .url = challenging_url, .status = -1},
    {"KivHttpClient_Get, 401", RETURNED, request, .request = KivHttpClient_Get, .url = challenging_url, .status = -1},
    {"KivHttpClient_Head, closed", RETURNED, request, .request = KivHttpClient_Head, .url = closed_url, .status = -1},
    {"KivHttpClient_Get, closed", RETURNED, request, .request = KivHttpClient_Get, .url = closed_url, .status = -1},
    {"KivProxyConfig_ToString", RETURNED, to_string, .log = 0},
    {"KivProxyResolver_Resolve", RETURNED, resolve, .request = 0},
    {"KivProxyResolver_Resolve with Head", RETURNED, resolve, .request = KivHttpClient_Head, .url = served_url},
};
enum { CALLS = sizeof calls / sizeof *calls };

/* Makes the call with an exception of the callbacks' call number `throw_at`. */
static enum outcome run(struct application* self, const struct call* call, const struct exceptions* exceptions,
                        int exception, int throw_at) {
  const struct application made = {.call = call,
                                   .exceptions = exceptions,
                                   .exception = exception,
                                   .throw_at = throw_at,
                                   .logger = KivLogger_Construct(self, take_line),
                                   .client = call->url ? KivHttpClient_Create(call->url(), agent, 0) : 0};
  *self = made;
  const enum outcome outcome = exceptions->catch_it(exception, call->run, self);
  KivHttpClient_Destruct(self->client);
  KivLogger_Destruct(self->logger);
  return outcome;
}

static int callbacks_of(const struct call* call) {
  struct application application;
  begin_case("%s", call->name);
  CHECK(run(&application, call, &cpp_exceptions, 0, 0) == RETURNED);
  CHECK(application.callbacks > 0);
  return application.callbacks;
}

static void throw_cpp(const struct call* call, int exception, int throw_at) {
  struct application application;
  const long blocks = live_blocks();
  const long internet_handles = live_internet_handles();
  watch_for_secret(password);
  const enum outcome outcome = run(&application, call, &cpp_exceptions, exception, throw_at);
  CHECK(application.threw);
  CHECK(outcome == call->outcome);
  CHECK(outcome != RETURNED || application.right);
  CHECK(cpp_exceptions.alive() == 0);
  CHECK(live_blocks() == blocks);
  CHECK(live_internet_handles() == internet_handles);
  CHECK(freed_with_secret() == 0);
}

/* A thread's first exception, and a process's first request, obtain what is kept. */
static void warm_up(void* context) {
  (void)context;
  struct application application;
  for (const struct call* call = calls; call < calls + CALLS; ++call) {
    run(&application, call, &cpp_exceptions, 0, 0);
    run(&application, call, &cpp_exceptions, 0, 1);
  }
}

static void throw_each_cpp_exception_in_each_callback(void* context) {
  (void)context;
  warm_up(0);
  for (const struct call* call = calls; call < calls + CALLS; ++call) {
    const int callbacks = callbacks_of(call);
    for (int exception = 0; exception < cpp_exceptions.count; ++exception) {
      for (int throw_at = 1; throw_at <= callbacks; ++throw_at) throw_cpp(call, exception, throw_at);
    }
  }
}

static void throw_system(const struct call* call, int exception, int throw_at) {
  struct application application;
  const enum outcome outcome = run(&application, call, &system_exceptions, exception, throw_at);
  CHECK(outcome == ARRIVED || (outcome == CONTINUED && application.right));
  CHECK(system_exceptions.alive() == 0);
}

/* What is not C++'s passes without that anything is released, and WinHTTP must not be left with the address of a
 * request that is gone: while one is open nothing is thrown. */
static void throw_each_system_exception_in_each_callback(void) {
  for (const struct call* call = calls; call < calls + CALLS; ++call) {
    const int callbacks = call->request ? 1 : callbacks_of(call);
    for (int exception = 0; exception < system_exceptions.count; ++exception) {
      for (int throw_at = 1; throw_at <= callbacks; ++throw_at) throw_system(call, exception, throw_at);
    }
  }
}

static void count_what_is_counted(void) {
  begin_case("counting");
  CHECK(watch_kiv());
  const long blocks = live_blocks();
  const long internet_handles = live_internet_handles();
  KivHttpClient* client = KivHttpClient_Create(closed_url(), agent, 0);
  CHECK(live_blocks() > blocks);
  CHECK(live_internet_handles() == internet_handles + 2);
  KivHttpClient_Destruct(client);
  CHECK(live_blocks() == blocks);
  CHECK(live_internet_handles() == internet_handles);
}

/* The system's own threads come and go; two events that each request loses are far beyond this. */
enum { HANDLE_MARGIN = 16 };

static void check_that_every_callback_threw(void) {
  for (int callback = 0; callback < CALLBACKS; ++callback) {
    begin_case("%s", callback_names[callback]);
    CHECK(throws_of[callback] > 0);
  }
}

int main(void) {
  count_what_is_counted();
  throw_each_cpp_exception_in_each_callback(0);

  on_new_thread(warm_up, 0);
  const int handles = process_handles();
  const long blocks = live_blocks();
  on_new_thread(throw_each_cpp_exception_in_each_callback, 0);
  begin_case("another thread");
  CHECK(live_blocks() == blocks);
  CHECK(process_handles() <= handles + HANDLE_MARGIN);

  throw_each_system_exception_in_each_callback();
  check_that_every_callback_threw();
  return report_checks();
}
