/* A whole host: finds how this user gets out to a URL, with the library's own HTTP client as the test.
 *
 *   x86_64-w64-mingw32-gcc -municode -Iinclude examples/resolve.c build/windows-x64/lib/libkiv.dll.a -o resolve.exe
 */
#include <stdio.h>
#include <wchar.h>

#include "kiv/kiv.h"

/* What the callbacks need. The library hands it back as it is. */
struct host {
  KivHttpClient* client;
  KivLogger* logger;
};

static void on_log(void* context, const KivLog* log) {
  (void)context;
  if (!KivLog_IsDebug(log)) fwprintf(stderr, L"%ls\n", KivLog_Message(log));
}

/* Candidates can be struck out here, by host or kind, say. */
static int keep(const void* context, KivProxyConfig* candidate) {
  (void)context, (void)candidate;
  return 1;
}

/* A program that can ask its user returns KivDialogAuthUi_ServerAuthUi(url, L"", window) in place of none. */
static KivCred* server_credentials(const void* context, const wchar_t* url) {
  (void)context, (void)url;
  return KivCred_None();
}

static KivCred* proxy_credentials(const void* context, KivProxyConfig* proxy) {
  (void)context, (void)proxy;
  return KivCred_None();
}

static int test(const void* client, const void* log_context) {
  return KivHttpClient_Head(((const struct host*)client)->client, ((const struct host*)log_context)->logger);
}

/* The client takes the credential out of the handle; the handle is ours to release. */
static void set_server_credentials(void* client, KivCred* credentials) {
  KivHttpClient_SetServerCred(((struct host*)client)->client, credentials);
  KivCred_Destruct(credentials);
}

static void set_proxy(void* client, KivProxyConfig* proxy) {
  KivHttpClient_SetProxy(((struct host*)client)->client, proxy);
}

static KivLogger* logger_of(const void* log_context) { return ((const struct host*)log_context)->logger; }

static void print(void* context, const wchar_t* text) {
  (void)context;
  wprintf(L"%ls\n", text);
}

int wmain(int count, wchar_t** arguments) {
  if (count != 2) {
    fwprintf(stderr, L"usage: resolve URL\n");
    return 64;
  }
  const wchar_t* url = arguments[1];
  struct host host = {KivHttpClient_Create(url, L"example", 0), KivLogger_Construct(NULL, on_log)};
  KivProxyConfig* found = NULL;
  if (host.client && host.logger) {
    found =
        KivProxyResolver_Resolve(url, L"example", NULL, NULL, NULL, &host, keep, &host, server_credentials, &host,
                                 proxy_credentials, &host, test, set_server_credentials, set_proxy, &host, logger_of);
  }
  const int none = KivProxyConfig_IsNone(found);
  if (KivProxyConfig_IsDirect(found)) wprintf(L"direct\n");
  if (KivProxyConfig_IsValid(found)) KivProxyConfig_ToString(found, 1, 0, &host, print);
  KivProxyConfig_Destruct(found);
  KivLogger_Destruct(host.logger);
  KivHttpClient_Destruct(host.client);
  return none ? 2 : 0;
}
