/** @file
 * The interface of kiv-session.dll for C++17 and later: owners instead of handles, exceptions instead of status codes,
 * callables instead of callbacks. Header-only: it calls the C functions of kiv/session.h, and nothing of it is in the
 * DLL. It needs nothing of kiv/kiv.hpp; a program may use both.
 *
 * Conventions that hold for every type:
 *
 * - An object owns one handle, or none if it was default-constructed or moved from; then it behaves like a null handle.
 *   A decision can be copied, and its copies share the handle. Everything else can only be moved.
 * - A constructor from a handle takes ownership of it; null is allowed. handle() returns the handle for a call of a C
 *   function, and the object keeps it.
 * - A text argument need not be terminated, but must not contain a NUL character: std::invalid_argument. Copies made
 *   for the C interface are wiped. A returned view belongs to the object that returned it and lives as long as its
 *   handle. A NUL follows its characters.
 * - A function that has no result throws: std::bad_alloc for KIV_STATUS_OUT_OF_MEMORY, otherwise SessionError with the
 *   status. Inside a callable of the session, resolve, wait and next throw KIV_STATUS_REENTRANT.
 * - A time-out that is zero or negative has passed already. no_timeout never passes. default_timeout stands for
 *   SessionOptions::timeout.
 * - Callables run on threads of the system's thread pool, one at a time for each session. What one throws goes no
 *   further: the session continues as if it had returned, and a filter that throws says no. Only what the sink of
 *   Decision::show_credentials throws is rethrown, to its caller.
 */
#ifndef KIV_SESSION_HPP
#define KIV_SESSION_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "kiv/session.h"

// MinGW's toolchains with the thread model "win32" have neither std::mutex nor std::future before GCC 13.
#if !defined(__GLIBCXX__) || defined(_GLIBCXX_HAS_GTHREADS)
/** Defined where the standard library has threads: there are futures and cancel tokens. */
#define KIV_SESSION_HAS_FUTURES 1
#include <future>
#include <map>
#include <mutex>
#endif

namespace kiv {

/** Stands for SessionOptions::timeout, in the calls that resolve. */
inline constexpr std::chrono::milliseconds default_timeout = std::chrono::milliseconds::min();
/** Never passes. */
inline constexpr std::chrono::milliseconds no_timeout = std::chrono::milliseconds::max();

/** Thrown when a call has no result. */
class SessionError : public std::runtime_error {
 public:
  /** Makes the exception of a status. */
  explicit SessionError(KivStatus status) : std::runtime_error(message(status)), status_(status) {}

  /** A KIV_STATUS_ value; a failure of the system is KIV_STATUS_SYSTEM + its error code. */
  KivStatus status() const noexcept { return status_; }

 private:
  // The library's texts are English, in ASCII. One text stands for many errors of the system: their codes tell more.
  static std::string message(KivStatus status) {
    std::string text = "kiv: ";
    for (const wchar_t* at = KivStatus_Text(status); *at != L'\0'; ++at) text.push_back(static_cast<char>(*at));
    if (status < 0x80000000U) return text;
    char code[sizeof " (0x80070000)"];
    std::snprintf(code, sizeof code, " (0x%08lX)", static_cast<unsigned long>(status));
    return text + code;
  }

  KivStatus status_;
};

namespace session_detail {

struct Release {
  void operator()(KivSession* handle) const noexcept { KivSession_Destruct(handle); }
  void operator()(KivRequest* handle) const noexcept { KivRequest_Release(handle); }
  void operator()(KivDecision* handle) const noexcept { KivDecision_Release(handle); }
  void operator()(KivChallenge* handle) const noexcept { KivChallenge_Release(handle); }
  void operator()(KivEvent* handle) const noexcept { KivEvent_Release(handle); }
  void operator()(KivAuth* handle) const noexcept { KivAuth_Release(handle); }
};

template <class Handle>
using Owned = std::unique_ptr<Handle, Release>;

inline void check(KivStatus status) {
  if (status == KIV_STATUS_OUT_OF_MEMORY) throw std::bad_alloc();
  if (status != KIV_STATUS_OK) throw SessionError(status);
}

/** Overwrites characters. A compiler may remove writes that nobody reads, but not those through a pointer to volatile.
 */
inline void wipe(wchar_t* text, std::size_t length) noexcept {
  for (volatile wchar_t* at = text; at != text + length; ++at) *at = L'\0';
}

/** A terminated copy of a text. It may hold a password, so it is wiped when destroyed. */
class Text {
 public:
  explicit Text(std::wstring_view text) : text_(checked(text)) {}
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() { wipe(text_.data(), text_.size()); }
  const wchar_t* c_str() const noexcept { return text_.c_str(); }

