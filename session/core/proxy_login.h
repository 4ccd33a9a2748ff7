// Logging on to one proxy: which attempt may send which credentials, and the question that is open about them.
//
// Credentials that the proxy has not accepted yet are sent by one attempt at a time, and one question is open at a
// time; all others wait. So a wrong password is sent once, however many origins lead through the proxy.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "config/cred.h"
#include "core/challenge.h"
#include "loop/event_loop.h"
#include "routes/route.h"

namespace kiv::session {

class Session;

class LoginWaiter {
 public:
  // In the loop: credentials or the question have changed, so enter again.
  virtual void loginChanged() noexcept = 0;

 protected:
  ~LoginWaiter() = default;
};

struct ProvenCredentials {
  impl::Cred cred;
  std::uint32_t scheme;
  std::uint32_t version;
};

// All under the loop's lock, but for answered().
class ProxyLogin final : public Task {
 public:
  ProxyLogin(Session& session, Route proxy);

  const Route& proxy() const noexcept { return proxy_; }
  Session& session() const noexcept { return *session_; }

  enum class Entry : std::uint8_t { Send, Wait, Refused };
  struct Entrance {
    Entry entry = Entry::Refused;
    std::optional<impl::Cred> cred;  // to be sent
    std::uint32_t version = 0;       // of what is usable, for accepted()
  };
  // An attempt was challenged. Throws std::bad_alloc.
  Entrance enter(LoginWaiter& attempt, std::uint32_t scheme, std::wstring_view realm);
  // The attempt neither waits nor sends any more.
  void leave(LoginWaiter& attempt) noexcept;
  // The proxy answered what the attempt sent with something else than 407, or with a 407.
  void accepted(LoginWaiter& attempt, std::uint32_t scheme, std::uint32_t version) noexcept;
  void refused(LoginWaiter& attempt, const impl::Cred& cred) noexcept;

  // What can be sent without being asked for. Throws std::bad_alloc.
  std::optional<ProvenCredentials> proven() const;
  // The credentials may have changed.
  void doubt() noexcept {
    provenScheme_ = 0;
    ++version_;
  }

  // Opens the question, for a client that does not wait here. As AuthSession::askFor; throws std::bad_alloc.
  KivStatus ask(std::uint32_t scheme, std::wstring_view realm);
  // The question was answered or declined. From any thread.
  void answered() noexcept;

  // The network has changed: the question is withdrawn, unless one of so many resolutions that begin again meets it.
  void expectVisitors(std::size_t resolutions) noexcept;
  void visitorWentBy() noexcept;
  void withdraw() noexcept;
  bool isIdle() const noexcept { return !challenge_ && !sender_ && waiters_.empty(); }
  bool hasOpenQuestion() const noexcept { return static_cast<bool>(challenge_); }

 private:
  // How long a question outlives those who wait for its answer.
  static constexpr Time kQuestionOutlives = 300'000;

  ~ProxyLogin() override = default;
  void run() noexcept override;
  void expired() noexcept { withdraw(); }
  bool mayAsk() const noexcept;
  void openQuestion(std::uint32_t scheme, std::wstring_view realm);
  void wakeWaiters() noexcept;
  void limitQuestion() noexcept;

  Ref<Session> session_;
  Route proxy_;
  std::vector<LoginWaiter*> waiters_;
  LoginWaiter* sender_ = nullptr;   // of credentials that are not proven
  std::uint32_t version_ = 0;       // of what is usable: an answer to older credentials proves nothing about newer ones
  std::uint32_t provenScheme_ = 0;  // with which the proxy accepted what is usable now; 0 if it has not
  Ref<Challenge> challenge_;        // open, or answered a moment ago
  std::size_t visitors_ = 0;
  DeadlineOf<ProxyLogin, &ProxyLogin::expired> outlives_;
};

}  // namespace kiv::session
