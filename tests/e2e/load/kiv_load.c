/* Resolves one URL again and again on several threads through two proxies, with the shipped kiv.dll, and tells whether
 * handles, threads or memory grow once everything is warm.
 *
 *   kiv_load URL PROXY PROXY THREADS RESOLUTIONS [SECONDS]
 *
 * Each thread does RESOLUTIONS, and goes on in rounds of as many until SECONDS are over. Exit code 0 if every
 * resolution found the proxy that it preferred and nothing grew.
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include <windows.h>

#include "../../plain_callbacks.h"
#include "kiv/kiv.h"
#include "usage.h"

enum { MOST_THREADS = 64, WARM_UP = 20 };

struct work {
  const wchar_t* url;
  const wchar_t* proxies[2];
  unsigned resolutions;
};

/* One thread's host: its own client and logger. */
struct host {
  KivHttpClient* client;
  KivLogger* logger;
  unsigned lines;
};

static LONG volatile failures;

static void count_line(void* context, const KivLog* log) {
  (void)log;
  ++((struct host*)context)->lines;
}
static int test(const void* client, const void* host) {
  return KivHttpClient_Head(client, ((const struct host*)host)->logger);
}
static KivLogger* logger_of(const void* host) { return ((const struct host*)host)->logger; }

static void resolve_once(const struct work* work, unsigned round) {
  KivProxyConfig* preferred = KivProxyConfig_Parse(work->proxies[round % 2], NULL);
  struct host host = {KivHttpClient_Create(work->url, L"kiv_load", 0), NULL, 0};
  host.logger = KivLogger_Construct(&host, count_line);
  KivProxyConfig* found = KivProxyResolver_Resolve(work->url, L"kiv_load", NULL, preferred, NULL, &host, keep_all,
                                                   &host, no_server_cred, &host, no_proxy_cred, host.client, test,
                                                   set_client_cred, set_client_proxy, &host, logger_of);
  const int right = KivProxyConfig_IsHttp(found) &&
                    KivProxyConfig_Port(found, 0) == KivProxyConfig_Port(preferred, 0) && host.lines > 0;
  if (!right) InterlockedIncrement(&failures);
  KivProxyConfig_Destruct(found);
  KivLogger_Destruct(host.logger);
  KivHttpClient_Destruct(host.client);
  KivProxyConfig_Destruct(preferred);
}

static DWORD WINAPI run_thread(void* parameter) {
  const struct work* work = parameter;
  for (unsigned i = 0; i < work->resolutions; ++i) resolve_once(work, i + GetCurrentThreadId() / 4);
  return 0;
}

static void run_round(struct work work, unsigned resolutions, unsigned threads) {
  HANDLE handles[MOST_THREADS] = {NULL};
  work.resolutions = resolutions;
  for (unsigned i = 0; i < threads; ++i) handles[i] = CreateThread(NULL, 0, run_thread, &work, 0, NULL);
  WaitForMultipleObjects(threads, handles, TRUE, INFINITE);
  for (unsigned i = 0; i < threads; ++i) CloseHandle(handles[i]);
}

int wmain(int count, wchar_t** arguments) {
  if (count < 6) {
    fwprintf(stderr, L"usage: kiv_load URL PROXY PROXY THREADS RESOLUTIONS [SECONDS]\n");
    return 64;
  }
  const struct work work = {arguments[1], {arguments[2], arguments[3]}, 0};
  const unsigned wanted = (unsigned)_wtoi(arguments[4]);
  const unsigned threads = wanted < MOST_THREADS ? wanted : MOST_THREADS;
  const unsigned resolutions = (unsigned)_wtoi(arguments[5]);
  const ULONGLONG duration = count > 6 ? (ULONGLONG)_wtoi(arguments[6]) * 1000 : 0;

  run_round(work, WARM_UP, threads);
  const struct usage warm = usage_now();
  print_usage(L"warm", warm);
  const ULONGLONG start = GetTickCount64();
  unsigned rounds = 0;
  do {
    run_round(work, resolutions, threads);
    ++rounds;
  } while (GetTickCount64() - start < duration);
  const struct usage end = usage_now();
  print_usage(L"end", end);
  wprintf(L"%u resolutions in %llu ms, %ld failed\n", rounds * resolutions * threads,
          (unsigned long long)(GetTickCount64() - start), (long)failures);
  return has_not_grown(warm, end) && failures == 0 ? 0 : 1;
}