 private:
  static std::wstring_view checked(std::wstring_view text) {
    if (text.find(L'\0') == std::wstring_view::npos) return text;
    throw std::invalid_argument("kiv: a text contains a NUL character");
  }
  std::wstring text_;
};

/** Milliseconds as the C interface counts them. */
inline std::uint32_t count(std::chrono::milliseconds time) noexcept {
  return time.count() < static_cast<std::int64_t>(KIV_NO_TIME_OUT) ? static_cast<std::uint32_t>(time.count())
                                                                   : KIV_NO_TIME_OUT;
}
/** The time-out of a function to which 0 is the default. */
inline std::uint32_t limit(std::chrono::milliseconds timeout) noexcept {
  if (timeout == default_timeout) return 0;
  return timeout.count() <= 0 ? 1 : count(timeout);
}
/** The time-out of a function to which 0 is to look only. */
inline std::uint32_t patience(std::chrono::milliseconds timeout) noexcept {
  return timeout.count() <= 0 ? 0 : count(timeout);
}
/** The value of an option. No option takes KIV_NO_TIME_OUT, which stands for all that is out of range. */
inline std::uint32_t option(std::chrono::milliseconds time) noexcept {
  return time.count() < 0 ? KIV_NO_TIME_OUT : count(time);
}

/** Runs a callable that may throw, in a callback. */
template <class Body>
void contained(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {  // nobody is there to receive it
  }
}

}  // namespace session_detail

/** A text whose characters are overwritten with zeros when it is destroyed. */
class SecretText {
 public:
  SecretText() noexcept = default;
  /** Copies a text. */
  explicit SecretText(std::wstring_view text) : text_(new wchar_t[text.size() + 1]), size_(text.size()) {
    text.copy(text_.get(), size_);
    text_[size_] = L'\0';
  }
  /** Leaves `other` empty. */
  SecretText(SecretText&& other) noexcept : text_(std::move(other.text_)), size_(std::exchange(other.size_, 0U)) {}
  /** Wipes the former text at once. */
  SecretText& operator=(SecretText&& other) noexcept {
    SecretText taken(std::move(other));  // wipes what was here
    std::swap(text_, taken.text_);
    std::swap(size_, taken.size_);
    return *this;
  }
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  ~SecretText() {
    if (text_) session_detail::wipe(text_.get(), size_);
  }

  /** NUL-terminated; never null. */
  const wchar_t* c_str() const noexcept { return text_ ? text_.get() : L""; }
  /** The characters. */
  std::wstring_view view() const noexcept { return {c_str(), size_}; }

 private:
  std::unique_ptr<wchar_t[]> text_;
  std::size_t size_ = 0;
};

/** A user name and a password in clear. Destroy it as soon as it has been used. */
struct ClearCredentials {
  std::wstring user;   /**< the user name */
  SecretText password; /**< the password, in clear */
};

/** What a decision says. */
enum class DecisionKind : std::uint32_t {
  None = KIV_KIND_NONE,     /**< there is no route; Decision::reason tells why */
  Direct = KIV_KIND_DIRECT, /**< connect directly */
  Proxy = KIV_KIND_PROXY    /**< connect through the proxy */
};

/** How to connect to one origin. Never changes, and stays readable when the session has closed. */
class Decision {
 public:
  Decision() noexcept = default;
  /** Takes over a handle of the C interface. */
  explicit Decision(KivDecision* handle) noexcept : handle_(handle) {}
  /** Another owner of the same decision. */
  Decision(const Decision& other) noexcept : handle_(KivDecision_Retain(other.handle())) {}
  /** Leaves `other` empty. */
  Decision(Decision&&) noexcept = default;
  /** Releases the former decision. */
  Decision& operator=(Decision other) noexcept {
    handle_.swap(other.handle_);
    return *this;
  }
  ~Decision() = default;

  /** For functions of the C interface; still owned by this object. */
  KivDecision* handle() const noexcept { return handle_.get(); }
  /** False if it is empty or was moved from. */
  explicit operator bool() const noexcept { return handle_ != nullptr; }

  /** What it says. */
  DecisionKind kind() const noexcept { return static_cast<DecisionKind>(KivDecision_Kind(handle())); }
  /** There is no route. */
  bool is_none() const noexcept { return kind() == DecisionKind::None; }
  /** Connect directly. */
  bool is_direct() const noexcept { return kind() == DecisionKind::Direct; }
  /** Connect through the proxy. */
  bool is_proxy() const noexcept { return kind() == DecisionKind::Proxy; }
  /** "http", "https", "socks4" or "socks5"; empty unless it is a proxy. */
  std::wstring_view scheme() const noexcept { return KivDecision_Scheme(handle()); }
  /** The proxy's host, an IPv6 address without brackets; empty unless it is a proxy. */
  std::wstring_view host() const noexcept { return KivDecision_Host(handle()); }
  /** The proxy's port; 0 unless it is a proxy. */
  std::uint16_t port() const noexcept { return static_cast<std::uint16_t>(KivDecision_Port(handle())); }
  /** scheme://host:port, without credentials; empty unless it is a proxy. */
  std::wstring_view proxy_url() const noexcept { return KivDecision_ProxyUrl(handle()); }
  /** The KIV_SCHEME_ with which the proxy let the test request pass; 0 if it wanted none or was not asked. */
  std::uint32_t auth_scheme() const noexcept { return KivDecision_AuthScheme(handle()); }
  /** How long ago it was made, counting time in which the computer slept. */
  std::chrono::milliseconds age() const noexcept {
    return std::chrono::milliseconds(static_cast<std::int64_t>(KivDecision_Age(handle())));
  }
  /** A KIV_REASON_ value. */
  std::uint32_t reason() const noexcept { return KivDecision_Reason(handle()); }
  /** An English text for the reason, for people. */
  std::wstring_view reason_text() const noexcept { return KivStatus_Text(reason()); }

