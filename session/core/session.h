// The session: what its resolutions share, and what the application can ask of it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "changes/changes.h"
#include "core/call_gate.h"
#include "core/options.h"
#include "core/outbox.h"
#include "core/proxy_login.h"
#include "core/request.h"
#include "core/resolution.h"
#include "credentials/proxy_auth.h"
#include "kiv/session.h"
#include "loop/event_loop.h"
#include "loop/system_error.h"
#include "network/discovery.h"
#include "routes/dead_proxies.h"
#include "routes/kept_decisions.h"
#include "support/module.h"

namespace kiv::session {

// Runs `body`, which returns a status; its exceptions become one.
template <class Body>
KivStatus statusOf(Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const SystemError& error) {
    support::keepLoaded();
    return KIV_STATUS_SYSTEM + error.code;
  } catch (...) {  // std::bad_alloc, or std::length_error
    support::keepLoaded();
    return KIV_STATUS_OUT_OF_MEMORY;
  }
}

enum class Counter : std::uint8_t { Resolutions, TestRequests, Connections, Challenges, Changes, Last };

class Session final : public AuthSession, private ChangesListener {
 public:
  static constexpr std::uint32_t kMostWaiting = 10'000;
  static constexpr std::size_t kMostLogins = 1'024;  // beyond, those that nobody uses are forgotten

  // Works as the user that the calling thread impersonates. Throws SystemError and std::bad_alloc.
  explicit Session(std::wstring userAgent);

  CallGate& gate() noexcept { return gate_; }
  EventLoop& loop() const noexcept { return *loop_; }
  Outbox& outbox() noexcept { return outbox_; }
  const std::wstring& userAgent() const noexcept { return userAgent_; }
  bool isClosed() const noexcept override { return closed_.load(); }

  // What the application calls. Throw std::bad_alloc and SystemError where not noexcept.
  // Runs `change(Options&, Callbacks&)`, which returns a status, if it is not too late.
  template <class Change>
  KivStatus configure(Change change);
  KivStatus setLogLevel(std::uint32_t level) noexcept;
  KivStatus setProxy(std::uint32_t which, const wchar_t* text, const wchar_t* user, const wchar_t* password);
  KivStatus lookup(const wchar_t* url, CallGate::Stripe& stripe, Ref<Decision>& decision);
  KivStatus resolve(const wchar_t* url, std::uint32_t timeout, CallGate::Stripe& stripe, Ref<Decision>& decision);
  KivStatus start(const wchar_t* url, std::uint32_t timeout, std::uint64_t tag, KivDoneFunction done,
                  Ref<Request>& request);
  KivStatus reportFailure(const Decision& decision, std::uint32_t reason);
  void forgetDecisions() noexcept;
  void forgetCredentials() noexcept;
  std::uint64_t counter(std::uint32_t counter) noexcept;
  // Takes the next event. Whoever does it for the first time may be asked from now on.
  KivStatus next(std::uint32_t timeout, Ref<Event>& event);
  void close() noexcept;
  // The handle was given up, and the last call has left: nobody reads events any more, and some of them own the
  // session.
  void releaseHandle() noexcept {
    outbox_.clear();
    release();
  }

  // As AuthSession.
  KivStatus askFor(const Route& proxy, std::uint32_t scheme, std::wstring_view realm) noexcept override;
  void refusedBy(const Route& proxy, const impl::Cred& cred) noexcept override;
  ProxyCredentials& proxyCredentials() noexcept override { return *credentials_; }
  std::uint32_t loggedOnUser() const noexcept override { return options_.loggedOnUser; }
  std::uint32_t schemes() const noexcept override { return options_.schemes; }
  bool asUser(void (*body)(void*), void* argument) noexcept override;

