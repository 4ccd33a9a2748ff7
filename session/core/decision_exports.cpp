// The C functions of decisions, and of the authentication of connections to their proxies.
#include "core/call.h"
#include "core/session.h"
#include "credentials/handshake.h"
#include "credentials/proxy_auth.h"
#include "loop/process.h"
#include "routes/decision.h"
#include "support/border.h"
#include "support/foreign_exceptions.h"

using kiv::impl::Cred;
using kiv::impl::SecureString;
using kiv::session::AuthSession;
using kiv::session::Call;
using kiv::session::call;
using kiv::session::clearPassword;
using kiv::session::makeRef;
using kiv::session::processEnds;
using kiv::session::ProxyAuth;
using kiv::session::ProxyCredentials;
using kiv::session::Ref;
using kiv::session::RouteKind;
using kiv::session::Session;
using kiv::session::statusOf;
using kiv::support::toHandle;
using kiv::support::toObject;

uint32_t KivDecision_Kind(const KivDecision* decision) {
  return decision ? static_cast<uint32_t>(toObject(decision)->kind()) : KIV_KIND_NONE;
}

const wchar_t* KivDecision_Scheme(const KivDecision* decision) {
  return decision ? toObject(decision)->route().scheme() : L"";
}

const wchar_t* KivDecision_Host(const KivDecision* decision) {
  return decision ? toObject(decision)->route().host.c_str() : L"";
}

uint32_t KivDecision_Port(const KivDecision* decision) { return decision ? toObject(decision)->route().port : 0; }

const wchar_t* KivDecision_ProxyUrl(const KivDecision* decision) {
  return decision ? toObject(decision)->proxyUrl() : L"";
}

uint32_t KivDecision_AuthScheme(const KivDecision* decision) { return decision ? toObject(decision)->authScheme() : 0; }

uint64_t KivDecision_Age(const KivDecision* decision) {
  return decision ? kiv::session::EventLoop::now() - toObject(decision)->madeAt() : 0;
}

uint32_t KivDecision_Reason(const KivDecision* decision) { return decision ? toObject(decision)->reason() : 0; }

KivStatus KivDecision_Credentials(const KivDecision* decision, void* context, KivCredentialSink sink) {
  if (!decision || !sink) return KIV_STATUS_BAD_ARGUMENT;
  return statusOf([&]() -> KivStatus {
    ProxyCredentials& credentials = toObject(decision)->credentials();
    if (credentials.isClosed()) return KIV_STATUS_CLOSED;
    const std::optional<Cred> cred = credentials.usable(toObject(decision)->route());
    if (!cred) return KIV_STATUS_NOT_YET;
    const SecureString password = clearPassword(*cred);
    const wchar_t* const user = cred->username().c_str();
    kiv::support::guarded([&] { kiv::support::callApplication(sink, context, user, password.c_str()); });
    return KIV_STATUS_OK;
  });
}

KivDecision* KivDecision_Retain(KivDecision* decision) {
  if (decision) toObject(decision)->retain();
  return decision;
}

void KivDecision_Release(KivDecision* decision) {
  if (decision) toObject(decision)->release();
}

KivStatus KivAuth_Create(KivSession* session, KivDecision* decision, KivAuth** auth) {
  if (auth) *auth = nullptr;
  if (!session || !decision || !auth) return KIV_STATUS_BAD_ARGUMENT;
  if (toObject(decision)->route().kind != RouteKind::Http) return KIV_STATUS_BAD_ARGUMENT;
  return call(session, [&](Call& inside) -> KivStatus {
    Session& given = inside.session();
    if (given.isClosed()) return KIV_STATUS_CLOSED;
    *auth = toHandle<KivAuth>(
        makeRef<ProxyAuth>(Ref<AuthSession>(&given), toObject(decision)->route(), toObject(decision)->authScheme())
            .detach());
    return KIV_STATUS_OK;
  });
}

KivStatus KivAuth_Next(KivAuth* auth, const wchar_t* proxyAuthenticate, const wchar_t** proxyAuthorization) {
  if (proxyAuthorization) *proxyAuthorization = nullptr;
  if (!auth || !proxyAuthorization) return KIV_STATUS_BAD_ARGUMENT;
  return toObject(auth)->next(proxyAuthenticate, proxyAuthorization);
}

void KivAuth_Release(KivAuth* auth) {
  if (auth && !processEnds()) toObject(auth)->release();
}