  /** The session's credentials for the proxy; nothing if it has none. */
  std::optional<ClearCredentials> credentials() const {
    std::optional<ClearCredentials> found;
    show_credentials([&](std::wstring_view user, std::wstring_view password) {
      found.emplace(ClearCredentials{std::wstring(user), SecretText(password)});
    });
    return found;
  }
  /** Passes them to `sink`, which is called before this returns; false, without a call, if the session has none. */
  bool show_credentials(const std::function<void(std::wstring_view user, std::wstring_view password)>& sink) const {
    struct Visit {
      const std::function<void(std::wstring_view, std::wstring_view)>& sink;
      std::exception_ptr thrown;
    } visit{sink, nullptr};
    const auto receive = [](void* context, const wchar_t* user, const wchar_t* password) {
      Visit& self = *static_cast<Visit*>(context);
      try {
        self.sink(user, password);
      } catch (...) {
        self.thrown = std::current_exception();
      }
    };
    const KivStatus status = KivDecision_Credentials(handle(), &visit, receive);
    if (visit.thrown) std::rethrow_exception(visit.thrown);
    if (status == KIV_STATUS_NOT_YET) return false;
    session_detail::check(status);
    return true;
  }

 private:
  session_detail::Owned<KivDecision> handle_;
};

/**
 * A proxy's question for a user name and a password. It waits for answer() or decline(), on any thread, as long as it
 * lives; destroyed or assigned over without either, it is declined.
 */
class Challenge {
 public:
  Challenge() noexcept = default;
  /** Takes over a handle of the C interface. */
  explicit Challenge(KivChallenge* handle) noexcept : handle_(handle) {}

  /** For functions of the C interface; still owned by this object. */
  KivChallenge* handle() const noexcept { return handle_.get(); }
  /** False if it is empty or was moved from. */
  explicit operator bool() const noexcept { return handle_ != nullptr; }
  /** Whether both are the same question: the one that was withdrawn, and the one that a dialog shows. */
  friend bool operator==(const Challenge& one, const Challenge& other) noexcept {
    return one.handle() == other.handle();
  }
  /** Whether they are different questions. */
  friend bool operator!=(const Challenge& one, const Challenge& other) noexcept { return !(one == other); }

  /** The proxy, as scheme://host:port. */
  std::wstring_view proxy() const noexcept { return KivChallenge_Proxy(handle()); }
  /** The KIV_SCHEME_ that an answer would be used with. */
  std::uint32_t scheme() const noexcept { return KivChallenge_Scheme(handle()); }
  /** The realm that the proxy names; empty for none. It is the proxy's own text: show it as such. */
  std::wstring_view realm() const noexcept { return KivChallenge_Realm(handle()); }
  /** 1 for the first question about this proxy, 2 when the first answer was refused. */
  std::uint32_t attempt() const noexcept { return KivChallenge_Attempt(handle()); }
  /** Whether an answer is no longer wanted. */
  bool is_withdrawn() const noexcept { return KivChallenge_IsWithdrawn(handle()) != 0; }

  /** False if it was answered, declined or withdrawn before. */
  bool answer(std::wstring_view user, std::wstring_view password) {
    const session_detail::Text name(user);
    const session_detail::Text secret(password);
    return unless_too_late(KivChallenge_Answer(handle(), name.c_str(), secret.c_str()));
  }
  /** Nobody is asked about this proxy again, until Session::forget_credentials. False as for answer. */
  bool decline() { return unless_too_late(KivChallenge_Decline(handle())); }

 private:
  static bool unless_too_late(KivStatus status) {
    if (status == KIV_STATUS_TOO_LATE) return false;
    session_detail::check(status);
    return true;
  }

  session_detail::Owned<KivChallenge> handle_;
};

/** A resolution that was started. Destroying it does not cancel. */
class PendingResolution {
 public:
  PendingResolution() noexcept = default;
  /** Takes over a handle of the C interface. */
  explicit PendingResolution(KivRequest* handle) noexcept : handle_(handle) {}

  /** For functions of the C interface; still owned by this object. */
  KivRequest* handle() const noexcept { return handle_.get(); }

  /** Ends it with KIV_STATUS_CANCELLED, unless it has ended. Its end is told all the same. Returns at once. */
  void cancel() noexcept { KivRequest_Cancel(handle()); }
  /** Waits for the end; nothing if `timeout` passes first. Throws if it has failed or was cancelled. */
  std::optional<Decision> wait(std::chrono::milliseconds timeout = no_timeout) {
    KivDecision* decision = nullptr;
    const KivStatus status = KivRequest_Wait(handle(), session_detail::patience(timeout), &decision);
    if (status == KIV_STATUS_NOT_YET) return std::nullopt;
    session_detail::check(status);
    return Decision(decision);
  }

