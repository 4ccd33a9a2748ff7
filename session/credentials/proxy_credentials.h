// The credentials of each proxy, and what became of them: refused ones are never sent again, questions are counted.
//
// Has a lock of its own, which is never held while anything else of the session is called: decisions and connections
// ask it from any thread. Passwords are protected memory.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "config/cred.h"
#include "loop/lock.h"
#include "loop/ref.h"
#include "routes/route.h"

namespace kiv::session {

class ProxyCredentials final : public RefCounted {
 public:
  static constexpr int kMostQuestions = 2;
  static constexpr std::size_t kMostProxies = 1'024;  // that something is known of; more are treated as declined
  static constexpr std::size_t kMostRefused = 8;      // for each proxy; beyond, whatever is answered counts as refused

  // The application's own, from KivSession_SetProxy. Kept by forget(), which lets it be tried again.
  void give(const Route& proxy, impl::Cred cred);  // all of these may throw std::bad_alloc where not noexcept

  // What may be sent to the proxy: the user's answer, else what was given, unless it was refused.
  std::optional<impl::Cred> usable(const Route& proxy) const;
  // Whether these may still be sent to it.
  bool isUsable(const Route& proxy, const impl::Cred& cred) const;

  enum class Question : std::uint8_t { MayBeAsked, Declined, AskedEnough };
  Question question(const Route& proxy) const noexcept;
  // 1 or 2: the number that the next question has.
  std::uint32_t nextAttempt(const Route& proxy) const noexcept;
  // A question was answered. False if these very credentials were refused before: they are not kept, and count as a
  // question that was asked.
  bool answered(const Route& proxy, impl::Cred cred);
  // A question was declined.
  void declined(const Route& proxy) noexcept;
  // The proxy answered 407 to these: they are never usable for it again.
  void refused(const Route& proxy, const impl::Cred& cred) noexcept;
  // Drops answers, refusals, counts and declines.
  void forget() noexcept;
  // After it nothing is usable, and nothing is kept: the session has closed.
  void close() noexcept;
  bool isClosed() const noexcept;

 private:
  struct Record {
    std::optional<impl::Cred> given;
    bool givenIsRefused = false;
    std::optional<impl::Cred> answer;  // never one that is among the refused
    std::vector<impl::Cred> refused;
    bool everythingIsRefused = false;  // more than can be remembered
    int questions = 0;
    bool declined = false;

    bool refuses(const impl::Cred& cred) const;
  };

  // Under the lock. Null if there is none, or if there can be none.
  const Record* find(const Route& proxy) const noexcept;
  Record* make(const Route& proxy) noexcept;

  mutable Lock lock_;
  std::map<Route, Record> records_;
  bool isFull_ = false;  // proxies without a record are treated as declined
  bool closed_ = false;
};

}  // namespace kiv::session
