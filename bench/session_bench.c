/* What kiv-session.dll costs a program: prints "<what> <figure>" lines, from which table.py makes a table. Runs over
 * the shipped DLLs, since threads and blocks of memory are the system's. */
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <winsock2.h>

#include <windows.h>

#include "../tests/loopback.h"
#include "../tests/plain_callbacks.h"
#include "kiv/kiv.h"
#include "kiv/session.h"

enum { BATCH = 1000, ROUNDS = 101, MOST_ORIGINS = 10000, FIRST_ROUNDS = 31 };

static double now(void) {
  LARGE_INTEGER count, frequency;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return 1e9 * (double)count.QuadPart / (double)frequency.QuadPart;
}

static int by_size(const void* left, const void* right) {
  const double difference = *(const double*)left - *(const double*)right;
  return (difference > 0) - (difference < 0);
}

static double median(double* figures, size_t count) {
  qsort(figures, count, sizeof *figures, by_size);
  return figures[count / 2];
}

/* ---- The blocks that kiv-session.dll allocates, counted in its import table. */

static volatile LONG64 allocations;
static volatile LONG64 live_bytes;

static void* counting_malloc(size_t size) {
  void* block = malloc(size);
  InterlockedIncrement64(&allocations);
  if (block) InterlockedExchangeAdd64(&live_bytes, (LONG64)_msize(block));
  return block;
}
static void counting_free(void* block) {
  if (block) InterlockedExchangeAdd64(&live_bytes, -(LONG64)_msize(block));
  free(block);
}

static int hook(const char* name, ULONG_PTR function) {
  char* base = (char*)GetModuleHandleA("kiv-session.dll");
  const IMAGE_NT_HEADERS* headers = (const IMAGE_NT_HEADERS*)(base + ((const IMAGE_DOS_HEADER*)base)->e_lfanew);
  const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (const IMAGE_IMPORT_DESCRIPTOR* from = (const IMAGE_IMPORT_DESCRIPTOR*)(base + imports); from->Name; ++from) {
    const IMAGE_THUNK_DATA* names = (const IMAGE_THUNK_DATA*)(base + from->OriginalFirstThunk);
    IMAGE_THUNK_DATA* slot = (IMAGE_THUNK_DATA*)(base + from->FirstThunk);
    for (; names->u1.AddressOfData; ++names, ++slot) {
      DWORD protection = 0;
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      if (strcmp(((const IMAGE_IMPORT_BY_NAME*)(base + names->u1.AddressOfData))->Name, name) != 0) continue;
      if (!VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection)) return 0;
      slot->u1.Function = function;
      return 1;
    }
  }
  return 0;
}

/* ---- A session that tests nothing. */

static KivSession* new_session(uint32_t origins) {
  KivSession* session = NULL;
  if (KivSession_Create(L"bench", &session) != KIV_STATUS_OK) exit(1);
  KivSession_SetNumber(session, KIV_OPTION_TEST, KIV_TEST_NONE);
  KivSession_SetNumber(session, KIV_OPTION_ORIGINS, origins);
  KivSession_SetNumber(session, KIV_OPTION_KEPT_TIME, 86400000);
  KivSession_SetProxy(session, KIV_PROXY_PREFERRED, L"gate:8080", NULL, NULL);
  return session;
}

/* 60 characters. */
static void url_of(wchar_t* url, int number) {
  swprintf(url, 64, L"https://www%05d.target.example:8443/some/path?query=12345678", number);
}

static void resolve(KivSession* session, const wchar_t* url) {
  KivDecision* decision = NULL;
  if (KivSession_Resolve(session, url, 0, &decision) != KIV_STATUS_OK) exit(2);
  KivDecision_Release(decision);
}

static void look_up(KivSession* session, const wchar_t* url) {
  KivDecision* decision = NULL;
  if (KivSession_Lookup(session, url, &decision) != KIV_STATUS_OK) exit(3);
  KivDecision_Release(decision);
}

static double time_of_lookup(KivSession* session, int origins) {
  static double figures[ROUNDS];
  wchar_t urls[8][64];
  for (int i = 0; i < 8; ++i) url_of(urls[i], i * (origins - 1) / 7);
  for (int round = 0; round < ROUNDS; ++round) {
    const double begun = now();
    for (int i = 0; i < BATCH; ++i) look_up(session, urls[i % 8]);
    figures[round] = (now() - begun) / BATCH;
  }
  return median(figures, ROUNDS);
}

/* ---- Threads. */

struct worker {
  KivSession* session;
  wchar_t url[64];
  long lookups;
};
static volatile LONG go;

static DWORD WINAPI work(void* parameter) {
  struct worker* self = parameter;
  while (!go) YieldProcessor();
  while (go == 1) {
    for (int i = 0; i < 100; ++i) look_up(self->session, self->url);
    self->lookups += 100;
  }
  return 0;
}