 private:
  session_detail::Owned<KivRequest> handle_;
};

/** How important a log line of a session is. */
enum class SessionLogLevel : std::uint32_t {
  Off = KIV_LOG_LEVEL_OFF,
  Error = KIV_LOG_LEVEL_ERROR,
  Warn = KIV_LOG_LEVEL_WARN,
  Info = KIV_LOG_LEVEL_INFO,
  Debug = KIV_LOG_LEVEL_DEBUG
};

/** A resolution that was started with a tag has ended. */
struct CompletedEvent {
  std::uint64_t tag; /**< the caller's number */
  KivStatus status;  /**< how it ended */
  Decision decision; /**< null unless the status is KIV_STATUS_OK */
};
/** A proxy wants credentials. */
struct ChallengeEvent {
  Challenge challenge; /**< to be answered */
};
/** The answer to a challenge is no longer wanted: a dialog can close. */
struct WithdrawnEvent {
  Challenge challenge; /**< equals the one that was handed out */
};
/** Settings or network have changed; connections of the application may be stale too. */
struct ChangedEvent {};
/** A log line. */
struct LogEvent {
  SessionLogLevel level; /**< a KIV_LOG_LEVEL_ value */
  std::wstring text;     /**< the line */
};
/** The session was closed. Nothing else follows. */
struct ClosedEvent {};

/** What Session::next returns. */
using SessionEvent = std::variant<CompletedEvent, ChallengeEvent, WithdrawnEvent, ChangedEvent, LogEvent, ClosedEvent>;

/** What decides that a candidate works. */
enum class SessionTest : std::uint32_t {
  None = KIV_TEST_NONE,       /**< the first candidate is the answer, untested */
  Connect = KIV_TEST_CONNECT, /**< a connection to it can be made */
  Reached = KIV_TEST_REACHED  /**< a HEAD request for the origin's root reaches the origin through it */
};

/** What becomes of direct connections. */
enum class DirectPolicy : std::uint32_t {
  Settings = KIV_DIRECT_SETTINGS,      /**< stand where the settings name them */
  LastResort = KIV_DIRECT_LAST_RESORT, /**< always the last candidate, and only the last */
  Never = KIV_DIRECT_NEVER             /**< only for targets in the bypass list */
};

/** Who may receive the logged-on user's credentials. */
enum class LoggedOnUser : std::uint32_t {
  Never = KIV_LOGGED_ON_USER_NEVER,
  System = KIV_LOGGED_ON_USER_SYSTEM, /**< whom the system's default allows: proxies, and servers of the intranet */
  Proxies = KIV_LOGGED_ON_USER_PROXIES
};

/** How a session works. What is not set has the default of kiv/session.h. */
struct SessionOptions {
  /** A time, or the default. */
  using Milliseconds = std::optional<std::chrono::milliseconds>;

  std::optional<SessionTest> test;            /**< what decides that a candidate works */
  Milliseconds timeout;                       /**< of a call that names none, and of work that no caller limits */
  Milliseconds discovery_timeout;             /**< of reading settings and running PAC scripts */
  Milliseconds connect_timeout;               /**< of connecting to a proxy or target */
  Milliseconds answer_timeout;                /**< of an answer on an open connection */
  Milliseconds kept_time;                     /**< how long a decision is kept */
  Milliseconds past_time;                     /**< how long one past its time is the answer while a refresh runs */
  Milliseconds failure_time;                  /**< how long "no route" and other makeshift decisions are kept */
  Milliseconds dead_time;                     /**< how long a dead proxy is tried last */
  std::optional<std::uint32_t> origins;       /**< how many origins' decisions are kept */
  std::optional<std::uint32_t> candidates;    /**< how many candidates are attempted */
  std::optional<DirectPolicy> direct;         /**< what becomes of direct connections */
  std::optional<LoggedOnUser> logged_on_user; /**< who may receive the logged-on user's credentials */
  std::optional<std::uint32_t> schemes; /**< that the application's HTTP client speaks: a sum of KIV_SCHEME_ values */
  std::optional<SessionLogLevel> log_level; /**< which log lines are made */
  std::optional<std::wstring> left_out;     /**< candidates that are never used, as KIV_OPTION_LEFT_OUT */
  std::optional<std::wstring> bypass_list;  /**< in place of the settings', as KIV_OPTION_BYPASS_LIST */

