// A proxy's question, as the application holds it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "kiv/session.h"
#include "loop/ref.h"
#include "support/border.h"

namespace kiv::session {

class ProxyLogin;

// Is answered, declined or withdrawn once, whoever is first. Handles are counted apart from references: the application
// holds handles, and when it has given the last one back unanswered, it has declined.
class Challenge final : public RefCounted {
 public:
  Challenge(Ref<ProxyLogin> login, std::uint32_t scheme, std::wstring realm, std::uint32_t attempt);

  const wchar_t* proxy() const noexcept { return proxy_.c_str(); }
  std::uint32_t scheme() const noexcept { return scheme_; }
  const wchar_t* realm() const noexcept { return realm_.c_str(); }
  std::uint32_t attempt() const noexcept { return attempt_; }
  bool isWithdrawn() const noexcept { return state_.load() == State::Withdrawn; }
  bool hasAnswer() const noexcept { return state_.load() == State::Answered; }
  bool isOpen() const noexcept { return state_.load() == State::Open; }

  // Throw std::bad_alloc and SystemError.
  KivStatus answer(const wchar_t* user, const wchar_t* password);
  KivStatus decline() noexcept;
  // By the session. False if it was answered or declined before.
  bool withdraw() noexcept { return close(State::Withdrawn); }

  void addHandle() noexcept { handles_.fetch_add(1, std::memory_order_relaxed); }
  void dropHandle() noexcept {
    if (handles_.fetch_sub(1, std::memory_order_acq_rel) == 1) (void)decline();
  }

 private:
  enum class State : std::uint8_t { Open, Answered, Declined, Withdrawn };

  ~Challenge() override;
  bool close(State state) noexcept {
    State open = State::Open;
    return state_.compare_exchange_strong(open, state);
  }

  Ref<ProxyLogin> login_;
  std::wstring proxy_;
  std::uint32_t scheme_;
  std::wstring realm_;
  std::uint32_t attempt_;
  std::atomic<State> state_{State::Open};
  std::atomic<std::uint32_t> handles_{0};
};

// One handle, and the reference that belongs to it.
class ChallengeHandle {
 public:
  ChallengeHandle() = default;
  explicit ChallengeHandle(Ref<Challenge> challenge) noexcept : challenge_(std::move(challenge)) {
    if (challenge_) challenge_->addHandle();
  }
  ChallengeHandle(const ChallengeHandle& other) noexcept : ChallengeHandle(other.challenge_) {}
  ChallengeHandle(ChallengeHandle&& other) noexcept = default;
  ChallengeHandle& operator=(ChallengeHandle other) noexcept {
    std::swap(challenge_, other.challenge_);
    return *this;
  }
  ~ChallengeHandle() {
    if (challenge_) challenge_->dropHandle();
  }

  // The handle that the application gives back.
  static ChallengeHandle adopt(Challenge* challenge) noexcept {
    ChallengeHandle handle;
    handle.challenge_ = Ref<Challenge>::adopt(challenge);
    return handle;
  }
  // The handle that the application gets.
  Challenge* detach() noexcept { return challenge_.detach(); }
  explicit operator bool() const noexcept { return static_cast<bool>(challenge_); }

 private:
  Ref<Challenge> challenge_;
};

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivChallenge> {
  using Type = kiv::session::Challenge;
};
