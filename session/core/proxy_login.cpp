// Logging on to one proxy: which attempt may send which credentials, and the question that is open about them.
#include "core/proxy_login.h"

#include <algorithm>
#include <string>
#include <utility>

#include "core/session.h"

namespace kiv::session {

ProxyLogin::ProxyLogin(Session& session, Route proxy)
    : session_(&session), proxy_(std::move(proxy)), outlives_(session.loop(), *this) {}

ProxyLogin::Entrance ProxyLogin::enter(LoginWaiter& attempt, std::uint32_t scheme, std::wstring_view realm) {
  const bool senderIsOther = sender_ && sender_ != &attempt;
  if (!senderIsOther && !hasOpenQuestion()) {
    if (std::optional<impl::Cred> cred = session_->proxyCredentials().usable(proxy_)) {
      if (provenScheme_ == 0) sender_ = &attempt;
      return {Entry::Send, std::move(cred), version_};
    }
    if (!mayAsk()) return {};
  }
  waiters_.push_back(&attempt);
  if (!senderIsOther && !hasOpenQuestion()) openQuestion(scheme, realm);
  visitors_ = 0;
  outlives_.clear();
  return {Entry::Wait, std::nullopt, version_};
}

void ProxyLogin::leave(LoginWaiter& attempt) noexcept {
  std::erase(waiters_, &attempt);
  if (sender_ == &attempt) {
    sender_ = nullptr;
    session_->loop().post(*this);
  }
  limitQuestion();
}

void ProxyLogin::accepted(LoginWaiter& attempt, std::uint32_t scheme, std::uint32_t version) noexcept {
  if (version == version_) provenScheme_ = scheme;
  if (sender_ == &attempt) sender_ = nullptr;
  session_->loop().post(*this);
}

void ProxyLogin::refused(LoginWaiter& attempt, const impl::Cred& cred) noexcept {
  doubt();
  if (sender_ == &attempt) sender_ = nullptr;
  session_->credentialsRefused(proxy_, cred);
  session_->loop().post(*this);
}

std::optional<ProvenCredentials> ProxyLogin::proven() const {
  if (provenScheme_ == 0) return std::nullopt;
  std::optional<impl::Cred> cred = session_->proxyCredentials().usable(proxy_);
  if (!cred) return std::nullopt;
  return ProvenCredentials{std::move(*cred), provenScheme_, version_};
}

bool ProxyLogin::mayAsk() const noexcept {
  return session_->outbox().isHeard() &&
         session_->proxyCredentials().question(proxy_) == ProxyCredentials::Question::MayBeAsked;
}

void ProxyLogin::openQuestion(std::uint32_t scheme, std::wstring_view realm) {
  const Ref<Challenge> challenge = makeRef<Challenge>(Ref<ProxyLogin>(this), scheme, std::wstring(realm),
                                                      session_->proxyCredentials().nextAttempt(proxy_));
  // First the event, then the handle: a handle that is given back declines.
  const Ref<Event> event = makeRef<Event>(EventContents{.kind = KIV_EVENT_CHALLENGE});
  event->ask(ChallengeHandle(challenge));
  challenge_ = challenge;
  session_->count(Counter::Challenges);
  session_->outbox().send(event);
}

KivStatus ProxyLogin::ask(std::uint32_t scheme, std::wstring_view realm) {
  if (!hasOpenQuestion()) {
    if (!mayAsk()) return KIV_STATUS_UNSUPPORTED;
    openQuestion(scheme, realm);
  }
  if (waiters_.empty()) outlives_.set(EventLoop::now() + kQuestionOutlives);
  return KIV_STATUS_NOT_YET;
}

void ProxyLogin::answered() noexcept { session_->loop().post(*this); }

void ProxyLogin::run() noexcept {
  if (challenge_ && !challenge_->isOpen()) {
    const bool hasAnswer = std::exchange(challenge_, {})->hasAnswer();
    outlives_.clear();
    doubt();
    if (hasAnswer) session_->credentialsAdded();
  }
  wakeWaiters();
}

void ProxyLogin::expectVisitors(std::size_t resolutions) noexcept {
  if (!hasOpenQuestion()) return;
  visitors_ = resolutions;
  if (visitors_ == 0) withdraw();
}

void ProxyLogin::visitorWentBy() noexcept {
  if (visitors_ > 0 && --visitors_ == 0) withdraw();
}

void ProxyLogin::withdraw() noexcept {
  if (!challenge_ || !challenge_->withdraw()) return;
  outlives_.clear();
  const Ref<Challenge> challenge = std::exchange(challenge_, {});
  support::guarded([&] {
    session_->outbox().send(
        makeRef<Event>(EventContents{.kind = KIV_EVENT_WITHDRAWN, .challenge = ChallengeHandle(challenge)}));
  });
}

// Everybody enters again; the first one becomes the sender, or asks, and the others wait anew. None of them is
// destroyed meanwhile.
void ProxyLogin::wakeWaiters() noexcept {
  for (LoginWaiter* const waiter : std::exchange(waiters_, {})) waiter->loginChanged();
}

void ProxyLogin::limitQuestion() noexcept {
  if (hasOpenQuestion() && waiters_.empty() && !outlives_.isSet()) outlives_.set(EventLoop::now() + kQuestionOutlives);
}

}  // namespace kiv::session