  /** The empty queue of events received one. Must neither block nor call the session. */
  std::function<void()> wake;
  /** Returns whether a proxy may be used. If empty, all may. */
  std::function<bool(std::wstring_view proxy_url)> filter;
  /** Receives a proxy's challenge, to be answered now or later. If empty, challenges are events. */
  std::function<void(Challenge challenge)> challenge;
  /** Receives a challenge whose answer is no longer wanted, even before it was handed out. Needs `challenge`. */
  std::function<void(const Challenge& challenge)> withdrawn;
  /** Receives a log line. If empty, log lines are events. */
  std::function<void(SessionLogLevel level, std::wstring_view text)> log;
  /** Settings or network have changed. If empty, changes are events. */
  std::function<void()> changed;
};

/** Receives the end of a resolution; the decision is null unless the status is KIV_STATUS_OK. */
using DoneFunction = std::function<void(KivStatus status, Decision decision)>;

namespace session_detail {

/** The callables of a session. Shared, because a session may be destroyed by one of them. */
class Callables : public std::enable_shared_from_this<Callables> {
 public:
  explicit Callables(SessionOptions& options)
      : wake_(std::move(options.wake)),
        filter_(std::move(options.filter)),
        challenge_(std::move(options.challenge)),
        withdrawn_(std::move(options.withdrawn)),
        log_(std::move(options.log)),
        changed_(std::move(options.changed)) {}

  void set_in(KivSession* session) {
    if (wake_) check(KivSession_SetWake(session, wake, this));
    if (filter_) check(KivSession_SetFilter(session, filter, this));
    if (challenge_) check(KivSession_SetCredentialCallback(session, challenge, this));
    if (log_) check(KivSession_SetLog(session, log, this));
    if (changed_) check(KivSession_SetChanged(session, changed, this));
  }

 private:
  static std::shared_ptr<Callables> of(void* context) noexcept {
    return static_cast<Callables*>(context)->weak_from_this().lock();
  }
  static void wake(void* context) {
    const auto self = of(context);
    contained([&] { self->wake_(); });
  }
  static int filter(void* context, const wchar_t* proxy_url) {
    const auto self = of(context);
    bool may_be_used = false;
    contained([&] { may_be_used = self->filter_(proxy_url); });
    return may_be_used ? 1 : 0;
  }
  static void challenge(void* context, KivChallenge* handle) {
    const auto self = of(context);
    Challenge owned(handle);
    contained([&] {
      if (!owned.is_withdrawn()) return self->challenge_(std::move(owned));
      if (self->withdrawn_) self->withdrawn_(owned);
    });
  }
  static void log(void* context, std::uint32_t level, const wchar_t* text) {
    const auto self = of(context);
    contained([&] { self->log_(static_cast<SessionLogLevel>(level), text); });
  }
  static void changed(void* context) {
    const auto self = of(context);
    contained([&] { self->changed_(); });
  }

  std::function<void()> wake_;
  std::function<bool(std::wstring_view)> filter_;
  std::function<void(Challenge)> challenge_;
  std::function<void(const Challenge&)> withdrawn_;
  std::function<void(SessionLogLevel, std::wstring_view)> log_;
  std::function<void()> changed_;
};

/** What a resolution does at its end. Its address is the tag. */
class Completion {
 public:
  explicit Completion(DoneFunction done) : done_(std::move(done)) {}

  std::uint64_t tag() const noexcept { return reinterpret_cast<std::uintptr_t>(this); }
  static void done(std::uint64_t tag, KivStatus status, KivDecision* handle) {
    const std::unique_ptr<Completion> self(reinterpret_cast<Completion*>(static_cast<std::uintptr_t>(tag)));
    Decision decision(handle);
    contained([&] { self->done_(status, std::move(decision)); });
  }

 private:
  DoneFunction done_;
};

#ifdef KIV_SESSION_HAS_FUTURES

/** The requests that a CancelSource cancels. */
class Cancellation {
 public:
  Cancellation() = default;
  Cancellation(const Cancellation&) = delete;
  Cancellation& operator=(const Cancellation&) = delete;

  /** Whether the source was cancelled. */
  bool is_cancelled() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return cancelled_;
  }
  /** Begins a request that may end before it is known. Returns its number. */
  std::uint64_t reserve() {
    const std::lock_guard<std::mutex> guard(mutex_);
    requests_.try_emplace(++last_number_);
    return last_number_;
  }
  void started(std::uint64_t number, PendingResolution request) {
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      if (!cancelled_) {
        // One that has ended already is in the map no more.
        if (const auto at = requests_.find(number); at != requests_.end()) at->second = std::move(request);
        return;
      }
    }
    request.cancel();
  }
  void ended(std::uint64_t number) {
    const std::lock_guard<std::mutex> guard(mutex_);
    requests_.erase(number);
  }
  /** Cancels what was started with its tokens, and what will be. */
  void cancel() {
    std::map<std::uint64_t, PendingResolution> requests;
    {
      const std::lock_guard<std::mutex> guard(mutex_);
      cancelled_ = true;
      requests.swap(requests_);
    }
    for (auto& [number, request] : requests) request.cancel();
  }

 private:
  mutable std::mutex mutex_;
  bool cancelled_ = false;
  std::uint64_t last_number_ = 0;
  std::map<std::uint64_t, PendingResolution> requests_;
};

#endif

}  // namespace session_detail

#ifdef KIV_SESSION_HAS_FUTURES

/** Lets a CancelSource cancel what Session::resolve_async starts. Default-constructed, it is never cancelled. */
class CancelToken {
 public:
  CancelToken() noexcept = default;
  /** Whether the source was cancelled. */
  bool is_cancelled() const { return state_ && state_->is_cancelled(); }

