/* kiv_session.node: kiv-session.dll as functions of JavaScript. lib/session.js makes classes of them.
 *
 * Both libraries are found at run time: Node's functions in the running program, so that Electron and renamed programs
 * need no build of their own, and kiv-session.dll beside this file. The only native thread that touches Node is the one
 * that runs `wake`, and it does no more than call a thread-safe function. */
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#define NAPI_VERSION 8
#define NAPI_EXTERN
#include <node_api.h>

#include "kiv/session.h"

/* Tables, which would have a line for each name otherwise. */
// clang-format off
#define NODE_FUNCTIONS(X)                                                                                              \
  X(napi_add_env_cleanup_hook) X(napi_call_threadsafe_function) X(napi_create_array_with_length)                       \
  X(napi_create_async_work) X(napi_create_double) X(napi_create_external) X(napi_create_function)                      \
  X(napi_create_promise) X(napi_create_reference) X(napi_create_string_utf16)               \
  X(napi_create_threadsafe_function) X(napi_delete_async_work) X(napi_delete_reference) X(napi_get_cb_info)            \
  X(napi_get_value_int64) X(napi_get_value_external) X(napi_get_value_string_utf16) X(napi_queue_async_work)          \
  X(napi_ref_threadsafe_function) X(napi_release_threadsafe_function) X(napi_remove_env_cleanup_hook)                  \
  X(napi_resolve_deferred) X(napi_set_element) X(napi_set_named_property) X(napi_throw_error)                          \
  X(napi_unref_threadsafe_function)

#define KIV_FUNCTIONS(X)                                                                                               \
  X(KivSession_Version) X(KivStatus_Text) X(KivSession_Create) X(KivSession_Close) X(KivSession_Destruct)              \
  X(KivSession_SetNumber) X(KivSession_SetText) X(KivSession_SetProxy) X(KivSession_SetWake) X(KivSession_Lookup)      \
  X(KivSession_Start) X(KivSession_ReportFailure) X(KivSession_Forget) X(KivSession_ForgetCredentials)                 \
  X(KivSession_GetCounter) X(KivSession_Next) X(KivRequest_Cancel) X(KivRequest_Release) X(KivDecision_Kind)           \
  X(KivDecision_Scheme) X(KivDecision_Host) X(KivDecision_Port) X(KivDecision_ProxyUrl) X(KivDecision_AuthScheme)      \
  X(KivDecision_Age) X(KivDecision_Reason) X(KivDecision_Release) X(KivEvent_Kind) X(KivEvent_Tag) X(KivEvent_Status)  \
  X(KivEvent_Decision) X(KivEvent_Challenge) X(KivEvent_Text) X(KivEvent_Release) X(KivChallenge_Proxy)                \
  X(KivChallenge_Scheme) X(KivChallenge_Realm) X(KivChallenge_Attempt) X(KivChallenge_Answer) X(KivChallenge_Decline)  \
  X(KivChallenge_Release) X(KivAuth_Create) X(KivAuth_Next) X(KivAuth_Release)

#define MEMBER(name) __typeof__(name)* name;
static struct { NODE_FUNCTIONS(MEMBER) } node;
static struct { KIV_FUNCTIONS(MEMBER) } kiv;
// clang-format on

enum { kMostArguments = 5, kOldestVersion = 0x10000, kPathSize = 32768 };

/* A function of the module. Arguments that are missing are undefined. */
typedef napi_value (*Function)(napi_env env, const napi_value* given);

static void* handleIn(napi_env env, napi_value value) {
  void* handle = NULL;
  node.napi_get_value_external(env, value, &handle);
  return handle;
}

/* The library's numbers and tags are whole and below 2^53; 0 for what is no number. */
static int64_t numberIn(napi_env env, napi_value value) {
  int64_t number = 0;
  node.napi_get_value_int64(env, value, &number);
  return number;
}

static uint32_t shortIn(napi_env env, napi_value value) { return (uint32_t)numberIn(env, value); }

