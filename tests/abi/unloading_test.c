/* An application that loads kiv.dll or kiv-session.dll, uses it and frees it, again and again, in one of several ways.
 *
 *   unloading_test parse|throw|request|version|session
 */
#include <string.h>

#include <windows.h>

#include "kiv/kiv.h"
#include "kiv/session.h"
#include "observer.h"

#define EXPORT(kiv, name) ((__typeof__(&(name)))(ULONG_PTR)GetProcAddress(kiv, #name))

static int parse(HMODULE kiv, const wchar_t* text) {
  KivProxyConfig* config = EXPORT(kiv, KivProxyConfig_Parse)(text, NULL);
  EXPORT(kiv, KivProxyConfig_Destruct)(config);
  return config != NULL;
}

static int parse_proxy(HMODULE kiv) { return parse(kiv, L"http://gate:8080"); }

/* A port that is too large is an exception, thrown and caught within the library. */
static int throw_within(HMODULE kiv) { return parse(kiv, L"http://gate:99999999999999"); }

static int request_nobody(HMODULE kiv) {
  KivHttpClient* client = EXPORT(kiv, KivHttpClient_Create)(closed_url(), L"unloading", 0);
  const int status = EXPORT(kiv, KivHttpClient_Head)(client, NULL);
  EXPORT(kiv, KivHttpClient_Destruct)(client);
  return status == -1;
}

static int ask_version(HMODULE session) { return EXPORT(session, KivSession_Version)() >= 0x10000; }

static int have_session(HMODULE library) {
  KivSession* session = NULL;
  const int created = EXPORT(library, KivSession_Create)(L"unloading", &session) == KIV_STATUS_OK;
  EXPORT(library, KivSession_Destruct)(session);
  return created;
}

/* The C++ run-time takes an index of thread-local storage at the first exception, and the notification that a request
 * has closed may still be returning from the library's code when the request is done: after either the DLL stays. The
 * first session keeps kiv-session.dll. */
static const struct way {
  const char* name;
  const char* library;
  int (*use)(HMODULE kiv);
  int cycles;
  int stays;
} ways[] = {
    {"parse", "kiv.dll", parse_proxy, 3000, 0},           {"throw", "kiv.dll", throw_within, 3000, 1},
    {"request", "kiv.dll", request_nobody, 300, 1},       {"version", "kiv-session.dll", ask_version, 300, 0},
    {"session", "kiv-session.dll", have_session, 300, 1},
};

/* A process has 1,088 indexes of thread-local storage. */
static int free_tls_indexes(void) {
  DWORD taken[2048];
  int count = 0;
  while (count < 2048 && (taken[count] = TlsAlloc()) != TLS_OUT_OF_INDEXES) ++count;
  for (int i = 0; i < count; ++i) TlsFree(taken[i]);
  return count;
}

static int cycle(const struct way* way) {
  const HMODULE library = LoadLibraryA(way->library);
  const int used = library && way->use(library);
  return FreeLibrary(library) && used;
}

static void check_cycles(const struct way* way) {
  begin_case("%s", way->name);
  CHECK(GetModuleHandleA(way->library) == NULL);
  CHECK(cycle(way)); /* what the process keeps, it takes now */
  CHECK((GetModuleHandleA(way->library) != NULL) == way->stays);
  const int before = free_tls_indexes();
  int good = 0;
  for (int i = 0; i < way->cycles; ++i) good += cycle(way);
  CHECK(good == way->cycles);
  CHECK(before > 0);
  CHECK(free_tls_indexes() == before);
}

int main(int count, char** arguments) {
  for (size_t i = 0; i < sizeof ways / sizeof *ways; ++i) {
    if (count == 2 && strcmp(arguments[1], ways[i].name) == 0) {
      check_cycles(&ways[i]);
      return report_checks();
    }
  }
  return 64;
}