 private:
  friend class CancelSource;
  friend class Session;
  explicit CancelToken(std::shared_ptr<session_detail::Cancellation> state) noexcept : state_(std::move(state)) {}

  std::shared_ptr<session_detail::Cancellation> state_;
};

/** Cancels every resolution that was or will be started with one of its tokens. Any thread may call it. */
class CancelSource {
 public:
  /** A token of this source. */
  CancelToken token() const noexcept { return CancelToken(state_); }
  /** Cancels what was started with its tokens, and what will be. */
  void cancel() { state_->cancel(); }

 private:
  std::shared_ptr<session_detail::Cancellation> state_ = std::make_shared<session_detail::Cancellation>();
};

#endif

/** What is to be done next to authenticate at a proxy. */
enum class AuthStep : std::uint32_t {
  Again = KIV_STATUS_AGAIN,            /**< send the header, and call again with the proxy's next answer */
  Done = KIV_STATUS_DONE,              /**< send the header, if there is one; nothing more is to be sent */
  NotYet = KIV_STATUS_NOT_YET,         /**< the question is open; a later call continues */
  Rejected = KIV_STATUS_REJECTED,      /**< the credentials were refused, or forgotten: close the connection */
  Unsupported = KIV_STATUS_UNSUPPORTED /**< the proxy offers nothing that can be answered, or nobody can be asked */
};

/** The authentication of one connection to a proxy, for HTTP clients that cannot do it themselves. */
class ProxyAuth {
 public:
  ProxyAuth() noexcept = default;
  /** Takes over a handle of the C interface. */
  explicit ProxyAuth(KivAuth* handle) noexcept : handle_(handle) {}

  /** For functions of the C interface; still owned by this object. */
  KivAuth* handle() const noexcept { return handle_.get(); }

  /** The value of the Proxy-Authorization header to send; empty if there is none. Lives until the next call of next. */
  std::wstring_view header() const noexcept { return handle_ && header_ ? header_ : L""; }
  /**
   * Makes the header to send, on the same connection, in answer to a proxy's 407. May wait for a domain controller.
   * @param proxy_authenticate the values of all Proxy-Authenticate headers of a 407, one in each line; empty to ask for
   *                           what can be sent before any 407.
   */
  AuthStep next(std::wstring_view proxy_authenticate = {}) {
    header_ = nullptr;
    const KivStatus status = KivAuth_Next(handle(), session_detail::Text(proxy_authenticate).c_str(), &header_);
    switch (const auto step = static_cast<AuthStep>(status)) {
      case AuthStep::Again:
      case AuthStep::Done:
      case AuthStep::NotYet:
      case AuthStep::Rejected:
      case AuthStep::Unsupported:
        return step;
    }
    session_detail::check(status);
    throw SessionError(status);
  }

 private:
  session_detail::Owned<KivAuth> handle_;
  const wchar_t* header_ = nullptr;
};

/** What can be told of a decision that did not work. */
enum class DecisionFailure : std::uint32_t {
  ProxyUnreachable = KIV_FAILURE_PROXY_UNREACHABLE, /**< no connection to the proxy could be made */
  ProxyCredentials = KIV_FAILURE_PROXY_CREDENTIALS, /**< the proxy refused the session's credentials */
  Target = KIV_FAILURE_TARGET                       /**< the target could not be reached */
};

/** What a session counts. */
enum class SessionCounter : std::uint32_t {
  Resolutions = KIV_COUNTER_RESOLUTIONS,
  KeptAnswers = KIV_COUNTER_KEPT_ANSWERS,
  KeptOrigins = KIV_COUNTER_KEPT_ORIGINS,
  Waiting = KIV_COUNTER_WAITING,
  Discoveries = KIV_COUNTER_DISCOVERIES,
  OverdueDiscoveries = KIV_COUNTER_OVERDUE_DISCOVERIES,
  TestRequests = KIV_COUNTER_TEST_REQUESTS,
  Connections = KIV_COUNTER_CONNECTIONS,
  Challenges = KIV_COUNTER_CHALLENGES,
  Changes = KIV_COUNTER_CHANGES,
  LostLogLines = KIV_COUNTER_LOST_LOG_LINES
};

/** What a program shares: settings, kept decisions, credentials. Most programs have one for each user. */
class Session {
 public:
  Session() noexcept = default;
  /** Works as the user that the calling thread impersonates now. `user_agent` is of the test requests. */
  explicit Session(std::wstring_view user_agent, SessionOptions options = {})
      : callables_(std::make_shared<session_detail::Callables>(options)) {
    KivSession* session = nullptr;
    session_detail::check(KivSession_Create(session_detail::Text(user_agent).c_str(), &session));
    handle_.reset(session);
    set(options);
    callables_->set_in(session);
  }
  /** Leaves `other` without a session. */
  Session(Session&&) noexcept = default;
  /** Closes the session that this was, as the destructor does, and takes the other. */
  Session& operator=(Session&& other) noexcept {
    handle_ = std::move(other.handle_);  // ends the former session first, which may still use its callables
    callables_ = std::move(other.callables_);
    return *this;
  }
  ~Session() = default;

