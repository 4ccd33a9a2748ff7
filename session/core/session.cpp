// The session: what its resolutions share, and what the application can ask of it.
#include "core/session.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "loop/process.h"

namespace kiv::session {
namespace {

// What a decision owes to the credentials of its proxy, or to the want of them.
bool dependsOnCredentials(const Decision& decision) noexcept {
  return decision.authScheme() != 0 || decision.reason() == KIV_REASON_CREDENTIALS_WANTED;
}

Time deadlineAfter(std::uint32_t timeout) noexcept {
  return timeout == KIV_NO_TIME_OUT ? kNever : EventLoop::now() + timeout;
}

}  // namespace

Session::Session(std::wstring userAgent)
    : userAgent_(std::move(userAgent)),
      loop_(EventLoop::create()),
      credentials_(makeRef<ProxyCredentials>()),
      outbox_(*this) {}

KivStatus Session::setLogLevel(std::uint32_t level) noexcept {
  if (isClosed()) return KIV_STATUS_CLOSED;
  if (level > KIV_LOG_LEVEL_DEBUG) return KIV_STATUS_BAD_ARGUMENT;
  logLevel_ = level;
  return KIV_STATUS_OK;
}

KivStatus Session::setProxy(std::uint32_t which, const wchar_t* text, const wchar_t* user, const wchar_t* password) {
  std::optional<impl::Cred> cred;
  if (text && user && *user != L'\0') {
    cred = impl::Cred::create(user, password ? password : L"");
    if (!cred) throwLastError();
  }
  return configure([&](Options& options, Callbacks& /*callbacks*/) {
    const KivStatus status = options.setProxy(which, text);
    if (status == KIV_STATUS_OK) (which == KIV_PROXY_PREFERRED ? preferredCred_ : fallbackCred_) = std::move(cred);
    return status;
  });
}

// From now on settings do not change.
void Session::freeze() {
  if (keptOwner_) return;
  const bool mayLogOn = options_.loggedOnUser != KIV_LOGGED_ON_USER_NEVER;
  discoveries_ = std::make_unique<Discoveries>(*loop_, userAgent_, mayLogOn);
  keptOwner_ = std::make_unique<KeptDecisions>(options_.origins);
  if (preferredCred_) credentials_->give(*options_.preferred, std::move(*preferredCred_));
  if (fallbackCred_) credentials_->give(*options_.fallback, std::move(*fallbackCred_));
  preferredCred_.reset();
  fallbackCred_.reset();
  outbox_.setCallbacks(callbacks_);
  kept_.store(keptOwner_.get());
  loop_->post(*this);  // begins to watch for changes
}

KeptDecisions::Found Session::findKept(const Origin& origin) noexcept {
  KeptDecisions* const kept = kept_.load();
  return kept ? kept->find(origin, EventLoop::now()) : KeptDecisions::Found{};
}

Resolution& Session::resolutionFor(const Origin& origin) {
  const auto found = resolutions_.find(origin);
  if (found != resolutions_.end()) return *found->second;
  return *resolutions_.emplace(origin, makeRef<Resolution>(*this, origin)).first->second;
}

void Session::forget(const Resolution& resolution) noexcept {
  const auto found = resolutions_.find(resolution.origin());
  if (found != resolutions_.end() && found->second.get() == &resolution) resolutions_.erase(found);
}

// Who waits for a resolution, and who has not read its end.
KivStatus Session::admit() noexcept {
  if (waiting_ + outbox_.untold() >= kMostWaiting) return KIV_STATUS_TOO_MANY;
  ++waiting_;
  return KIV_STATUS_OK;
}

// A request that nobody waits for keeps the resolution going, as a caller with the default time-out would. One is
// enough.
KivStatus Session::resolveInBackground(const Origin& origin) {
  const auto found = resolutions_.find(origin);
  if (found != resolutions_.end() && found->second->hasBackgroundRequest()) return KIV_STATUS_OK;
  Admission admission(*this);
  if (admission.status() != KIV_STATUS_OK) return admission.status();
  const Ref<Request> request = makeRef<Request>(*this, origin, Request::Report::Nobody, 0, nullptr);
  join(*request, options_.timeOut);
  admission.succeeded();
  return KIV_STATUS_OK;
}

void Session::join(Request& request, std::uint32_t timeout) {
  Resolution& resolution = resolutionFor(request.origin());
  try {
    resolution.join(request);
  } catch (const std::bad_alloc&) {
    if (!resolution.hasRequests()) forget(resolution);
    throw;
  }
  request.limit(deadlineAfter(timeout));
}

KivStatus Session::lookup(const wchar_t* url, CallGate::Stripe& stripe, Ref<Decision>& decision) {
  const std::optional<Origin> origin = Origin::parse(url);
  if (!origin) return KIV_STATUS_BAD_URL;
  if (isClosed()) return KIV_STATUS_CLOSED;
  if (takeKept(*origin, stripe, decision)) return KIV_STATUS_OK;
  const LockGuard guard(loop_->lock());
  if (isClosed()) return KIV_STATUS_CLOSED;
  freeze();
  if (takePast(*origin, decision)) return KIV_STATUS_OK;
  const KivStatus status = resolveInBackground(*origin);
  return status == KIV_STATUS_OK ? KIV_STATUS_NOT_YET : status;
}

KivStatus Session::resolve(const wchar_t* url, std::uint32_t timeout, CallGate::Stripe& stripe,
                           Ref<Decision>& decision) {
  if (outbox_.isInCallback()) return KIV_STATUS_REENTRANT;
  const std::optional<Origin> origin = Origin::parse(url);
  if (!origin) return KIV_STATUS_BAD_URL;
  if (isClosed()) return KIV_STATUS_CLOSED;
  if (takeKept(*origin, stripe, decision)) return KIV_STATUS_OK;
  Ref<Request> request;
  const KivStatus status = begin(*origin, timeout, Request::Report::Waiter, 0, nullptr, request);
  return status == KIV_STATUS_OK ? request->wait(KIV_NO_TIME_OUT, decision) : status;
}

KivStatus Session::start(const wchar_t* url, std::uint32_t timeout, std::uint64_t tag, KivDoneFunction done,
                         Ref<Request>& request) {
  const std::optional<Origin> origin = Origin::parse(url);
  if (!origin) return KIV_STATUS_BAD_URL;
  if (isClosed()) return KIV_STATUS_CLOSED;
  return begin(*origin, timeout, Request::Report::Event, tag, done, request);
}

KivStatus Session::begin(const Origin& origin, std::uint32_t timeout, Request::Report report, std::uint64_t tag,
                         KivDoneFunction done, Ref<Request>& request) {
  const LockGuard guard(loop_->lock());
  if (isClosed()) return KIV_STATUS_CLOSED;
  freeze();
  Admission admission(*this);
  if (admission.status() != KIV_STATUS_OK) return admission.status();
  Ref<Request> begun = makeRef<Request>(*this, origin, report, tag, done);
  Ref<Decision> decision;
  if (takePast(origin, decision)) {
    admission.succeeded();
    begun->end(KIV_STATUS_OK, decision);
  } else {
    join(*begun, timeout == 0 ? options_.timeOut : timeout);
    admission.succeeded();
  }
  request = std::move(begun);
  return KIV_STATUS_OK;
}

// Without the lock: the way of nearly all calls.
bool Session::takeKept(const Origin& origin, CallGate::Stripe& stripe, Ref<Decision>& decision) noexcept {
  KeptDecisions::Found found = findKept(origin);
  if (!found.fresh) return false;
  stripe.keptAnswers.fetch_add(1, std::memory_order_relaxed);
  decision = std::move(found.decision);
  return true;
}

// Under the lock. A decision past its time is still the answer, while it is refreshed.
bool Session::takePast(const Origin& origin, Ref<Decision>& decision) noexcept {
  KeptDecisions::Found found = findKept(origin);
  if (!found.decision) return false;
  if (!found.fresh) static_cast<void>(statusOf([&] { return resolveInBackground(origin); }));
  ++keptAnswers_;
  decision = std::move(found.decision);
  return true;
}

void Session::requestEnded(Request::Report report) noexcept {
  --waiting_;
  if (report == Request::Report::Event) outbox_.untold().fetch_add(1);
}

KivStatus Session::next(std::uint32_t timeout, Ref<Event>& event) {
  if (outbox_.isInCallback()) return KIV_STATUS_REENTRANT;
  if (outbox_.noteReader()) {
    const LockGuard guard(loop_->lock());
    credentialsAdded();
  }
  return outbox_.next(timeout, event);
}

KivStatus Session::reportFailure(const Decision& decision, std::uint32_t reason) {
  if (reason < KIV_FAILURE_PROXY_UNREACHABLE || reason > KIV_FAILURE_TARGET) return KIV_STATUS_BAD_ARGUMENT;
  const LockGuard guard(loop_->lock());
  if (isClosed()) return KIV_STATUS_CLOSED;
  const Origin origin = decision.origin();
  const Ref<Decision> kept = findKept(origin).decision;
  if (!kept || kept->kind() != decision.kind() || kept->route() != decision.route()) return KIV_STATUS_OK;
  if (reason == KIV_FAILURE_TARGET) {
    keptOwner_->drop(origin);
  } else if (kept->kind() != DecisionKind::Proxy) {
    return KIV_STATUS_OK;
  } else if (reason == KIV_FAILURE_PROXY_UNREACHABLE) {
    proxyDied(decision.route());
  } else if (const std::optional<impl::Cred> cred = credentials_->usable(decision.route())) {
    if (const Ref<ProxyLogin> login = findLogin(decision.route())) login->doubt();
    credentialsRefused(decision.route(), *cred);
  }
  return KIV_STATUS_OK;
}

void Session::forgetDecisions() noexcept {
  const LockGuard guard(loop_->lock());
  if (keptOwner_) keptOwner_->dropAll();
  dead_.forget();
}

void Session::forgetCredentials() noexcept {
  const LockGuard guard(loop_->lock());
  credentials_->forget();
  for (const auto& [proxy, login] : logins_) login->doubt();
  if (keptOwner_) keptOwner_->dropIf(dependsOnCredentials);
}

std::uint64_t Session::counter(std::uint32_t counter) noexcept {
  const LockGuard guard(loop_->lock());
  const auto counted = [this](Counter which) { return counters_[static_cast<std::size_t>(which)]; };
  switch (counter) {
    case KIV_COUNTER_RESOLUTIONS:
      return counted(Counter::Resolutions);
    case KIV_COUNTER_KEPT_ANSWERS:
      return gate_.keptAnswers() + keptAnswers_;
    case KIV_COUNTER_KEPT_ORIGINS:
      return keptOwner_ ? keptOwner_->size() : 0;
    case KIV_COUNTER_WAITING:
      return waiting_ + outbox_.untold();
    case KIV_COUNTER_DISCOVERIES:
      return discoveries_ ? discoveries_->begun() : 0;
    case KIV_COUNTER_OVERDUE_DISCOVERIES:
      return discoveries_ ? discoveries_->overdue() : 0;
    case KIV_COUNTER_TEST_REQUESTS:
      return counted(Counter::TestRequests);
    case KIV_COUNTER_CONNECTIONS:
      return counted(Counter::Connections);
    case KIV_COUNTER_CHALLENGES:
      return counted(Counter::Challenges);
    case KIV_COUNTER_CHANGES:
      return counted(Counter::Changes);
    case KIV_COUNTER_LOST_LOG_LINES:
      return outbox_.lostLogLines();
    default:
      return 0;
  }
}

void Session::close() noexcept {
  if (processEnds()) return;
  {
    const LockGuard guard(loop_->lock());
    if (!closed_.exchange(true)) {
      credentials_->close();
      for (const auto& [origin, resolution] : resolutions_) resolution->endAll(KIV_STATUS_CLOSED);
      loop_->post(*this);
    }
  }
  outbox_.close();
}

KivStatus Session::askFor(const Route& proxy, std::uint32_t scheme, std::wstring_view realm) noexcept {
  return statusOf([&]() -> KivStatus {
    const LockGuard guard(loop_->lock());
    if (isClosed()) return KIV_STATUS_CLOSED;
    freeze();
    return loginFor(proxy)->ask(scheme, realm);
  });
}

void Session::refusedBy(const Route& proxy, const impl::Cred& cred) noexcept {
  const LockGuard guard(loop_->lock());
  if (const Ref<ProxyLogin> login = findLogin(proxy)) login->doubt();
  credentialsRefused(proxy, cred);
}

bool Session::asUser(void (*body)(void*), void* argument) noexcept {
  return support::guarded(false, [&] {
    const Identity::Visit visit(loop_->identity());
    if (visit.succeeded()) body(argument);
    return visit.succeeded();
  });
}

Ref<ProxyLogin> Session::findLogin(const Route& proxy) noexcept {
  const auto found = logins_.find(proxy);
  return found == logins_.end() ? Ref<ProxyLogin>() : found->second;
}

Ref<ProxyLogin> Session::loginFor(const Route& proxy) {
  if (Ref<ProxyLogin> login = findLogin(proxy)) return login;
  if (logins_.size() >= kMostLogins) {
    std::erase_if(logins_, [](const auto& entry) { return entry.second->isIdle(); });
  }
  return logins_.emplace(proxy, makeRef<ProxyLogin>(*this, proxy)).first->second;
}

void Session::keep(const Origin& origin, const Ref<Decision>& decision, Lifetime lifetime) {
  const Time now = EventLoop::now();
  Time freshUntil = now + (lifetime == Lifetime::Kept ? options_.keptTime : options_.failureTime);
  Time keptUntil = lifetime == Lifetime::Kept ? freshUntil + options_.pastTime : freshUntil;
  if (lifetime == Lifetime::UntilCredentialsChange) freshUntil = keptUntil = kNever;
  if (freshUntil == now) return keptOwner_->drop(origin);
  keptOwner_->keep(origin, decision, freshUntil, keptUntil);
}

void Session::proxyDied(const Route& proxy) {
  dead_.died(proxy, EventLoop::now() + options_.deadTime);
  keptOwner_->dropIf([&](const Decision& decision) { return decision.route() == proxy; });
  log(KIV_LOG_LEVEL_WARN, [&] { return proxy.url() + L" is dead: no connection could be made"; });
}

void Session::credentialsRefused(const Route& proxy, const impl::Cred& cred) noexcept {
  credentials_->refused(proxy, cred);
  if (!keptOwner_) return;
  keptOwner_->dropIf([&](const Decision& decision) { return decision.authScheme() != 0 && decision.route() == proxy; });
}

void Session::credentialsAdded() noexcept {
  if (!keptOwner_) return;
  keptOwner_->dropIf([](const Decision& decision) { return decision.reason() == KIV_REASON_CREDENTIALS_WANTED; });
}

void Session::changed() noexcept {
  count(Counter::Changes);
  log(KIV_LOG_LEVEL_INFO, [] { return std::wstring(L"Settings or network have changed"); });
  keptOwner_->dropAll();
  dead_.forget();
  for (const auto& login : logins_) {
    login.second->expectVisitors(static_cast<std::size_t>(std::ranges::count_if(
        resolutions_, [&](const auto& resolution) { return resolution.second->waitsFor(*login.second); })));
  }
  for (const auto& [origin, resolution] : resolutions_) resolution->beginAgain();
  support::guarded([this] { outbox_.send(makeRef<Event>(EventContents{.kind = KIV_EVENT_CHANGED})); });
}

void Session::run() noexcept {
  if (isClosed()) return tearDown();
  if (!keptOwner_ || std::exchange(watches_, true)) return;
  support::guarded([this] { changes_ = Changes::start(*loop_, *this); });
}

void Session::tearDown() noexcept {
  if (std::exchange(tornDown_, true)) return;
  if (changes_) std::exchange(changes_, {})->stop();
  for (const auto& [origin, resolution] : resolutions_) resolution->abandon();
  resolutions_.clear();
  discoveries_ = nullptr;
  for (const auto& [proxy, login] : logins_) login->withdraw();
  logins_.clear();
  loop_->stop();
}

}  // namespace kiv::session