  // What follows is for the session's own parts, under the loop's lock.
  const Options& options() const noexcept { return options_; }
  Discoveries& discoveries() noexcept { return *discoveries_; }
  DeadProxies& dead() noexcept { return dead_; }
  Resolution& resolutionFor(const Origin& origin);
  void forget(const Resolution& resolution) noexcept;
  Ref<ProxyLogin> findLogin(const Route& proxy) noexcept;
  Ref<ProxyLogin> loginFor(const Route& proxy);
  void keep(const Origin& origin, const Ref<Decision>& decision, Lifetime lifetime);
  void proxyDied(const Route& proxy);
  void credentialsRefused(const Route& proxy, const impl::Cred& cred) noexcept;
  // The user has answered: what was wanting may not be any more.
  void credentialsAdded() noexcept;
  void requestEnded(Request::Report report) noexcept;
  void count(Counter counter) noexcept { ++counters_[static_cast<std::size_t>(counter)]; }
  // `text` makes the line, if it is wanted.
  template <class Text>
  void log(std::uint32_t level, Text text) noexcept {
    if (level > logLevel_.load(std::memory_order_relaxed)) return;
    const bool sent = support::guarded(false, [&] {
      outbox_.send(makeRef<Event>(EventContents{.kind = KIV_EVENT_LOG, .status = level, .text = text()}));
      return true;
    });
    if (!sent) outbox_.countLostLogLine();
  }

 private:
  struct OriginHash {
    std::size_t operator()(const Origin& origin) const noexcept { return origin.hash(); }
  };
  struct RouteHash {
    std::size_t operator()(const Route& route) const noexcept {
      return std::hash<std::wstring_view>()(route.host) + route.port;
    }
  };
  // One more who waits, unless what follows fails.
  class Admission {
   public:
    explicit Admission(Session& session) noexcept : session_(session), status_(session.admit()) {}
    Admission(const Admission&) = delete;
    Admission& operator=(const Admission&) = delete;
    ~Admission() {
      if (status_ == KIV_STATUS_OK && !succeeded_) --session_.waiting_;
    }
    KivStatus status() const noexcept { return status_; }
    void succeeded() noexcept { succeeded_ = true; }

   private:
    Session& session_;
    KivStatus status_;
    bool succeeded_ = false;
  };

  ~Session() override = default;
  void run() noexcept override;
  void changed() noexcept override;

  KivStatus begin(const Origin& origin, std::uint32_t timeout, Request::Report report, std::uint64_t tag,
                  KivDoneFunction done, Ref<Request>& request);
  KivStatus resolveInBackground(const Origin& origin);
  void join(Request& request, std::uint32_t timeout);
  KivStatus admit() noexcept;
  void freeze();
  KeptDecisions::Found findKept(const Origin& origin) noexcept;
  bool takeKept(const Origin& origin, CallGate::Stripe& stripe, Ref<Decision>& decision) noexcept;
  bool takePast(const Origin& origin, Ref<Decision>& decision) noexcept;
  void tearDown() noexcept;

  CallGate gate_;
  const std::wstring userAgent_;
  const Ref<EventLoop> loop_;
  const Ref<ProxyCredentials> credentials_;
  Outbox outbox_;
  Options options_;  // do not change once `kept_` is set
  Callbacks callbacks_;
  std::optional<impl::Cred> preferredCred_;  // until the first resolution
  std::optional<impl::Cred> fallbackCred_;
  std::atomic<std::uint32_t> logLevel_{KIV_LOG_LEVEL_OFF};
  std::unique_ptr<KeptDecisions> keptOwner_;
  std::atomic<KeptDecisions*> kept_{nullptr};  // since the first resolution
  DeadProxies dead_;
  std::unique_ptr<Discoveries> discoveries_;
  Ref<Changes> changes_;
  std::unordered_map<Origin, Ref<Resolution>, OriginHash> resolutions_;
  std::unordered_map<Route, Ref<ProxyLogin>, RouteHash> logins_;
  std::uint32_t waiting_ = 0;  // requests that have not ended
  std::uint64_t keptAnswers_ = 0;
  std::array<std::uint64_t, static_cast<std::size_t>(Counter::Last)> counters_{};
  std::atomic<bool> closed_{false};
  bool watches_ = false;
  bool tornDown_ = false;
};

template <class Change>
KivStatus Session::configure(Change change) {
  const LockGuard guard(loop_->lock());
  if (isClosed()) return KIV_STATUS_CLOSED;
  if (keptOwner_) return KIV_STATUS_TOO_LATE;
  return change(options_, callbacks_);
}

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivSession> {
  using Type = kiv::session::Session;
};
