// Answers a proxy's 407 for clients that speak neither NTLM nor Negotiate: over the system's SSPI, and Basic.
#include "credentials/proxy_auth.h"

#include <algorithm>
#include <new>
#include <utility>

#include "credentials/base64.h"
#include "loop/system_error.h"

namespace kiv::session {
namespace {

constexpr std::uint32_t kServed = KIV_SCHEME_NEGOTIATE | KIV_SCHEME_NTLM | KIV_SCHEME_BASIC;

const wchar_t* nameOf(std::uint32_t scheme) {
  if (scheme == KIV_SCHEME_BASIC) return L"Basic";
  return scheme == KIV_SCHEME_NTLM ? L"NTLM" : L"Negotiate";
}

// "a user-id containing a colon character is invalid" (RFC 7617, 2).
bool fitsBasic(const impl::Cred& cred) { return cred.username().find(L':') == std::wstring::npos; }

}  // namespace

ProxyAuth::ProxyAuth(Ref<AuthSession> session, Route proxy, std::uint32_t scheme)
    : session_(std::move(session)), proxy_(std::move(proxy)), provenScheme_(scheme) {}

KivStatus ProxyAuth::next(const wchar_t* proxyAuthenticate, const wchar_t** proxyAuthorization) noexcept {
  if (!proxyAuthorization) return KIV_STATUS_BAD_ARGUMENT;
  *proxyAuthorization = nullptr;
  const LockGuard guard(lock_);
  header_ = impl::SecureWideBuffer();
  failure_ = KIV_STATUS_UNSUPPORTED;
  try {
    const KivStatus status = answer(proxyAuthenticate ? proxyAuthenticate : std::wstring_view());
    if (!header_.empty()) *proxyAuthorization = header_.data();
    return status;
  } catch (const SystemError& error) {
    forgetSent();
    return KIV_STATUS_SYSTEM + error.code;
  } catch (...) {
    forgetSent();
    return KIV_STATUS_OUT_OF_MEMORY;
  }
}

KivStatus ProxyAuth::answer(std::wstring_view headers) {
  if (session_->isClosed()) return KIV_STATUS_CLOSED;
  if (headers.size() > kLongestHeader) return KIV_STATUS_BAD_ARGUMENT;
  const bool first = !std::exchange(begun_, true);
  if (headers.empty()) {
    if (waiting_) return choose();
    return first ? beforeAny407() : KIV_STATUS_DONE;
  }
  offered_ = readChallenges(headers);
  if (scheme_ != 0) {
    if (const std::optional<KivStatus> status = judgeSent()) return *status;
  }
  return choose();
}

KivStatus ProxyAuth::beforeAny407() {
  if (provenScheme_ != KIV_SCHEME_BASIC || !(session_->schemes() & KIV_SCHEME_BASIC)) return KIV_STATUS_DONE;
  std::optional<impl::Cred> cred = session_->proxyCredentials().usable(proxy_);
  if (!cred || !fitsBasic(*cred)) return KIV_STATUS_DONE;
  return begin(KIV_SCHEME_BASIC, std::move(cred)).value_or(KIV_STATUS_DONE);
}

// The proxy answered 407 to what was sent. Nothing if another scheme is to be chosen.
std::optional<KivStatus> ProxyAuth::judgeSent() {
  const HeaderChallenge* const challenge = offer(scheme_);
  if (handshake_ && !complete_ && challenge && !challenge->token.empty()) {
    // Forgotten meanwhile, or refused on another connection.
    if (cred_ && !session_->proxyCredentials().isUsable(proxy_, *cred_)) {
      forgetSent();
      return KIV_STATUS_REJECTED;
    }
    std::optional<std::vector<std::uint8_t>> token = fromBase64(challenge->token);
    return token && !token->empty() ? step(*token) : failed(SEC_E_INVALID_TOKEN);
  }
  // The first token of NTLM, and of Negotiate where more is to follow, proves nothing of a password: a proxy that
  // begins again then does not master the scheme.
  if (handshake_ && !complete_ && handshake_->legs() < 2) return failed(SEC_E_OK);
  if (cred_) return refused();
  unusableAsUser_ = kServed;
  forgetSent();
  return std::nullopt;
}

KivStatus ProxyAuth::choose() {
  const bool waited = std::exchange(waiting_, false);
  std::uint32_t offered = 0;
  for (const HeaderChallenge& challenge : offered_) offered |= challenge.scheme;
  std::uint32_t allowed = session_->schemes() & kServed & ~unusable_;
  const std::optional<impl::Cred> cred = session_->proxyCredentials().usable(proxy_);
  // On this connection the proxy still waits for the rest of the handshake that was broken off.
  if (waited && cred && brokenOff_) return KIV_STATUS_REJECTED;
  std::uint32_t wanted = 0;
  while (const std::uint32_t scheme = strongestScheme(offered, allowed)) {
    if (wanted == 0) wanted = scheme;
    allowed &= ~scheme;
    if (!mayBegin(scheme, cred)) continue;
    if (const std::optional<KivStatus> status = begin(scheme, cred)) return *status;
  }
  return !cred && wanted != 0 ? ask(wanted) : failure_;
}

bool ProxyAuth::mayBegin(std::uint32_t scheme, const std::optional<impl::Cred>& cred) const noexcept {
  if (cred) return scheme != KIV_SCHEME_BASIC || fitsBasic(*cred);
  return scheme != KIV_SCHEME_BASIC && session_->loggedOnUser() != KIV_LOGGED_ON_USER_NEVER &&
         !(unusableAsUser_ & scheme);
}

std::optional<KivStatus> ProxyAuth::begin(std::uint32_t scheme, std::optional<impl::Cred> cred) {
  scheme_ = scheme;
  cred_ = std::move(cred);
  complete_ = false;
  return scheme == KIV_SCHEME_BASIC ? sendBasic() : beginHandshake();
}

std::optional<KivStatus> ProxyAuth::beginHandshake() {
  handshake_ = std::make_unique<Handshake>(nameOf(scheme_), L"HTTP/" + proxy_.host);
  const SECURITY_STATUS status =
      cred_ ? handshake_->beginWith(*cred_) : asIdentity([this]() noexcept { return handshake_->beginAsThisUser(); });
  return status == SEC_E_OK ? step({}) : failed(status);
}

std::optional<KivStatus> ProxyAuth::step(std::span<std::uint8_t> token) {
  const SECURITY_STATUS status = asIdentity([&]() noexcept { return handshake_->next(token); });
  if (status < 0) return failed(status);
  if (handshake_->token().empty()) return failed(SEC_E_OK);
  complete_ = status == SEC_E_OK;
  writeHeader(nameOf(scheme_), handshake_->token());
  return complete_ ? KIV_STATUS_DONE : KIV_STATUS_AGAIN;
}

// The handshake cannot go on. A wrong password may have been found out by the domain controller already.
std::optional<KivStatus> ProxyAuth::failed(SECURITY_STATUS status) {
  if (status == SEC_E_LOGON_DENIED && cred_) return refused();
  const std::uint32_t scheme = scheme_;
  const bool asUser = !cred_;
  brokenOff_ = brokenOff_ || handshake_->legs() > 0;
  forgetSent();
  if (status == SEC_E_INSUFFICIENT_MEMORY) return KIV_STATUS_OUT_OF_MEMORY;
  (asUser ? unusableAsUser_ : unusable_) |= scheme;
  if (status < 0) failure_ = static_cast<KivStatus>(status);
  return std::nullopt;
}

// Runs a part of the handshake: without credentials, as the session's user, whose they then are.
template <class Body>
SECURITY_STATUS ProxyAuth::asIdentity(Body&& body) {
  if (cred_) return body();
  struct Call {
    Body& body;
    SECURITY_STATUS status;
  } call{body, SEC_E_NO_CREDENTIALS};
  session_->asUser([](void* argument) { static_cast<Call*>(argument)->status = static_cast<Call*>(argument)->body(); },
                   &call);
  return call.status;
}

KivStatus ProxyAuth::sendBasic() {
  const impl::SecureString password = clearPassword(*cred_);
  SecureBytes bytes;
  appendUtf8(cred_->username(), bytes);
  bytes.push_back(':');
  appendUtf8(password.view(), bytes);
  writeHeader(nameOf(KIV_SCHEME_BASIC), bytes);
  complete_ = true;
  return KIV_STATUS_DONE;
}

KivStatus ProxyAuth::ask(std::uint32_t scheme) {
  const KivStatus status = session_->askFor(proxy_, scheme, offer(scheme)->realm);
  waiting_ = status == KIV_STATUS_NOT_YET;
  return status;
}

KivStatus ProxyAuth::refused() {
  session_->refusedBy(proxy_, *cred_);
  forgetSent();
  return KIV_STATUS_REJECTED;
}

void ProxyAuth::forgetSent() noexcept {
  handshake_.reset();
  cred_.reset();
  scheme_ = 0;
}

void ProxyAuth::writeHeader(const wchar_t* scheme, std::span<const std::uint8_t> bytes) {
  impl::SecureWideBuffer header;
  const std::wstring_view name(scheme);
  header.assign(name.begin(), name.end());
  header.push_back(L' ');
  appendBase64(bytes, header);
  header.push_back(L'\0');
  header_ = std::move(header);
}

const HeaderChallenge* ProxyAuth::offer(std::uint32_t scheme) const noexcept {
  const auto found = std::ranges::find(offered_, scheme, &HeaderChallenge::scheme);
  return found == offered_.end() ? nullptr : &*found;
}

}  // namespace kiv::session