  /** For functions of the C interface that this header lacks; still owned by the object. */
  KivSession* handle() const noexcept { return handle_.get(); }
  /** False if it was moved from. */
  explicit operator bool() const noexcept { return handle_ != nullptr; }
  /** The version of the DLL: major * 65536 + minor * 256 + patch. */
  static std::uint32_t version() noexcept { return KivSession_Version(); }

  /** Ends all work, as KivSession_Close does: every resolution ends with KIV_STATUS_CLOSED. The destructor does too. */
  void close() noexcept { KivSession_Close(handle()); }

  /** Sets the application's own candidate in front of the settings'. Only before the first resolution. */
  void set_preferred_proxy(std::wstring_view proxy) { set_proxy(KIV_PROXY_PREFERRED, proxy); }
  /** Likewise, with credentials for it. */
  void set_preferred_proxy(std::wstring_view proxy, std::wstring_view user, std::wstring_view password) {
    set_proxy(KIV_PROXY_PREFERRED, proxy, user, password);
  }
  /** Sets the application's own candidate behind the settings'. Only before the first resolution. */
  void set_fallback_proxy(std::wstring_view proxy) { set_proxy(KIV_PROXY_FALLBACK, proxy); }
  /** Likewise, with credentials for it. */
  void set_fallback_proxy(std::wstring_view proxy, std::wstring_view user, std::wstring_view password) {
    set_proxy(KIV_PROXY_FALLBACK, proxy, user, password);
  }
  /** Which log lines are made. Can be set at any time. */
  void set_log_level(SessionLogLevel level) { set(KIV_OPTION_LOG_LEVEL, static_cast<std::uint32_t>(level)); }

  /** The kept decision for a URL's origin. Never blocks: returns nothing if none is kept, and begins a resolution. */
  std::optional<Decision> lookup(std::wstring_view url) {
    KivDecision* decision = nullptr;
    const KivStatus status = KivSession_Lookup(handle(), session_detail::Text(url).c_str(), &decision);
    if (status == KIV_STATUS_NOT_YET) return std::nullopt;
    session_detail::check(status);
    return Decision(decision);
  }

  /** The kept decision for a URL's origin, or resolves it and waits. "There is no route" is a decision too. */
  Decision resolve(std::wstring_view url, std::chrono::milliseconds timeout = default_timeout) {
    KivDecision* decision = nullptr;
    session_detail::check(
        KivSession_Resolve(handle(), session_detail::Text(url).c_str(), session_detail::limit(timeout), &decision));
    return Decision(decision);
  }

  /** Starts a resolution and returns; a CompletedEvent with the tag tells its end. */
  PendingResolution start(std::wstring_view url, std::uint64_t tag,
                          std::chrono::milliseconds timeout = default_timeout) {
    return start(url, timeout, tag, nullptr);
  }
  /** Starts a resolution and returns; `done` is told its end, once, maybe before this has returned. */
  PendingResolution start(std::wstring_view url, DoneFunction done,
                          std::chrono::milliseconds timeout = default_timeout) {
    if (!done) throw std::invalid_argument("kiv: a resolution needs somebody to tell its end");
    auto completion = std::make_unique<session_detail::Completion>(std::move(done));
    PendingResolution request = start(url, timeout, completion->tag(), session_detail::Completion::done);
    static_cast<void>(completion.release());  // done() deletes it, maybe before now
    return request;
  }

#ifdef KIV_SESSION_HAS_FUTURES
  /**
   * Starts a resolution and returns. The future throws what resolve throws, and SessionError with KIV_STATUS_CANCELLED
   * if `token` was cancelled. Do not wait for it inside a callable of the session, which would wait for itself.
   */
  std::future<Decision> resolve_async(std::wstring_view url, std::chrono::milliseconds timeout = default_timeout,
                                      const CancelToken& token = {}) {
    auto promise = std::make_shared<std::promise<Decision>>();
    std::future<Decision> future = promise->get_future();
    const std::shared_ptr<session_detail::Cancellation> state = token.state_;
    const std::uint64_t number = state ? state->reserve() : 0;
    const auto done = [promise, state, number](KivStatus status, Decision decision) {
      if (state) state->ended(number);
      try {
        session_detail::check(status);
        promise->set_value(std::move(decision));
      } catch (...) {
        promise->set_exception(std::current_exception());
      }
    };
    try {
      PendingResolution request = start(url, done, timeout);
      if (state) state->started(number, std::move(request));
    } catch (...) {
      if (state) state->ended(number);
      throw;
    }
    return future;
  }
#endif

  /** Reports that a decision did not work. Ignored unless the kept decision for its origin names the same route. */
  void report_failure(const Decision& decision, DecisionFailure failure) {
    session_detail::check(KivSession_ReportFailure(handle(), decision.handle(), static_cast<std::uint32_t>(failure)));
  }
  /** Forgets kept decisions and dead proxies. Credentials stay. */
  void forget() noexcept { KivSession_Forget(handle()); }
  /** Forgets answers, refused credentials and declined questions. */
  void forget_credentials() noexcept { KivSession_ForgetCredentials(handle()); }
  /** What was counted since the session was created. */
  std::uint64_t counter(SessionCounter counter) const noexcept {
    return KivSession_GetCounter(handle(), static_cast<std::uint32_t>(counter));
  }