static double rate(KivSession* session, int threads) {
  struct worker workers[2] = {{0}};
  HANDLE handles[2];
  go = 0;
  for (int i = 0; i < threads; ++i) {
    workers[i].session = session;
    url_of(workers[i].url, i);
    handles[i] = CreateThread(NULL, 0, work, &workers[i], 0, NULL);
  }
  go = 1;
  Sleep(300);
  go = 2;
  WaitForMultipleObjects((DWORD)threads, handles, TRUE, INFINITE);
  for (int i = 0; i < threads; ++i) CloseHandle(handles[i]);
  return (double)workers[0].lookups + (double)workers[1].lookups;
}

static double two_threads_against_one(KivSession* session) {
  double ratios[5];
  for (int i = 0; i < 5; ++i) {
    const double one = rate(session, 1);
    ratios[i] = rate(session, 2) / one;
  }
  return median(ratios, 5);
}

/* ---- The first decision, beside kiv.dll's, both by a HEAD request to this server. */

static DWORD WINAPI serve(void* parameter) {
  static const char answer[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
  for (;;) {
    char request[4096];
    const SOCKET connection = accept((SOCKET)(ULONG_PTR)parameter, NULL, NULL);
    if (connection == INVALID_SOCKET) return 1;
    if (recv(connection, request, sizeof request, 0) > 0) send(connection, answer, (int)sizeof answer - 1, 0);
    shutdown(connection, SD_SEND);
    closesocket(connection);
  }
}

static void start_server(wchar_t* url) {
  unsigned port = 0;
  const SOCKET listening = listen_on_loopback(&port);
  swprintf(url, 64, L"http://127.0.0.1:%u/", port);
  CloseHandle(CreateThread(NULL, 0, serve, (void*)(ULONG_PTR)listening, 0, NULL));
}

static int head(const void* client, const void* context) {
  (void)context;
  return KivHttpClient_Head(client, NULL);
}
static void drop_line(void* context, const KivLog* log) { (void)context, (void)log; }
static KivLogger* the_logger(const void* context) {
  static KivLogger* logger;
  (void)context;
  if (!logger) logger = KivLogger_Construct(NULL, drop_line);
  return logger;
}

static double first_by_kiv(const wchar_t* url) {
  int context = 0;
  const double begun = now();
  KivHttpClient* client = KivHttpClient_Create(url, L"bench", 0);
  KivProxyConfig* direct = KivProxyConfig_Direct();
  KivProxyConfig* found =
      KivProxyResolver_Resolve(url, L"bench", L"", direct, NULL, &context, keep_all, &context, no_server_cred, &context,
                               no_proxy_cred, client, head, set_client_cred, set_client_proxy, &context, the_logger);
  const double end = now();
  if (!KivProxyConfig_IsDirect(found)) exit(5);
  KivProxyConfig_Destruct(found);
  KivProxyConfig_Destruct(direct);
  KivHttpClient_Destruct(client);
  return end - begun;
}

static double first_by_session(KivSession* session, const wchar_t* url) {
  KivSession_Forget(session);
  const double begun = now();
  resolve(session, url);
  return now() - begun;
}

static double first_decision_beyond_kiv(void) {
  static double beyond[FIRST_ROUNDS];
  wchar_t url[64];
  start_server(url);
  KivSession* session = NULL;
  if (KivSession_Create(L"bench", &session) != KIV_STATUS_OK) exit(6);
  first_by_kiv(url);
  first_by_session(session, url);
  for (int round = 0; round < FIRST_ROUNDS; ++round) beyond[round] = first_by_session(session, url) - first_by_kiv(url);
  KivSession_Destruct(session);
  return median(beyond, FIRST_ROUNDS);
}

int main(void) {
  if (!hook("malloc", (ULONG_PTR)counting_malloc) || !hook("free", (ULONG_PTR)counting_free)) return 7;
  KivSession* session = new_session(MOST_ORIGINS);
  wchar_t url[64];
  for (int i = 0; i < 100; ++i) url_of(url, i), resolve(session, url);
  printf("lookup-ns %.0f\n", time_of_lookup(session, 100));
  const LONG64 before = allocations;
  time_of_lookup(session, 100);
  printf("lookup-allocations %lld\n", (long long)(allocations - before));
  printf("two-threads %.2f\n", two_threads_against_one(session));
  const LONG64 bytes = live_bytes;
  for (int i = 100; i < MOST_ORIGINS; ++i) url_of(url, i), resolve(session, url);
  printf("bytes-per-origin %lld\n", (long long)((live_bytes - bytes) / (MOST_ORIGINS - 100)));
  printf("kept-origins %llu\n", (unsigned long long)KivSession_GetCounter(session, KIV_COUNTER_KEPT_ORIGINS));
  printf("lookup-of-10000-ns %.0f\n", time_of_lookup(session, MOST_ORIGINS));
  KivSession_Destruct(session);
  printf("first-beyond-kiv-ms %.2f\n", first_decision_beyond_kiv() / 1e6);
  return 0;
}