/* A copy of a text, to be freed with freeText; null for what is no text. */
static wchar_t* textIn(napi_env env, napi_value value) {
  size_t length = 0;
  if (node.napi_get_value_string_utf16(env, value, NULL, 0, &length) != napi_ok) return NULL;
  wchar_t* text = malloc((length + 1) * sizeof *text);
  if (text) node.napi_get_value_string_utf16(env, value, (char16_t*)text, length + 1, &length);
  return text;
}

static void freeText(wchar_t* text) {
  if (text) SecureZeroMemory(text, wcslen(text) * sizeof *text);
  free(text);
}

static napi_value number(napi_env env, double value) {
  napi_value result = NULL;
  node.napi_create_double(env, value, &result);
  return result;
}

static napi_value text(napi_env env, const wchar_t* value) {
  napi_value result = NULL;
  node.napi_create_string_utf16(env, (const char16_t*)value, NAPI_AUTO_LENGTH, &result);
  return result;
}

typedef void (*Release)(void* handle);

static void releaseHandle(napi_env env, void* handle, void* release) {
  (void)env;
  ((Release)(ULONG_PTR)release)(handle);
}

/* What owns `handle`; undefined for null. */
static napi_value owner(napi_env env, void* handle, Release release) {
  napi_value result = NULL;
  if (handle) node.napi_create_external(env, handle, releaseHandle, (void*)(ULONG_PTR)release, &result);
  return result;
}

static napi_value array(napi_env env, const napi_value* values, uint32_t count) {
  napi_value result = NULL;
  node.napi_create_array_with_length(env, count, &result);
  for (uint32_t index = 0; index < count; ++index) {
    if (values[index]) node.napi_set_element(env, result, index, values[index]);
  }
  return result;
}
#define ARRAY(env, ...) \
  array(env, (napi_value[]){__VA_ARGS__}, sizeof((napi_value[]){__VA_ARGS__}) / sizeof(napi_value))

typedef struct {
  KivSession* handle;
  napi_threadsafe_function wake;
} Session;

static KivSession* sessionIn(napi_env env, napi_value value) {
  const Session* session = handleIn(env, value);
  return session ? session->handle : NULL;
}

static void wake(void* context) { node.napi_call_threadsafe_function(context, NULL, napi_tsfn_nonblocking); }

/* The environment ends, and its thread-safe functions after this: later hooks run first. */
static void endSession(void* context) {
  Session* session = context;
  kiv.KivSession_Destruct(session->handle);
  session->handle = NULL;
}

static void releaseSession(napi_env env, void* data, void* hint) {
  (void)hint;
  Session* session = data;
  if (session->handle) {
    node.napi_remove_env_cleanup_hook(env, endSession, session);
    endSession(session);
    node.napi_release_threadsafe_function(session->wake, napi_tsfn_abort);
  }
  free(session);
}

/* create(userAgent, wake): [status, session]. The loop does not live on for a session, unless `hold` says so. */
static napi_value create(napi_env env, const napi_value* given) {
  Session* session = calloc(1, sizeof *session);
  if (!session) return ARRAY(env, number(env, KIV_STATUS_OUT_OF_MEMORY));
  wchar_t* userAgent = textIn(env, given[0]);
  const KivStatus status = kiv.KivSession_Create(userAgent, &session->handle);
  freeText(userAgent);
  if (status == KIV_STATUS_OK) {
    node.napi_create_threadsafe_function(env, given[1], NULL, text(env, L"kiv"), 0, 1, NULL, NULL, NULL, NULL,
                                         &session->wake);
    node.napi_unref_threadsafe_function(env, session->wake);
    node.napi_add_env_cleanup_hook(env, endSession, session);
    kiv.KivSession_SetWake(session->handle, wake, session->wake);
  }
  napi_value result = NULL;
  node.napi_create_external(env, session, releaseSession, NULL, &result);
  return ARRAY(env, number(env, status), result);
}

/* hold(session, yes): whether the loop lives on for this session. */
static napi_value hold(napi_env env, const napi_value* given) {
  const Session* session = handleIn(env, given[0]);
  const BOOL yes = numberIn(env, given[1]) != 0;
  (yes ? node.napi_ref_threadsafe_function : node.napi_unref_threadsafe_function)(env, session->wake);
  return NULL;
}