  /** Takes the next event from the queue, or waits for one; nothing if `timeout` passes first. Any threads may call it,
   * and each event goes to one of them. */
  std::optional<SessionEvent> next(std::chrono::milliseconds timeout = no_timeout) {
    KivEvent* handle = nullptr;
    const KivStatus status = KivSession_Next(this->handle(), session_detail::patience(timeout), &handle);
    const session_detail::Owned<KivEvent> event(handle);
    if (status == KIV_STATUS_NOT_YET) return std::nullopt;
    if (status != KIV_STATUS_CLOSED || !event) session_detail::check(status);
    return read(*event);
  }

  /** Begins the authentication of one connection to a decision's proxy. */
  ProxyAuth authenticate(const Decision& decision) {
    KivAuth* auth = nullptr;
    session_detail::check(KivAuth_Create(handle(), decision.handle(), &auth));
    return ProxyAuth(auth);
  }

 private:
  static SessionEvent read(const KivEvent& event) {
    switch (KivEvent_Kind(&event)) {
      case KIV_EVENT_COMPLETED:
        return CompletedEvent{KivEvent_Tag(&event), KivEvent_Status(&event), Decision(KivEvent_Decision(&event))};
      case KIV_EVENT_CHALLENGE:
        return ChallengeEvent{Challenge(KivEvent_Challenge(&event))};
      case KIV_EVENT_WITHDRAWN:
        return WithdrawnEvent{Challenge(KivEvent_Challenge(&event))};
      case KIV_EVENT_CHANGED:
        return ChangedEvent{};
      case KIV_EVENT_LOG:
        return LogEvent{static_cast<SessionLogLevel>(KivEvent_Status(&event)), KivEvent_Text(&event)};
      default:
        return ClosedEvent{};
    }
  }

  PendingResolution start(std::wstring_view url, std::chrono::milliseconds timeout, std::uint64_t tag,
                          KivDoneFunction done) {
    KivRequest* request = nullptr;
    session_detail::check(KivSession_Start(handle(), session_detail::Text(url).c_str(), session_detail::limit(timeout),
                                           tag, done, &request));
    return PendingResolution(request);
  }

  void set(std::uint32_t option, std::uint32_t value) {
    session_detail::check(KivSession_SetNumber(handle(), option, value));
  }
  template <class Value>
  void set(std::uint32_t option, const std::optional<Value>& value) {
    if (value) set(option, static_cast<std::uint32_t>(*value));
  }
  void set(std::uint32_t option, const SessionOptions::Milliseconds& value) {
    if (value) set(option, session_detail::option(*value));
  }
  void set(std::uint32_t option, const std::optional<std::wstring>& text) {
    if (text) session_detail::check(KivSession_SetText(handle(), option, session_detail::Text(*text).c_str()));
  }

  void set(const SessionOptions& options) {
    set(KIV_OPTION_TEST, options.test);
    set(KIV_OPTION_TIME_OUT, options.timeout);
    set(KIV_OPTION_DISCOVERY_TIME_OUT, options.discovery_timeout);
    set(KIV_OPTION_CONNECT_TIME_OUT, options.connect_timeout);
    set(KIV_OPTION_ANSWER_TIME_OUT, options.answer_timeout);
    set(KIV_OPTION_KEPT_TIME, options.kept_time);
    set(KIV_OPTION_PAST_TIME, options.past_time);
    set(KIV_OPTION_FAILURE_TIME, options.failure_time);
    set(KIV_OPTION_DEAD_TIME, options.dead_time);
    set(KIV_OPTION_ORIGINS, options.origins);
    set(KIV_OPTION_CANDIDATES, options.candidates);
    set(KIV_OPTION_DIRECT, options.direct);
    set(KIV_OPTION_LOGGED_ON_USER, options.logged_on_user);
    set(KIV_OPTION_SCHEMES, options.schemes);
    set(KIV_OPTION_LOG_LEVEL, options.log_level);
    set(KIV_OPTION_LEFT_OUT, options.left_out);
    set(KIV_OPTION_BYPASS_LIST, options.bypass_list);
  }

  void set_proxy(std::uint32_t which, std::wstring_view proxy) {
    const session_detail::Text text(proxy);
    session_detail::check(KivSession_SetProxy(handle(), which, text.c_str(), nullptr, nullptr));
  }
  void set_proxy(std::uint32_t which, std::wstring_view proxy, std::wstring_view user, std::wstring_view password) {
    const session_detail::Text text(proxy);
    const session_detail::Text name(user);
    const session_detail::Text secret(password);
    session_detail::check(KivSession_SetProxy(handle(), which, text.c_str(), name.c_str(), secret.c_str()));
  }

  // Outlive the session, which calls them until it is closed.
  std::shared_ptr<session_detail::Callables> callables_;
  session_detail::Owned<KivSession> handle_;
};

}  // namespace kiv

#endif
