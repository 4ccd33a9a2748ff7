/* An application that loads kiv.dll, uses it and frees it, again and again, in one of three ways.
 *
 *   unloading_test parse|throw|request
 */
#include <string.h>

#include <windows.h>

#include "kiv/kiv.h"
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

/* The C++ run-time takes an index of thread-local storage at the first exception, and the notification that a request
 * has closed may still be returning from the library's code when the request is done: after either the DLL stays. */
static const struct way {
  const char* name;
  int (*use)(HMODULE kiv);
  int cycles;
  int stays;
} ways[] = {
    {"parse", parse_proxy, 3000, 0},
    {"throw", throw_within, 3000, 1},
    {"request", request_nobody, 300, 1},
};

/* A process has 1,088 indexes of thread-local storage. */
static int free_tls_indexes(void) {
  DWORD taken[2048];
  int count = 0;
  while (count < 2048 && (taken[count] = TlsAlloc()) != TLS_OUT_OF_INDEXES) ++count;
  for (int i = 0; i < count; ++i) TlsFree(taken[i]);
  return count;
}

static int cycle(int (*use)(HMODULE)) {
  const HMODULE kiv = LoadLibraryA("kiv.dll");
  const int used = kiv && use(kiv);
  return FreeLibrary(kiv) && used;
}

static void check_cycles(const struct way* way) {
  begin_case("%s", way->name);
  CHECK(GetModuleHandleA("kiv.dll") == NULL);
  CHECK(cycle(way->use)); /* what the process keeps, it takes now */
  CHECK((GetModuleHandleA("kiv.dll") != NULL) == way->stays);
  const int before = free_tls_indexes();
  int good = 0;
  for (int i = 0; i < way->cycles; ++i) good += cycle(way->use);
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
