/* An application that loads kiv.dll or kiv-session.dll, uses it and frees it, again and again, in one of several ways.
 *
 *   unloading_test parse|throw|request|version|session|script
 */
#include <string.h>

#include <winsock2.h>

#include <windows.h>

#include "../loopback.h"
#include "kiv/kiv.h"
#include "kiv/session.h"
#include "observer.h"
#include "script_settings.h"

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

/* ---- A session that is closed while the system waits for a script. */

enum { PATIENCE = 30000 };

static SOCKET listening;
static SOCKET asking = INVALID_SOCKET; /* the connection on which the script was asked for */

/* Lets the server end the request that the cycle before has left behind: with a script, within one, or with none. */
static void end_request(unsigned way) {
  static const char script[] =
      "HTTP/1.1 200 OK\r\nContent-Type: application/x-ns-proxy-autoconfig\r\nConnection: close\r\n\r\n"
      "function FindProxyForURL(url, host) { return \"PROXY gate:8080\"; }";
  static const char beginning[] = "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nfunction";
  const struct linger reset = {1, 0};
  if (way % 4 == 0) send(asking, script, (int)sizeof script - 1, 0);
  if (way % 4 == 1) send(asking, beginning, (int)sizeof beginning - 1, 0);
  if (way % 4 == 2) setsockopt(asking, SOL_SOCKET, SO_LINGER, (const char*)&reset, sizeof reset);
  closesocket(asking);
}

static DWORD WINAPI destruct(void* parameter) {
  const HMODULE library = GetModuleHandleA("kiv-session.dll");
  EXPORT(library, KivSession_Destruct)(parameter);
  return 0;
}

/* Leaves the system waiting. */
static int await_script(HMODULE library) {
  static unsigned port;
  static unsigned cycle;
  char request[4096];
  KivSession* session = NULL;
  KivDecision* decision = NULL;
  if (!listening) listening = listen_on_loopback(&port);
  if (asking != INVALID_SOCKET) end_request(cycle);
  if (!use_script_at(port, ++cycle)) return 0;
  if (EXPORT(library, KivSession_Create)(L"unloading", &session) != KIV_STATUS_OK) return 0;
  const int waits =
      EXPORT(library, KivSession_Lookup)(session, L"http://target.test/", &decision) == KIV_STATUS_NOT_YET;
  asking = accept(listening, NULL, NULL);
  const int asked = recv(asking, request, sizeof request, 0) > 0;
  const HANDLE destructing = CreateThread(NULL, 0, destruct, session, 0, NULL);
  const int destructed = WaitForSingleObject(destructing, PATIENCE) == WAIT_OBJECT_0;
  CloseHandle(destructing);
  return waits && asked && destructed;
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
    {"session", "kiv-session.dll", have_session, 300, 1}, {"script", "kiv-session.dll", await_script, 40, 1},
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