/* Functions whose result is a number. */
#define FUNCTION(name, call) \
  static napi_value name(napi_env env, const napi_value* given) { return number(env, (double)kiv.call); }
FUNCTION(setNumber, KivSession_SetNumber(sessionIn(env, given[0]), shortIn(env, given[1]), shortIn(env, given[2])))
FUNCTION(counter, KivSession_GetCounter(sessionIn(env, given[0]), shortIn(env, given[1])))
FUNCTION(report, KivSession_ReportFailure(sessionIn(env, given[0]), handleIn(env, given[1]), shortIn(env, given[2])))
FUNCTION(decline, KivChallenge_Decline(handleIn(env, given[0])))

/* Functions without a result. */
#define PROCEDURE(name, call)                                     \
  static napi_value name(napi_env env, const napi_value* given) { \
    kiv.call;                                                     \
    return NULL;                                                  \
  }
PROCEDURE(closeSession, KivSession_Close(sessionIn(env, given[0])))
PROCEDURE(forget, KivSession_Forget(sessionIn(env, given[0])))
PROCEDURE(forgetCredentials, KivSession_ForgetCredentials(sessionIn(env, given[0])))

static napi_value setText(napi_env env, const napi_value* given) {
  wchar_t* value = textIn(env, given[2]);
  const KivStatus status = kiv.KivSession_SetText(sessionIn(env, given[0]), shortIn(env, given[1]), value);
  freeText(value);
  return number(env, status);
}

static napi_value setProxy(napi_env env, const napi_value* given) {
  wchar_t* texts[3];
  for (int index = 0; index < 3; ++index) texts[index] = textIn(env, given[index + 2]);
  const KivStatus status =
      kiv.KivSession_SetProxy(sessionIn(env, given[0]), shortIn(env, given[1]), texts[0], texts[1], texts[2]);
  for (int index = 0; index < 3; ++index) freeText(texts[index]);
  return number(env, status);
}

/* [handle, kind, scheme, host, port, url, auth scheme, reason, age]; undefined for null. */
static napi_value decisionOf(napi_env env, KivDecision* decision) {
  if (!decision) return NULL;
  return ARRAY(env, owner(env, decision, (Release)kiv.KivDecision_Release), number(env, kiv.KivDecision_Kind(decision)),
               text(env, kiv.KivDecision_Scheme(decision)), text(env, kiv.KivDecision_Host(decision)),
               number(env, kiv.KivDecision_Port(decision)), text(env, kiv.KivDecision_ProxyUrl(decision)),
               number(env, kiv.KivDecision_AuthScheme(decision)), number(env, kiv.KivDecision_Reason(decision)),
               number(env, (double)kiv.KivDecision_Age(decision)));
}

/* lookup(session, url): [status, decision] */
static napi_value lookup(napi_env env, const napi_value* given) {
  KivDecision* decision = NULL;
  wchar_t* url = textIn(env, given[1]);
  const KivStatus status = kiv.KivSession_Lookup(sessionIn(env, given[0]), url, &decision);
  freeText(url);
  return ARRAY(env, number(env, status), decisionOf(env, decision));
}

/* start(session, url, timeout, tag): [status, request] */
static napi_value start(napi_env env, const napi_value* given) {
  KivRequest* request = NULL;
  wchar_t* url = textIn(env, given[1]);
  const KivStatus status = kiv.KivSession_Start(sessionIn(env, given[0]), url, shortIn(env, given[2]),
                                                (uint64_t)numberIn(env, given[3]), NULL, &request);
  freeText(url);
  return ARRAY(env, number(env, status), owner(env, request, (Release)kiv.KivRequest_Release));
}

PROCEDURE(cancel, KivRequest_Cancel(handleIn(env, given[0])))

