// One resolution: from the settings to the first candidate that works, for all who ask for the same origin meanwhile.
#include "core/resolution.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/session.h"
#include "loop/system_error.h"
#include "routes/candidates.h"
#include "support/border.h"

namespace kiv::session {

Resolution::Resolution(Session& session, const Origin& origin)
    : session_(&session), origin_(origin), headStart_(session.loop(), *this), overrun_(session.loop(), *this) {
  overrun_.set(EventLoop::now() + 2 * Time{session.options().timeOut});
  session.count(Counter::Resolutions);
}

Resolution::~Resolution() = default;

void Resolution::join(Request& request) {
  request.place = requests_.size();
  requests_.emplace_back(&request);
  request.join(*this);
  if (request.isBackground()) background_ = &request;
  if (requests_.size() == 1 && phase_ == Phase::Waiting) session_->loop().post(*this);
}

void Resolution::leave(Request& request) noexcept {
  if (request.place >= requests_.size() || requests_[request.place].get() != &request) return;
  requests_.back()->place = request.place;
  std::swap(requests_[request.place], requests_.back());
  if (background_ == &request) background_ = nullptr;
  requests_.pop_back();
  if (!requests_.empty()) return;
  session_->forget(*this);
  phase_ = Phase::Over;
  session_->loop().post(*this);
}

void Resolution::endAll(KivStatus status) noexcept {
  for (const Ref<Request>& request : std::exchange(requests_, {})) request->end(status, {});
  phase_ = Phase::Over;
  session_->loop().post(*this);
}

template <class Body>
void Resolution::orFail(Body&& body) noexcept {
  const KivStatus status = statusOf([&] {
    body();
    return KIV_STATUS_OK;
  });
  if (status == KIV_STATUS_OK) return;
  session_->forget(*this);
  endAll(status);
}

void Resolution::run() noexcept {
  if (phase_ == Phase::Over) return abandon();
  orFail([this] { step(); });
}

void Resolution::step() {
  switch (phase_) {
    case Phase::Waiting:
      return discover();
    case Phase::Discovering:
      if (discovered_) choose();
      return;
    case Phase::Attempting:
      return attempt();
    case Phase::Filtering:
    case Phase::Over:
      return;
  }
}

void Resolution::discover() {
  const Options& options = session_->options();
  session_->log(KIV_LOG_LEVEL_INFO, [this] { return L"Resolving " + origin_.url(); });
  if (options.bypassList && isBypassed(origin_, *options.bypassList)) {
    return finish(DecisionKind::Direct, {}, 0, KIV_REASON_BYPASSED);
  }
  phase_ = Phase::Discovering;
  discovery_ = session_->discoveries().begin(origin_, options.discoveryTimeOut, *this);
}

void Resolution::discovered(Discovery& /*discovery*/, Discovered result) noexcept {
  discovery_ = {};
  discovered_ = std::move(result);
  session_->loop().post(*this);
}

void Resolution::choose() {
  const Options& options = session_->options();
  if (!options.bypassList && isBypassed(origin_, discovered_->bypassList)) {
    return finish(DecisionKind::Direct, {}, 0, KIV_REASON_BYPASSED);
  }
  CandidateSources sources;
  sources.preferred = options.preferred;
  sources.fallback = options.fallback;
  sources.leftOut = &options.leftOut;
  sources.most = options.candidates;
  sources.direct = options.directPolicy();
  if (discovered_->overdue) {
    session_->log(KIV_LOG_LEVEL_WARN, [] { return L"The settings could not be read in time"; });
    // What they would have said is not known, so nothing is direct.
    sources.direct = DirectPolicy::Never;
  } else {
    sources.source = discovered_->source;
    sources.entries = &discovered_->entries;
  }
  std::vector<Route> routes = candidatesFor(origin_, sources);
  takeCandidates(std::move(routes));
}

void Resolution::takeCandidates(std::vector<Route> routes) {
  const Time now = EventLoop::now();
  std::stable_partition(routes.begin(), routes.end(),
                        [&](const Route& route) { return !session_->dead().isDead(route, now); });
  candidates_.clear();
  for (Route& route : routes) candidates_.push_back({.route = std::move(route), .state = {}, .connector = {}});
  const bool hasProxy = std::ranges::any_of(candidates_, [](const Candidate& c) { return !c.route.isDirect(); });
  if (hasProxy && session_->outbox().hasFilter()) return filter();
  phase_ = Phase::Attempting;
  attempt();
}

void Resolution::filter() {
  std::vector<std::wstring> urls;
  for (const Candidate& candidate : candidates_) urls.push_back(candidate.route.url());
  filtering_ = makeRef<Filtering>(session_->loop(), *this, std::move(urls));
  phase_ = Phase::Filtering;
  session_->outbox().send(makeRef<Event>(EventContents{.kind = kFilterEvent, .filtering = filtering_}));
}

void Resolution::filtered(const Filtering& filtering) noexcept {
  if (filtering_.get() != &filtering || phase_ != Phase::Filtering) return;
  const Ref<Resolution> self(this);
  std::size_t index = 0;
  std::erase_if(candidates_, [&](const Candidate&) { return !filtering.allowed()[index++]; });
  filtering_ = {};
  phase_ = Phase::Attempting;
  orFail([this] { attempt(); });
}

// The next thing to do about the candidates; what has come back meanwhile lies in `result_`.
void Resolution::attempt() {
  if (result_) {
    attempt_ = nullptr;
    headStart_.clear();
    const AttemptResult result = *std::exchange(result_, std::nullopt);
    judge(result);
    if (phase_ == Phase::Over) return;
    ++current_;
  }
  if (!attempt_) attemptNext();
}

void Resolution::attemptNext() {
  if (candidates_.empty() && discovered_->overdue) {
    session_->forget(*this);
    return endAll(KIV_STATUS_TIMED_OUT);
  }
  if (!candidates_.empty() && session_->options().test == KIV_TEST_NONE) {
    const Route& route = candidates_.front().route;
    return finish(route.isDirect() ? DecisionKind::Direct : DecisionKind::Proxy, route, 0, KIV_REASON_NOT_TESTED);
  }
  while (current_ < candidates_.size() && candidates_[current_].state == Candidate::State::NotConnected) ++current_;
  if (current_ == candidates_.size()) return finishWithout();
  Candidate& candidate = candidates_[current_];
  if (candidate.state == Candidate::State::Connecting) return;
  if (candidate.state == Candidate::State::Connected && Attempt::connectsOnly(*session_, candidate.route)) {
    return judge({Outcome::Passed, KIV_REASON_CONNECTED});
  }
  session_->log(KIV_LOG_LEVEL_DEBUG, [&] {
    return L"Attempting " + (candidate.route.isDirect() ? std::wstring(L"a direct connection") : candidate.route.url());
  });
  AttemptListener& listener = *this;
  attempt_ = std::make_unique<Attempt>(*session_, origin_, candidate.route, listener);
  if (!othersConnecting_ && !candidate.route.isDirect()) headStart_.set(EventLoop::now() + kHeadStart);
  attempt_->begin();
}

void Resolution::attemptConnected() noexcept { headStart_.clear(); }

// The attempt is destroyed in a task, not inside itself.
void Resolution::attemptEnded(AttemptResult result) noexcept {
  result_ = result;
  session_->loop().post(*this);
}

void Resolution::judge(const AttemptResult& result) {
  Candidate& candidate = candidates_[current_];
  if (formerLogin_ && formerLogin_->proxy() == candidate.route) formerLogin_ = {};
  switch (result.outcome) {
    case Outcome::Passed:
      noteDead();
      if (candidate.route.isDirect()) return finish(DecisionKind::Direct, candidate.route, 0, result.reason);
      session_->dead().lives(candidate.route);
      return finish(DecisionKind::Proxy, candidate.route, result.authScheme, result.reason);
    case Outcome::Makeshift:
      if (makeshift_) break;
      makeshift_ = current_;
      makeshiftScheme_ = result.authScheme;
      break;
    case Outcome::NotConnected:
      candidate.state = Candidate::State::NotConnected;
      break;
    case Outcome::CredentialsWanted:
      wantsCredentials_ = true;
      break;
    case Outcome::SchemeUnsupported:
      lacksScheme_ = true;
      break;
    case Outcome::Failed:
      break;
  }
  session_->log(KIV_LOG_LEVEL_INFO, [&] {
    return (candidate.route.isDirect() ? std::wstring(L"The direct connection") : candidate.route.url()) +
           L" does not work";
  });
}

void Resolution::headStartPassed() noexcept {
  if (phase_ != Phase::Attempting) return;
  othersConnecting_ = true;
  connectToOthers();
}

// So that proxies that are dead cost one connect time-out together. Never to the target.
void Resolution::connectToOthers() noexcept {
  auto connecting =
      static_cast<std::size_t>(std::ranges::count(candidates_, Candidate::State::Connecting, &Candidate::state));
  for (std::size_t i = current_ + 1; i < candidates_.size() && connecting < kMostConnecting; ++i) {
    Candidate& candidate = candidates_[i];
    if (candidate.route.isDirect() || candidate.state != Candidate::State::Untried) continue;
    const bool begun = support::guarded(false, [&] {
      ConnectorPlan plan;
      plan.host = candidate.route.host;
      plan.port = candidate.route.port;
      plan.connectTimeOut = session_->options().connectTimeOut;
      candidate.connector = Connector::start(session_->loop(), std::move(plan), *this);
      return true;
    });
    // Otherwise it is found out when its turn comes.
    if (!begun) continue;
    session_->count(Counter::Connections);
    candidate.state = Candidate::State::Connecting;
    ++connecting;
  }
}

void Resolution::portAnswered(Connector& /*connector*/) noexcept {}

void Resolution::connectorEnded(Connector& connector, DWORD error) noexcept {
  for (Candidate& candidate : candidates_) {
    if (candidate.connector.get() != &connector) continue;
    candidate.connector = {};
    candidate.state = error == ERROR_SUCCESS ? Candidate::State::Connected : Candidate::State::NotConnected;
    break;
  }
  if (phase_ == Phase::Attempting) connectToOthers();
  session_->loop().post(*this);
}

// One candidate works, so those to which no connection could be made are dead.
void Resolution::noteDead() {
  for (const Candidate& candidate : candidates_) {
    if (candidate.state == Candidate::State::NotConnected) session_->proxyDied(candidate.route);
  }
}

void Resolution::finishWithout() {
  if (makeshift_) {
    const Route& route = candidates_[*makeshift_].route;
    noteDead();
    return finish(DecisionKind::Proxy, route, makeshiftScheme_, KIV_REASON_MAKESHIFT);
  }
  std::uint32_t reason = candidates_.empty() ? KIV_REASON_NO_CANDIDATE : KIV_REASON_NOTHING_WORKS;
  if (lacksScheme_) reason = KIV_REASON_SCHEME_UNSUPPORTED;
  if (wantsCredentials_) reason = KIV_REASON_CREDENTIALS_WANTED;
  finish(DecisionKind::None, {}, 0, reason);
}

void Resolution::finish(DecisionKind kind, const Route& route, std::uint32_t authScheme, std::uint32_t reason) {
  const Ref<Decision> decision = makeRef<Decision>(origin_, kind, route, authScheme, reason, EventLoop::now(),
                                                   Ref<ProxyCredentials>(&session_->proxyCredentials()));
  session_->log(KIV_LOG_LEVEL_INFO, [&] {
    return origin_.url() + (kind == DecisionKind::Proxy ? L": " + route.url() + L", " : std::wstring(L": ")) +
           KivStatus_Text(reason);
  });
  session_->keep(origin_, decision, lifetimeOf(reason));
  session_->forget(*this);
  phase_ = Phase::Over;
  for (const Ref<Request>& request : std::exchange(requests_, {})) request->end(KIV_STATUS_OK, decision);
  session_->loop().post(*this);
}

// Without a route for want of credentials, only other credentials help.
Lifetime Resolution::lifetimeOf(std::uint32_t reason) const noexcept {
  if (discovered_ && (discovered_->overdue || discovered_->failed)) return Lifetime::Failure;
  if (reason == KIV_REASON_CREDENTIALS_WANTED) return Lifetime::UntilCredentialsChange;
  const bool good = reason < KIV_REASON_MAKESHIFT;
  return good ? Lifetime::Kept : Lifetime::Failure;
}

// All have had their time; who has time left gets another.
void Resolution::overran() noexcept {
  const Ref<Resolution> self(this);
  session_->forget(*this);
  for (const Ref<Request>& request : std::exchange(requests_, {})) {
    const KivStatus status = statusOf([&] {
      session_->resolutionFor(origin_).join(*request);
      return KIV_STATUS_OK;
    });
    if (status != KIV_STATUS_OK) request->end(status, {});
  }
  phase_ = Phase::Over;
  session_->loop().post(*this);
}

void Resolution::beginAgain() noexcept {
  if (phase_ == Phase::Over) return;
  if (attempt_ && attempt_->waitsAt()) formerLogin_ = Ref<ProxyLogin>(attempt_->waitsAt());
  stopWork();
  phase_ = Phase::Waiting;
  session_->loop().post(*this);
}

void Resolution::abandon() noexcept {
  const Ref<Resolution> self(this);
  phase_ = Phase::Over;
  stopWork();
  overrun_.clear();
  if (formerLogin_) std::exchange(formerLogin_, {})->visitorWentBy();
}

void Resolution::stopWork() noexcept {
  if (discovery_) std::exchange(discovery_, {})->abandon();
  discovered_.reset();
  if (filtering_) std::exchange(filtering_, {})->abandon();
  attempt_ = nullptr;
  result_.reset();
  headStart_.clear();
  for (const Candidate& candidate : candidates_) {
    if (candidate.connector) candidate.connector->stop();
  }
  candidates_.clear();
  current_ = 0;
  othersConnecting_ = false;
  makeshift_.reset();
  makeshiftScheme_ = 0;
  wantsCredentials_ = false;
  lacksScheme_ = false;
}

}  // namespace kiv::session
