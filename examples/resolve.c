/* A complete application: finds the proxy that reaches a URL, and tests with the library's own HTTP client.
 *
 *   x86_64-w64-mingw32-gcc -municode -Iinclude examples/resolve.c build/windows-x64/lib/libkiv.dll.a -o resolve.exe
 */
#include <stdio.h>
#include <wchar.h>

#include "kiv/kiv.h"

/* What the callbacks need. The library passes it to them unchanged. */
struct application {
  KivHttpClient* client;
  KivLogger* logger;
};

static void on_log(void* context, const KivLog* log) {
  (void)context;
  if (!KivLog_IsDebug(log)) fwprintf(stderr, L"%ls\n", KivLog_Message(log));
}

/* An application can drop candidates here, for example by host or kind. */
static int keep(const void* context, KivProxyConfig* candidate) {
  (void)context, (void)candidate;
  return 1;
}

/* An application with a window returns KivDialogAuthUi_ServerAuthUi(url, L"", window) instead, which asks the user. */
static KivCred* server_credentials(const void* context, const wchar_t* url) {
  (void)context, (void)url;
  return KivCred_None();
}

static KivCred* proxy_credentials(const void* context, KivProxyConfig* proxy) {
  (void)context, (void)proxy;
  return KivCred_None();
}

static int test(const void* client, const void* log_context) {
  return KivHttpClient_Head(((const struct application*)client)->client,
                            ((const struct application*)log_context)->logger);
}

/* The client takes the credentials out of the handle; the callback must still destroy the handle. */
static void set_server_credentials(void* client, KivCred* credentials) {
  KivHttpClient_SetServerCred(((struct application*)client)->client, credentials);
  KivCred_Destruct(credentials);
}

static void set_proxy(void* client, KivProxyConfig* proxy) {
  KivHttpClient_SetProxy(((struct application*)client)->client, proxy);
}

static KivLogger* logger_of(const void* log_context) { return ((const struct application*)log_context)->logger; }

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
  struct application application = {KivHttpClient_Create(url, L"example", 0), KivLogger_Construct(NULL, on_log)};
  KivProxyConfig* found = NULL;
  if (application.client && application.logger) {
    found = KivProxyResolver_Resolve(url, L"example", NULL, NULL, NULL, &application, keep, &application,
                                     server_credentials, &application, proxy_credentials, &application, test,
                                     set_server_credentials, set_proxy, &application, logger_of);
  }
  const int none = KivProxyConfig_IsNone(found);
  if (KivProxyConfig_IsDirect(found)) wprintf(L"DIRECT\n");
  if (KivProxyConfig_IsValid(found)) KivProxyConfig_ToString(found, 1, 0, &application, print);
  KivProxyConfig_Destruct(found);
  KivLogger_Destruct(application.logger);
  KivHttpClient_Destruct(application.client);
  return none ? 2 : 0;
}