/* [handle, identity, proxy, scheme, realm, attempt]; undefined for null. */
static napi_value challengeOf(napi_env env, KivChallenge* challenge) {
  if (!challenge) return NULL;
  return ARRAY(env, owner(env, challenge, (Release)kiv.KivChallenge_Release), number(env, (double)(ULONG_PTR)challenge),
               text(env, kiv.KivChallenge_Proxy(challenge)), number(env, kiv.KivChallenge_Scheme(challenge)),
               text(env, kiv.KivChallenge_Realm(challenge)), number(env, kiv.KivChallenge_Attempt(challenge)));
}

/* next(session): [kind, tag, status, decision, challenge, text]; undefined if there is none. */
static napi_value next(napi_env env, const napi_value* given) {
  KivEvent* event = NULL;
  kiv.KivSession_Next(sessionIn(env, given[0]), 0, &event);
  if (!event) return NULL;
  const napi_value result =
      ARRAY(env, number(env, kiv.KivEvent_Kind(event)), number(env, (double)kiv.KivEvent_Tag(event)),
            number(env, kiv.KivEvent_Status(event)), decisionOf(env, kiv.KivEvent_Decision(event)),
            challengeOf(env, kiv.KivEvent_Challenge(event)), text(env, kiv.KivEvent_Text(event)));
  kiv.KivEvent_Release(event);
  return result;
}

static napi_value answer(napi_env env, const napi_value* given) {
  wchar_t* user = textIn(env, given[1]);
  wchar_t* password = textIn(env, given[2]);
  const KivStatus status = kiv.KivChallenge_Answer(handleIn(env, given[0]), user, password);
  freeText(user);
  freeText(password);
  return number(env, status);
}

/* One call of KivAuth_Next, which may wait for a domain controller, on a thread of Node's pool. */
typedef struct {
  KivAuth* auth;
  napi_ref owner;
  wchar_t* challenges;
  const wchar_t* header;
  KivStatus status;
  napi_deferred promise;
  napi_async_work work;
} AuthStep;

/* auth(session, decision): [status, auth] */
static napi_value createAuth(napi_env env, const napi_value* given) {
  KivAuth* auth = NULL;
  const KivStatus status = kiv.KivAuth_Create(sessionIn(env, given[0]), handleIn(env, given[1]), &auth);
  return ARRAY(env, number(env, status), owner(env, auth, (Release)kiv.KivAuth_Release));
}

static void takeAuthStep(napi_env env, void* data) {
  (void)env;
  AuthStep* step = data;
  step->status = kiv.KivAuth_Next(step->auth, step->challenges, &step->header);
}

static void endAuthStep(napi_env env, napi_status ended, void* data) {
  AuthStep* step = data;
  const KivStatus status = ended == napi_ok ? step->status : KIV_STATUS_CANCELLED;
  node.napi_resolve_deferred(env, step->promise,
                             ARRAY(env, number(env, status), step->header ? text(env, step->header) : NULL));
  node.napi_delete_reference(env, step->owner);
  node.napi_delete_async_work(env, step->work);
  freeText(step->challenges);
  free(step);
}

/* authNext(auth, challenges): a promise of [status, header]. */
static napi_value authNext(napi_env env, const napi_value* given) {
  napi_value promise = NULL;
  AuthStep* step = calloc(1, sizeof *step);
  if (!step) return NULL;
  step->auth = handleIn(env, given[0]);
  step->challenges = textIn(env, given[1]);
  node.napi_create_reference(env, given[0], 1, &step->owner);
  node.napi_create_promise(env, &step->promise, &promise);
  node.napi_create_async_work(env, NULL, text(env, L"kiv"), takeAuthStep, endAuthStep, step, &step->work);
  node.napi_queue_async_work(env, step->work);
  return promise;
}

static napi_value statusText(napi_env env, const napi_value* given) {
  return text(env, kiv.KivStatus_Text(shortIn(env, given[0])));
}

/* Calls the function that `data` points to with the arguments of JavaScript. */
static napi_value call(napi_env env, napi_callback_info info) {
  napi_value given[kMostArguments];
  size_t count = kMostArguments;
  void* data = NULL;
  node.napi_get_cb_info(env, info, &count, given, NULL, &data);
  return ((Function)(ULONG_PTR)data)(env, given);
}

