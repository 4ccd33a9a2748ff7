// Answers a proxy's 407 for clients that speak neither NTLM nor Negotiate: over the system's SSPI, and Basic.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "credentials/challenges.h"
#include "credentials/proxy_credentials.h"
#include "kiv/session.h"
#include "loop/event_loop.h"
#include "loop/lock.h"
#include "loop/ref.h"
#include "routes/route.h"
#include "support/border.h"

namespace kiv::session {

// What an authentication asks of the session. From any thread, without a lock held. Implemented by the session.
class AuthSession : public Task {
 public:
  // Opens the question for this proxy unless it is open; KIV_STATUS_NOT_YET, or KIV_STATUS_UNSUPPORTED if nobody is
  // there to ask or may be asked again, or KIV_STATUS_CLOSED, KIV_STATUS_OUT_OF_MEMORY.
  virtual KivStatus askFor(const Route& proxy, std::uint32_t scheme, std::wstring_view realm) noexcept = 0;
  // A 407 to complete credentials: they are refused, and decisions that used them are stale.
  virtual void refusedBy(const Route& proxy, const impl::Cred& cred) noexcept = 0;
  virtual ProxyCredentials& proxyCredentials() noexcept = 0;
  virtual std::uint32_t loggedOnUser() const noexcept = 0;  // a KIV_LOGGED_ON_USER_ value
  virtual std::uint32_t schemes() const noexcept = 0;       // that may be used
  virtual bool isClosed() const noexcept = 0;
  // Runs `body` as the session's user. False if that user cannot be impersonated.
  virtual bool asUser(void (*body)(void*), void* argument) noexcept = 0;
};

// One connection's authentication. Has a lock of its own, so that two threads do no harm.
class ProxyAuth final : public RefCounted {
 public:
  ProxyAuth(Ref<AuthSession> session, Route proxy);

  // As KivAuth_Next.
  KivStatus next(const wchar_t* proxyAuthenticate, const wchar_t** proxyAuthorization) noexcept;

 private:
  ~ProxyAuth() override;

  Lock lock_;
};

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivAuth> {
  using Type = kiv::session::ProxyAuth;
};
