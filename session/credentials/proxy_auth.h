// Answers a proxy's 407 for clients that speak neither NTLM nor Negotiate: over the system's SSPI, and Basic.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "config/secure_string.h"
#include "credentials/challenges.h"
#include "credentials/handshake.h"
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

// One connection's authentication. Has a lock of its own, so that two threads do no harm; it is held while the session
// is asked.
class ProxyAuth final : public RefCounted {
 public:
  // `scheme` is the one with which the proxy let a test request pass, or 0. Basic is sent before any 407 only if it is
  // Basic: another proxy might not need the password in clear. Throws std::bad_alloc.
  ProxyAuth(Ref<AuthSession> session, Route proxy, std::uint32_t scheme = 0);

  // As KivAuth_Next. An error of the system's security packages is the HRESULT that they return.
  KivStatus next(const wchar_t* proxyAuthenticate, const wchar_t** proxyAuthorization) noexcept;

 private:
  ~ProxyAuth() override = default;

  // These throw std::bad_alloc and SystemError.
  KivStatus answer(std::wstring_view headers);
  KivStatus beforeAny407();
  KivStatus choose();
  std::optional<KivStatus> judgeSent();
  bool mayBegin(std::uint32_t scheme, const std::optional<impl::Cred>& cred) const noexcept;
  // These three give nothing if the scheme cannot be used, whatever the credentials.
  std::optional<KivStatus> begin(std::uint32_t scheme, std::optional<impl::Cred> cred);
  std::optional<KivStatus> beginHandshake();
  std::optional<KivStatus> step(std::span<std::uint8_t> token);
  std::optional<KivStatus> failed(SECURITY_STATUS status);
  template <class Body>
  SECURITY_STATUS asIdentity(Body&& body);
  KivStatus sendBasic();
  KivStatus ask(std::uint32_t scheme);
  KivStatus refused();
  void forgetSent() noexcept;
  void writeHeader(const wchar_t* scheme, std::span<const std::uint8_t> bytes);
  const HeaderChallenge* offer(std::uint32_t scheme) const noexcept;

  Lock lock_;
  Ref<AuthSession> session_;
  Route proxy_;
  std::uint32_t provenScheme_;
  bool begun_ = false;      // something was asked or sent before
  bool waiting_ = false;    // for an answer to a question
  bool brokenOff_ = false;  // a handshake, after its first token
  std::vector<HeaderChallenge> offered_;

  // What was sent last.
  std::uint32_t scheme_ = 0;        // 0: nothing
  std::optional<impl::Cred> cred_;  // none: the logged-on user's
  std::unique_ptr<Handshake> handshake_;
  bool complete_ = false;  // nothing more would follow
  impl::SecureWideBuffer header_;

  std::uint32_t unusable_ = 0;        // schemes that failed here with credentials
  std::uint32_t unusableAsUser_ = 0;  // and with the logged-on user's
  KivStatus failure_ = KIV_STATUS_UNSUPPORTED;
};

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivAuth> {
  using Type = kiv::session::ProxyAuth;
};
