// The C functions of the test client.
#include <optional>

#include "http/http_client.h"
#include "log/logger.h"

namespace {

using kiv::impl::Logger;
using kiv::impl::ProxyConfig;
using kiv::impl::take;
using namespace kiv::support;

int request(const KivHttpClient* client, const wchar_t* verb, const KivLogger* logger) {
  if (!client) return -1;
  return guarded(-1, [&] { return toObject(client)->request(verb, logger ? *toObject(logger) : Logger()); });
}

}  // namespace

extern "C" {

KivHttpClient* KivHttpClient_Create(const wchar_t* url, const wchar_t* userAgent, int ignoreCertErrors) {
  return newHandle<KivHttpClient>(url, userAgent, ignoreCertErrors != 0);
}

void KivHttpClient_Destruct(KivHttpClient* client) { destruct(client); }
KivHttpClient* KivHttpClient_MoveConstruct(KivHttpClient* source) { return moveConstruct(source); }
void KivHttpClient_Move(KivHttpClient* source, KivHttpClient* target) { move(source, target); }

void KivHttpClient_SetServerCred(KivHttpClient* client, KivCred* cred) {
  if (client && cred) toObject(client)->setServerCred(take(*toObject(cred)));
}

void KivHttpClient_SetProxy(KivHttpClient* client, const KivProxyConfig* config) {
  if (!client || !config) return;
  guarded([&] { toObject(client)->setProxy(ProxyConfig(*toObject(config))); });
}

int KivHttpClient_Head(const KivHttpClient* client, const KivLogger* logger) {
  return request(client, L"HEAD", logger);
}
int KivHttpClient_Get(const KivHttpClient* client, const KivLogger* logger) { return request(client, L"GET", logger); }

}  // extern "C"
