/* An application that loads kiv.dll, uses it and frees it, again and again. One way to use it in each process: the
 * first may be what keeps the DLL loaded.
 *
 *   unloading_test throw|request
 */
#include <string.h>

#include <windows.h>

#include "kiv/kiv.h"
#include "observer.h"

#define EXPORT(kiv, name) ((__typeof__(&(name)))(ULONG_PTR)GetProcAddress(kiv, #name))

/* An exception is thrown and caught within the library: it reads a port that is too large. */
static int throw_within(HMODULE kiv) {
  KivProxyConfig* config = EXPORT(kiv, KivProxyConfig_Parse)(L"http://h:99999999999999", NULL);
  EXPORT(kiv, KivProxyConfig_Destruct)(config);
  return config != NULL;
}

/* The notification that the request has closed may still be returning from the library's code when this returns. */
static int request_nobody(HMODULE kiv) {
  KivHttpClient* client = EXPORT(kiv, KivHttpClient_Create)(closed_url(), L"unloading", 0);
  const int status = EXPORT(kiv, KivHttpClient_Head)(client, NULL);
  EXPORT(kiv, KivHttpClient_Destruct)(client);
  return status == -1;
}

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

static void cycles(int count, int (*use)(HMODULE)) {
  CHECK(cycle(use)); /* what the process keeps, it takes now */
  const int before = free_tls_indexes();
  int good = 0;
  for (int i = 0; i < count; ++i) good += cycle(use);
  CHECK(good == count);
  CHECK(before > 0);
  CHECK(free_tls_indexes() == before);
}

int main(int count, char** arguments) {
  const int throwing = count == 2 && strcmp(arguments[1], "throw") == 0;
  begin_case("unloading after %s", throwing ? "an exception" : "a request");
  CHECK(GetModuleHandleA("kiv.dll") == NULL);
  cycles(throwing ? 3000 : 300, throwing ? throw_within : request_nobody);
  return report_checks();
}
