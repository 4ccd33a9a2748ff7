// One attempt: whether one candidate works.
#include "core/attempt.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "core/session.h"
#include "credentials/challenges.h"
#include "loop/system_error.h"
#include "support/border.h"

namespace kiv::session {
namespace {

bool isSocks(const Route& route) { return route.kind == RouteKind::Socks4 || route.kind == RouteKind::Socks5; }

AutoLogon autoLogonOf(std::uint32_t loggedOnUser) {
  if (loggedOnUser == KIV_LOGGED_ON_USER_NEVER) return AutoLogon::Never;
  return loggedOnUser == KIV_LOGGED_ON_USER_PROXIES ? AutoLogon::Proxies : AutoLogon::System;
}

// As sockets name a host.
std::wstring withoutBrackets(std::wstring_view host) {
  if (host.starts_with(L'[')) host = host.substr(1, host.size() - 2);
  return std::wstring(host);
}

// Nothing is known of such a proxy but that it cannot reach this target now.
bool isGatewayFailure(DWORD status) {
  constexpr std::array<DWORD, 3> kFailures = {HTTP_STATUS_BAD_GATEWAY, HTTP_STATUS_SERVICE_UNAVAIL,
                                              HTTP_STATUS_GATEWAY_TIMEOUT};
  return std::ranges::find(kFailures, status) != kFailures.end();
}

// The failure is this machine's, and says nothing of the proxy.
bool isLocal(DWORD error) {
  constexpr std::array<DWORD, 3> kLocal = {ERROR_NOT_ENOUGH_MEMORY, ERROR_OUTOFMEMORY, ERROR_BAD_IMPERSONATION_LEVEL};
  return std::ranges::find(kLocal, error) != kLocal.end();
}

// The server was reached; whether its certificate is good, and which one of the client's it gets, is the application's
// to decide.
bool isAboutCertificates(DWORD error) {
  return error == ERROR_WINHTTP_SECURE_FAILURE || error == ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED;
}

}  // namespace

Attempt::Attempt(Session& session, const Origin& origin, const Route& route, AttemptListener& listener)
    : session_(session), origin_(origin), route_(route), listener_(listener) {}

Attempt::~Attempt() {
  if (exchange_) exchange_->stop();
  if (connector_) connector_->stop();
  if (login_) login_->leave(*this);
}

bool Attempt::connectsOnly(const Session& session, const Route& route) noexcept {
  return session.options().test == KIV_TEST_CONNECT || route.kind == RouteKind::Https;
}

template <class Body>
void Attempt::orFail(Body&& body) noexcept {
  const bool done = support::guarded(false, [&] {
    body();
    return true;
  });
  if (!done) end({});
}

void Attempt::begin() noexcept {
  orFail([this] {
    if (connectsOnly(session_, route_)) return connect();
    if (isSocks(route_)) return beginWithSocks();
    std::optional<ProvenCredentials> proven;
    if (!route_.isDirect()) {
      login_ = session_.findLogin(route_);
      if (login_) proven = login_->proven();
    }
    if (!proven) return send(std::nullopt, 0);
    sentVersion_ = proven->version;
    send(std::move(proven->cred), proven->scheme);
  });
}

// A SOCKS proxy says in the handshake whether it wants a user name and a password; nobody is asked for them.
void Attempt::beginWithSocks() {
  if (!session_.proxyCredentials().usable(route_)) return connect();
  wantedScheme_ = KIV_SCHEME_BASIC;
  login_ = session_.loginFor(route_);
  enterLogin();
}

void Attempt::connect() {
  ConnectorPlan plan;
  plan.host = route_.isDirect() ? withoutBrackets(origin_.host()) : route_.host;
  plan.port = route_.isDirect() ? origin_.port() : route_.port;
  plan.connectTimeOut = session_.options().connectTimeOut;
  plan.answerTimeOut = session_.options().answerTimeOut;
  if (isSocks(route_) && !connectsOnly(session_, route_)) {
    plan.socks = route_.kind;
    plan.target = origin_;
    plan.cred = sent_;
  }
  session_.count(Counter::Connections);
  connector_ = Connector::start(session_.loop(), std::move(plan), *this);
}

void Attempt::send(std::optional<impl::Cred> cred, std::uint32_t scheme) {
  sent_ = std::move(cred);
  sentScheme_ = scheme;
  session_.count(Counter::TestRequests);
  const Options& options = session_.options();
  exchange_ = HttpExchange::start(session_.loop(),
                                  {.userAgent = session_.userAgent(),
                                   .target = origin_,
                                   .route = route_,
                                   .cred = sent_,
                                   .credScheme = scheme,
                                   .autoLogon = autoLogonOf(options.loggedOnUser),
                                   .connectTimeOut = options.connectTimeOut,
                                   .answerTimeOut = options.answerTimeOut},
                                  *this);
}

void Attempt::exchangeConnected(HttpExchange& /*exchange*/) noexcept {
  connected_ = true;
  listener_.attemptConnected();
}

void Attempt::exchangeEnded(HttpExchange& /*exchange*/, const HttpAnswer& answer) noexcept {
  exchange_ = {};
  if (answer.error == ERROR_SUCCESS && answer.status == HTTP_STATUS_PROXY_AUTH_REQ && !route_.isDirect()) {
    orFail([&] { challenged(answer); });
    return;
  }
  AttemptResult result = judge(answer);
  if (sent_ && (answer.error == ERROR_SUCCESS || result.outcome == Outcome::Passed)) accepted(result);
  end(result);
}

void Attempt::accepted(AttemptResult& result) noexcept {
  login_->accepted(*this, sentScheme_, sentVersion_);
  result.authScheme = sentScheme_;
}

AttemptResult Attempt::judge(const HttpAnswer& answer) const noexcept {
  if (answer.error != ERROR_SUCCESS) {
    if (origin_.isHttps() && isAboutCertificates(answer.error)) return {Outcome::Passed, KIV_REASON_REACHED};
    const bool connected = connected_ || answer.connected || route_.isDirect() || isLocal(answer.error);
    return {connected ? Outcome::Failed : Outcome::NotConnected};
  }
  if (route_.isDirect()) return {Outcome::Passed, KIV_REASON_REACHED};
  // Without TLS the status is the proxy's own: it did not connect to the target.
  if (origin_.isHttps()) return answer.secure ? AttemptResult{Outcome::Passed, KIV_REASON_REACHED} : AttemptResult{};
  if (isGatewayFailure(answer.status) || answer.redirectsElsewhere) return {Outcome::Makeshift, KIV_REASON_MAKESHIFT};
  return {Outcome::Passed, KIV_REASON_REACHED};
}

void Attempt::challenged(const HttpAnswer& answer) {
  if (!login_) login_ = session_.loginFor(route_);
  if (const std::optional<impl::Cred> refused = std::exchange(sent_, std::nullopt)) login_->refused(*this, *refused);
  wantedScheme_ = strongestScheme(answer.schemes, session_.options().schemes);
  if (wantedScheme_ == 0) return end({Outcome::SchemeUnsupported});
  realm_ = answer.realm;
  enterLogin();
}

void Attempt::enterLogin() {
  if (!listener_.isWanted()) return;
  ProxyLogin::Entrance entrance = login_->enter(*this, wantedScheme_, realm_);
  waits_ = entrance.entry == ProxyLogin::Entry::Wait;
  if (waits_) return;
  if (entrance.entry == ProxyLogin::Entry::Refused) return end({Outcome::CredentialsWanted});
  sentVersion_ = entrance.version;
  if (!isSocks(route_)) return send(std::move(entrance.cred), wantedScheme_);
  sent_ = std::move(entrance.cred);
  sentScheme_ = wantedScheme_;
  connect();
}

void Attempt::loginChanged() noexcept {
  waits_ = false;
  orFail([this] { isSocks(route_) ? beginWithSocks() : enterLogin(); });
}

void Attempt::portAnswered(Connector& /*connector*/) noexcept {
  connected_ = true;
  listener_.attemptConnected();
}

void Attempt::connectorEnded(Connector& /*connector*/, DWORD error) noexcept {
  connector_ = {};
  if (error == ERROR_SUCCESS) {
    AttemptResult result{Outcome::Passed, connectsOnly(session_, route_) ? KIV_REASON_CONNECTED : KIV_REASON_REACHED};
    if (sent_) accepted(result);
    return end(result);
  }
  if (error == ERROR_LOGON_FAILURE) {
    if (sent_) login_->refused(*this, *sent_);
    return end({Outcome::CredentialsWanted});
  }
  end({connected_ || route_.isDirect() || isLocal(error) ? Outcome::Failed : Outcome::NotConnected});
}

void Attempt::end(AttemptResult result) noexcept {
  if (login_) std::exchange(login_, {})->leave(*this);
  listener_.attemptEnded(result);
}

}  // namespace kiv::session
