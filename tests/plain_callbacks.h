/* The callbacks of an application that takes every candidate and has no credentials. */
#ifndef KIV_TESTS_PLAIN_CALLBACKS_H
#define KIV_TESTS_PLAIN_CALLBACKS_H

#include "kiv/kiv.h"

static inline int keep_all(const void* context, KivProxyConfig* candidate) {
  (void)context, (void)candidate;
  return 1;
}
static inline KivCred* no_server_cred(const void* context, const wchar_t* url) {
  (void)context, (void)url;
  return KivCred_None();
}
static inline KivCred* no_proxy_cred(const void* context, KivProxyConfig* proxy) {
  (void)context, (void)proxy;
  return KivCred_None();
}
static inline void set_client_cred(void* client, KivCred* cred) {
  KivHttpClient_SetServerCred(client, cred);
  KivCred_Destruct(cred);
}
static inline void set_client_proxy(void* client, KivProxyConfig* proxy) { KivHttpClient_SetProxy(client, proxy); }

#endif