#define ENTRY(name) {#name, name},
// clang-format off
static const struct {
  const char* name;
  Function function;
} kFunctions[] = {
  {"close", closeSession}, ENTRY(statusText) ENTRY(create) ENTRY(hold) ENTRY(setNumber) ENTRY(setText)
  ENTRY(setProxy) ENTRY(lookup) ENTRY(start) ENTRY(cancel) ENTRY(next) ENTRY(report) ENTRY(forget)
  ENTRY(forgetCredentials) ENTRY(counter) ENTRY(answer) ENTRY(decline) ENTRY(createAuth) ENTRY(authNext)
};
// clang-format on

/* What keeps the addon from working; empty if nothing does. */
static char problem[256];
#define FAIL(...) snprintf(problem, sizeof problem, __VA_ARGS__)

/* Looks a function up in `module`; `missing` is the first one that is not there. */
#define FIND_IN(library, name)                                                \
  library.name = (__typeof__(name)*)(ULONG_PTR)GetProcAddress(module, #name); \
  if (!library.name && !missing) missing = #name;
#define FIND_NODE(name) FIND_IN(node, name)
#define FIND_KIV(name) FIND_IN(kiv, name)

/* From beside this file, whatever folder that is. */
static HMODULE loadSessionLibrary(void) {
  static wchar_t path[kPathSize];
  HMODULE module = NULL;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     (const wchar_t*)(ULONG_PTR)loadSessionLibrary, &module);
  GetModuleFileNameW(module, path, kPathSize - 32);
  wcscpy(wcsrchr(path, L'\\') + 1, L"kiv-session.dll");
  return LoadLibraryExW(path, NULL, LOAD_WITH_ALTERED_SEARCH_PATH);
}

static void findSessionLibrary(void) {
  const HMODULE module = loadSessionLibrary();
  const DWORD error = GetLastError();
  const char* missing = NULL;
  if (!module && error == ERROR_BAD_EXE_FORMAT) {
    FAIL("kiv-session.dll is no DLL for x64 (error %lu): install kiv-win32-x64 again", error);
    return;
  }
  if (!module) {
    FAIL("no kiv-session.dll can be loaded from beside kiv_session.node (error %lu): install kiv-win32-x64 again",
         error);
    return;
  }
  KIV_FUNCTIONS(FIND_KIV)
  if (missing) {
    FAIL("kiv-session.dll has no function %s: install the kiv-win32-x64 that belongs to this kiv", missing);
    return;
  }
  const uint32_t version = kiv.KivSession_Version();
  if (version < kOldestVersion || version >> 16 != kOldestVersion >> 16) {
    FAIL("kiv-session.dll is version %u.%u.%u: install the kiv-win32-x64 that belongs to this kiv", version >> 16,
         version >> 8 & 0xFF, version & 0xFF);
  }
}

static BOOL CALLBACK findLibraries(INIT_ONCE* once, void* parameter, void** result) {
  (void)once, (void)parameter, (void)result;
  const HMODULE module = GetModuleHandleW(NULL);
  const char* missing = NULL;
  NODE_FUNCTIONS(FIND_NODE)
  if (missing) {
    FAIL("the running program exports no %s, and so not version %d of Node's interface", missing, NAPI_VERSION);
  } else {
    findSessionLibrary();
  }
  return TRUE;
}

__declspec(dllexport) napi_value napi_register_module_v1(napi_env env, napi_value exports) {
  static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
  InitOnceExecuteOnce(&once, findLibraries, NULL, NULL);
  if (problem[0]) {
    if (node.napi_throw_error) node.napi_throw_error(env, "KIV_UNSUPPORTED", problem);
    return NULL;
  }
  for (size_t index = 0; index < sizeof kFunctions / sizeof *kFunctions; ++index) {
    napi_value function = NULL;
    node.napi_create_function(env, kFunctions[index].name, NAPI_AUTO_LENGTH, call,
                              (void*)(ULONG_PTR)kFunctions[index].function, &function);
    node.napi_set_named_property(env, exports, kFunctions[index].name, function);
  }
  return exports;
}
