/** @file
 * The interface of kiv.dll for C++17 and later: owners instead of handles, exceptions instead of null, callables
 * instead of callbacks. Header-only: it calls the C functions of kiv/kiv.h, and nothing of it is in the DLL.
 *
 * Conventions that hold for every type:
 *
 * - An object owns one handle. Copying copies the library's object; moving transfers the handle and allocates nothing.
 *   A type that the C interface cannot copy can only be moved.
 * - A default-constructed or moved-from object owns no handle. It can be used like any other and behaves like a null
 *   handle: a configuration and a credential are none, a logger drops every line, a client's requests fail, a text is
 *   empty.
 * - A constructor from a handle takes ownership of it; null is allowed. handle() returns the handle for a call of a C
 *   function, and the object keeps it. release() returns the handle and transfers ownership to the caller.
 * - A text argument need not be terminated, but must not contain a NUL character: std::invalid_argument. Copies made
 *   for the C interface are wiped. A returned view belongs to the object that returned it and is valid until that
 *   object is changed, moved from or destroyed. A NUL follows its characters. If there is no text at all, data() is
 *   null.
 * - A function that runs out of memory throws std::bad_alloc and leaves its object unchanged. The exception is memory
 *   for a log line: the process ends, as in the C interface.
 * - An exception from a callable does not pass through the DLL, which may have been built with another compiler. It is
 *   kept until the library returns, and is then rethrown to the caller of the library.
 */
#ifndef KIV_KIV_HPP
#define KIV_KIV_HPP

#include <cstddef>
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

#include "kiv/kiv.h"

namespace kiv {

namespace detail {

struct Destruct {
  void operator()(KivProxyConfig* handle) const noexcept { KivProxyConfig_Destruct(handle); }
  void operator()(KivCred* handle) const noexcept { KivCred_Destruct(handle); }
  void operator()(KivSecStr* handle) const noexcept { KivSecStr_Destruct(handle); }
  void operator()(KivHttpClient* handle) const noexcept { KivHttpClient_Destruct(handle); }
  void operator()(KivLog* handle) const noexcept { KivLog_Destruct(handle); }
  void operator()(KivLogger* handle) const noexcept { KivLogger_Destruct(handle); }
};

// With no null argument, a function that creates a handle returns null only when memory runs out.
template <class Handle>
Handle* made(Handle* handle) {
  if (!handle) throw std::bad_alloc();
  return handle;
}

inline KivCred* copied(const KivCred* source) { return made(KivCred_CopyConstruct(source)); }
inline KivLog* copied(const KivLog* source) { return made(KivLog_CopyConstruct(source)); }
inline KivLogger* copied(const KivLogger* source) { return made(KivLogger_CopyConstruct(source)); }

// KivProxyConfig_CopyConstruct can end the process when memory runs out. KivProxyConfig_Copy cannot: the target then
// stays none.
inline KivProxyConfig* copied(const KivProxyConfig* source) {
  std::unique_ptr<KivProxyConfig, Destruct> copy(made(KivProxyConfig_None()));
  KivProxyConfig_Copy(source, copy.get());
  if (KivProxyConfig_IsNone(copy.get()) != KivProxyConfig_IsNone(source)) throw std::bad_alloc();
  return copy.release();
}

/** Owns a handle, or none. */
template <class Handle>
class Owner {
 public:
  Owner() noexcept = default;
  /** Takes ownership of a handle; null is allowed. */
  explicit Owner(Handle* handle) noexcept : handle_(handle) {}

  /** The handle; this object keeps it. Null if there is none. */
  Handle* handle() noexcept { return handle_.get(); }
  /** The handle, for reading; this object keeps it. Null if there is none. */
  const Handle* handle() const noexcept { return handle_.get(); }

  /** Transfers the handle to the caller, who must destroy it. Null if there is none. */
  Handle* release() noexcept { return handle_.release(); }

 private:
  std::unique_ptr<Handle, Destruct> handle_;
};

/** Owns a handle that can be copied. */
template <class Handle>
class Value : public Owner<Handle> {
 public:
  using Owner<Handle>::Owner;
  Value() noexcept = default;
  /** Copies the library's object. */
  Value(const Value& other) : Owner<Handle>(other.handle() ? copied(other.handle()) : nullptr) {}
  /** Takes the handle of `other`, which has none afterwards. */
  Value(Value&&) noexcept = default;
  /** Copies; if memory runs out, this object is unchanged. */
  Value& operator=(const Value& other) {
    *this = Value(other);
    return *this;
  }
  /** Takes the other's handle and destroys the one that was here. */
  Value& operator=(Value&&) noexcept = default;
  ~Value() = default;
};

/** Shows a callable a handle that the library owns, as an object. */
template <class Object, class Handle>
class Borrowed {
 public:
  explicit Borrowed(const Handle* handle) noexcept : object_(const_cast<Handle*>(handle)) {}
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;
  ~Borrowed() { object_.release(); }
  const Object& operator*() const noexcept { return object_; }

 private:
  Object object_;
};

/** A terminated copy of a text. It may hold a password, so it is wiped when destroyed. */
class Text {
 public:
  explicit Text(std::wstring_view text) : text_(checked(text)) {}
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() {
    // A compiler may remove writes that nobody reads, but not those through a pointer to volatile.
    for (volatile wchar_t* at = text_.data(); at != text_.data() + text_.size(); ++at) *at = L'\0';
  }
  const wchar_t* c_str() const noexcept { return text_.c_str(); }

 private:
  static std::wstring_view checked(std::wstring_view text) {
    if (text.find(L'\0') == std::wstring_view::npos) return text;
    throw std::invalid_argument("kiv: a text contains a NUL character");
  }
  std::wstring text_;
};

inline std::wstring_view view(const wchar_t* text) noexcept {
  return text ? std::wstring_view(text) : std::wstring_view();
}

/** Keeps the exceptions of callables away from the C interface during one call of the library, and rethrows the first.
 *
 * After an exception no callable is called any more: each callback returns a harmless value instead. Calls of the
 * library can nest on a thread, and so do their relays.
 */
class ExceptionRelay {
 public:
  ExceptionRelay() noexcept : outer_(std::exchange(innermost(), this)) {}
  ExceptionRelay(const ExceptionRelay&) = delete;
  ExceptionRelay& operator=(const ExceptionRelay&) = delete;
  ~ExceptionRelay() { innermost() = outer_; }

  /** The relay of the innermost call on this thread; null outside of every call. */
  static ExceptionRelay*& innermost() noexcept {
    static thread_local ExceptionRelay* relay = nullptr;
    return relay;
  }

  /** Calls `body`, which may throw, from within a callback. */
  template <class Result, class Body>
  Result call(Result harmless, Body&& body) noexcept {
    if (thrown_) return harmless;
    try {
      return std::forward<Body>(body)();
    } catch (...) {
      thrown_ = std::current_exception();
      return harmless;
    }
  }

  template <class Body>
  void call(Body&& body) noexcept {
    call(0, [&] { return std::forward<Body>(body)(), 0; });
  }

  /** To be called after the library has returned. */
  void rethrow() {
    if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
  }

 private:
  ExceptionRelay* outer_;
  std::exception_ptr thrown_;
};

}  // namespace detail

/** A decrypted password. Its characters are overwritten with zeros when it is destroyed. */
class SecureString : public detail::Owner<KivSecStr> {
 public:
  using Owner::Owner;
  SecureString() noexcept = default;

  /** NUL-terminated; null if there is no password at all. */
  const wchar_t* c_str() const noexcept { return KivSecStr_CStr(handle()); }
  /** The characters; without data if there is no password at all. */
  std::wstring_view view() const noexcept { return detail::view(c_str()); }
  /** Whether there are no characters. */
  bool empty() const noexcept { return view().empty(); }
  /** The number of characters; 0 if there are none, after a move too. */
  std::size_t size() const noexcept { return view().size(); }
};

/** A user name and a password, or none. The password is kept encrypted; only this process can decrypt it. */
class Credential : public detail::Value<KivCred> {
 public:
  using Value::Value;
  /** None. */
  Credential() noexcept = default;
  /** Encrypts the password immediately. The credential is none if the system cannot encrypt it. */
  Credential(std::wstring_view username, std::wstring_view password)
      : Value(detail::made(KivCred_Create(detail::Text(username).c_str(), detail::Text(password).c_str()))) {}

  /** Whether there is no credential. */
  bool is_none() const noexcept { return KivCred_IsNone(handle()); }
  /** Empty for a none credential. */
  std::wstring_view username() const noexcept { return detail::view(KivCred_Username(handle())); }
  /** Decrypts the password; destroy the result as soon as it has been used. Empty for a none credential. */
  SecureString password() const { return SecureString(handle() ? detail::made(KivCred_Password(handle())) : nullptr); }
};

/** A proxy configuration: a direct connection, a proxy server, or none. */
class ProxyConfig : public detail::Value<KivProxyConfig> {
 public:
  using Value::Value;
  /** None. */
  ProxyConfig() noexcept = default;

  /** No configuration: neither a direct connection nor a proxy server. */
  static ProxyConfig none() { return ProxyConfig(detail::made(KivProxyConfig_None())); }
  /** The direct connection. */
  static ProxyConfig direct() { return ProxyConfig(detail::made(KivProxyConfig_Direct())); }

  /** An HTTP proxy server. The host is neither checked nor converted; a negative port means that none was given. */
  static ProxyConfig http(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Http, host, port, cred);
  }
  /** An HTTPS proxy server; otherwise like http(). */
  static ProxyConfig https(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Https, host, port, cred);
  }
  /** A SOCKS 4 proxy server; otherwise like http(). */
  static ProxyConfig socks4(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Socks4, host, port, cred);
  }
  /** A SOCKS 5 proxy server; otherwise like http(). */
  static ProxyConfig socks5(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Socks5, host, port, cred);
  }
  /** The kind that `scheme` names, as KivProxyConfig_Create reads it; none for an unknown scheme. */
  static ProxyConfig create(std::wstring_view scheme, std::wstring_view host, std::optional<int> port = {},
                            const Credential& cred = {}) {
    return ProxyConfig(detail::made(KivProxyConfig_Create(detail::Text(scheme).c_str(), detail::Text(host).c_str(),
                                                          port.value_or(-1), cred.handle())));
  }
  /** Parses [scheme://][user:password@]host[:port]; none for an invalid text. `cred` replaces its credentials. */
  static ProxyConfig parse(std::wstring_view text, const Credential& cred = {}) {
    return ProxyConfig(detail::made(KivProxyConfig_Parse(detail::Text(text).c_str(), cred.handle())));
  }

  /** Whether there is no configuration. */
  bool is_none() const noexcept { return KivProxyConfig_IsNone(handle()); }
  /** Whether it is the direct connection. */
  bool is_direct() const noexcept { return KivProxyConfig_IsDirect(handle()); }
  /** Whether it is an HTTP proxy server. */
  bool is_http() const noexcept { return KivProxyConfig_IsHttp(handle()); }
  /** Whether it is an HTTPS proxy server. */
  bool is_https() const noexcept { return KivProxyConfig_IsHttps(handle()); }
  /** Whether it is a SOCKS 4 proxy server. */
  bool is_socks4() const noexcept { return KivProxyConfig_IsSocks4(handle()); }
  /** Whether it is a SOCKS 5 proxy server. */
  bool is_socks5() const noexcept { return KivProxyConfig_IsSocks5(handle()); }
  /** Whether a proxy server is named. */
  bool is_valid() const noexcept { return KivProxyConfig_IsValid(handle()); }
  /** Whether a port was given, 0 included. */
  bool has_explicit_port() const noexcept { return KivProxyConfig_HasExplicitPort(handle()); }
  /** Whether there are credentials for the proxy server. */
  bool has_cred() const noexcept { return KivProxyConfig_HasCred(handle()); }

  /** "http", "https", "socks4", "socks5" or "direct"; empty for none. The text is static. */
  std::wstring_view scheme() const noexcept { return detail::view(KivProxyConfig_Scheme(handle())); }
  /** The proxy server, as given; empty for none and direct. */
  std::wstring_view host() const noexcept { return detail::view(KivProxyConfig_Host(handle())); }
  /** The port that was given. */
  std::optional<int> port() const noexcept { return given(KivProxyConfig_Port(handle(), 0)); }
  /** The port that was given, or else the scheme's; nothing for none and direct. */
  std::optional<int> port_or_default() const noexcept { return given(KivProxyConfig_Port(handle(), 1)); }
  /** A copy of the proxy's credentials, which may be none. */
  Credential cred() const { return Credential(handle() ? detail::made(KivProxyConfig_Cred(handle())) : nullptr); }

  /** "scheme://host:port", or "host:port" without the scheme; never with credentials. Empty for none and direct. */
  std::wstring to_string(bool with_scheme = true) const {
    std::wstring text;
    show(with_scheme, false, [&](std::wstring_view shown) { text = shown; });
    return text;
  }
  /** What to show a user: to_string(), or "DIRECT", as a PAC script says it, or "NONE". */
  std::wstring display_string() const {
    if (is_none()) return L"NONE";
    return is_direct() ? L"DIRECT" : to_string();
  }
  /** Passes `sink` the text with user name and password in clear text. It is wiped when `sink` returns. */
  void show_with_cred(const std::function<void(std::wstring_view)>& sink, bool with_scheme = true) const {
    show(with_scheme, true, sink);
  }

 private:
  template <class Create>
  static ProxyConfig server(Create create, std::wstring_view host, std::optional<int> port, const Credential& cred) {
    return ProxyConfig(detail::made(create(detail::Text(host).c_str(), port.value_or(-1), cred.handle())));
  }

  static std::optional<int> given(int port) noexcept { return port < 0 ? std::nullopt : std::optional<int>(port); }

  template <class Sink>
  void show(bool with_scheme, bool with_cred, const Sink& sink) const {
    if (!handle()) return sink(std::wstring_view());
    struct Visit {
      const Sink& sink;
      detail::ExceptionRelay relay;
      bool happened;
    } visit{sink, {}, false};
    KivProxyConfig_ToString(handle(), with_scheme, with_cred, &visit, [](void* context, const wchar_t* text) {
      Visit& self = *static_cast<Visit*>(context);
      self.happened = true;
      self.relay.call([&] { self.sink(detail::view(text)); });
    });
    visit.relay.rethrow();
    if (!visit.happened) throw std::bad_alloc();
  }
};

/** How important a log line is, the most important first. */
enum class LogLevel { Error, Warn, Info, Debug };

/** One line of the log. */
class LogRecord : public detail::Value<KivLog> {
 public:
  using Value::Value;
  LogRecord() noexcept = default;

  /** A line of level Error. */
  static LogRecord error(std::wstring_view message) { return record(KivLog_CreateError, message); }
  /** A line of level Warn. */
  static LogRecord warn(std::wstring_view message) { return record(KivLog_CreateWarn, message); }
  /** A line of level Info. */
  static LogRecord info(std::wstring_view message) { return record(KivLog_CreateInfo, message); }
  /** A line of level Debug. */
  static LogRecord debug(std::wstring_view message) { return record(KivLog_CreateDebug, message); }

  /** Whether the level is Error. */
  bool is_error() const noexcept { return KivLog_IsError(handle()); }
  /** Whether the level is Warn. */
  bool is_warn() const noexcept { return KivLog_IsWarn(handle()); }
  /** Whether the level is Info. */
  bool is_info() const noexcept { return KivLog_IsInfo(handle()); }
  /** Whether the level is Debug. */
  bool is_debug() const noexcept { return KivLog_IsDebug(handle()); }
  /** The level; Debug without a handle. */
  LogLevel level() const noexcept {
    if (is_error()) return LogLevel::Error;
    if (is_warn()) return LogLevel::Warn;
    return is_info() ? LogLevel::Info : LogLevel::Debug;
  }
  /** The text. */
  std::wstring_view message() const noexcept { return detail::view(KivLog_Message(handle())); }

 private:
  template <class Create>
  static LogRecord record(Create create, std::wstring_view message) {
    return LogRecord(detail::made(create(detail::Text(message).c_str())));
  }
};

/**
 * Passes log lines to a callable, on the thread that logs. Copies share the callable. A handle that is released from a
 * logger with a callable, or copied with C functions, may log only while that logger or a copy of it lives.
 */
class Logger : public detail::Value<KivLogger> {
 public:
  /** Receives one record, which is valid during the call; copy it to keep it. */
  using Sink = std::function<void(const LogRecord&)>;

  /** Drops every line. */
  Logger() noexcept = default;
  /** Takes ownership of a handle. The callback that it was created with receives the lines. */
  explicit Logger(KivLogger* handle) noexcept : Value(handle) {}
  /** Logs to anything that can be called with a record. An empty std::function drops every line. */
  template <class Callable, class = std::enable_if_t<!std::is_base_of_v<Logger, std::decay_t<Callable>> &&
                                                     std::is_invocable_v<Callable&, const LogRecord&>>>
  Logger(Callable&& sink) : Logger(std::make_shared<Sink>(std::forward<Callable>(sink))) {}

  /** Whether lines go anywhere. */
  explicit operator bool() const noexcept { return handle() != nullptr; }

  /** Logs one line at level Error. Rethrows what the callable throws. */
  void error(std::wstring_view message) const { log(KivLogger_Error, message); }
  /** Likewise at level Warn. */
  void warn(std::wstring_view message) const { log(KivLogger_Warn, message); }
  /** Likewise at level Info. */
  void info(std::wstring_view message) const { log(KivLogger_Info, message); }
  /** Likewise at level Debug. */
  void debug(std::wstring_view message) const { log(KivLogger_Debug, message); }

 private:
  explicit Logger(std::shared_ptr<Sink> sink)
      : Value(*sink ? detail::made(KivLogger_Construct(sink.get(), receive)) : nullptr), sink_(std::move(sink)) {}

  // If the application logs with the C functions, there is no relay. The exception then passes through the library, as
  // kiv/log.h describes.
  static void receive(void* context, const KivLog* log) {
    const auto deliver = [&] {
      const detail::Borrowed<LogRecord, KivLog> record(log);
      (*static_cast<const Sink*>(context))(*record);
    };
    if (detail::ExceptionRelay* const relay = detail::ExceptionRelay::innermost()) return relay->call(deliver);
    deliver();
  }

  template <class Function>
  void log(Function function, std::wstring_view message) const {
    if (!handle()) return;
    const detail::Text text(message);
    detail::ExceptionRelay relay;
    function(handle(), text.c_str());
    relay.rethrow();
  }

  std::shared_ptr<Sink> sink_;
};

/** Tests with real requests whether a URL can be reached through a proxy configuration. */
class HttpClient : public detail::Owner<KivHttpClient> {
 public:
  using Owner::Owner;
  HttpClient() noexcept = default;
  /** If `url` is not an http or https URL, the client's requests fail. */
  HttpClient(std::wstring_view url, std::wstring_view user_agent, bool ignore_cert_errors = false)
      : Owner(detail::made(
            KivHttpClient_Create(detail::Text(url).c_str(), detail::Text(user_agent).c_str(), ignore_cert_errors))) {}

  /** Sets the credentials for the server; a none credential removes them. */
  void set_server_cred(Credential cred) {
    if (!cred.handle()) cred = Credential(detail::made(KivCred_None()));
    KivHttpClient_SetServerCred(handle(), cred.handle());
  }
  /** Copies the configuration; none and direct mean no proxy. If memory runs out inside, the client is unchanged. */
  void set_proxy(const ProxyConfig& proxy) {
    if (!proxy.handle()) return set_proxy(ProxyConfig::none());
    KivHttpClient_SetProxy(handle(), proxy.handle());
  }

  /** Sends a HEAD request and returns the HTTP status, or -1 if it failed. Rethrows what the logger's callable throws.
   */
  int head(const Logger& logger = {}) { return send(KivHttpClient_Head, logger); }
  /** Sends a GET request and does not read the response's body; otherwise like head(). */
  int get(const Logger& logger = {}) { return send(KivHttpClient_Get, logger); }

 private:
  template <class Function>
  int send(Function function, const Logger& logger) {
    detail::ExceptionRelay relay;
    const int status = function(handle(), logger.handle());
    relay.rethrow();
    return status;
  }
};

/** Asks the user for a server's credentials with the system's prompt. Can be assigned to Request::server_cred. */
struct ServerAuthDialog {
  std::wstring detail;    /**< shown in brackets after the caption, unless empty */
  void* parent = nullptr; /**< the window (HWND) that owns the prompt: one that is shown, or null */

  /** Blocks until the prompt is closed. None if the user cancelled. */
  Credential operator()(std::wstring_view target) const {
    return Credential(kiv::detail::made(
        KivDialogAuthUi_ServerAuthUi(kiv::detail::Text(target).c_str(), kiv::detail::Text(detail).c_str(), parent)));
  }
};

/** Asks the user for a proxy's credentials with the system's prompt. Can be assigned to Request::proxy_cred. */
struct ProxyAuthDialog {
  std::wstring detail;    /**< as in ServerAuthDialog */
  void* parent = nullptr; /**< as in ServerAuthDialog */

  /** Blocks until the prompt is closed. None if the user cancelled. */
  Credential operator()(std::wstring_view target) const {
    return Credential(kiv::detail::made(
        KivDialogAuthUi_ProxyAuthUi(kiv::detail::Text(target).c_str(), kiv::detail::Text(detail).c_str(), parent)));
  }
  /** Likewise; shows the proxy without its credentials. */
  Credential operator()(const ProxyConfig& proxy) const { return (*this)(proxy.display_string()); }
};

/** The input of a resolution. The callables are called on the thread that calls kiv::resolve, before it returns. */
struct Request {
  std::wstring url;                        /**< to be reached */
  std::wstring user_agent;                 /**< used while the system's settings are read, and by resolve_with_client */
  std::optional<std::wstring> bypass_list; /**< replaces the system's bypass list; an empty text means no list */
  ProxyConfig preferred;                   /**< the first candidate, unless none */
  ProxyConfig fallback;                    /**< the last candidate, unless none */

  /** Returns whether a candidate is tested. If empty, all are. */
  std::function<bool(const ProxyConfig& candidate)> filter;
  /** Returns credentials after the server has answered 401. If empty, there are none. */
  std::function<Credential(std::wstring_view url)> server_cred;
  /** Returns credentials after the proxy has answered 407. If empty, there are none. */
  std::function<Credential(const ProxyConfig& proxy)> proxy_cred;

  /** Makes the client send a request. Returns the HTTP status, 401 and 407 included, or a negative number if it failed.
   * resolve requires this and the next two; resolve_with_client replaces them. */
  std::function<int()> test;
  /** Sets the client's credentials for the server; none removes them. */
  std::function<void(Credential cred)> set_server_cred;
  /** Sets the client's proxy, with its credentials; direct means no proxy. */
  std::function<void(const ProxyConfig& proxy)> set_proxy;

  /** Receives a line for every step. Anything that can be called with a const LogRecord& can be assigned. */
  Logger logger;
};

/** Thrown if the library returns no result although no callable threw. */
class ResolutionError : public std::runtime_error {
 public:
  ResolutionError() : std::runtime_error("kiv: memory ran out, or a port in the URL or the bypass list is too large") {}
};

namespace detail {

/** One call of KivProxyResolver_Resolve: its callbacks and their context. */
class Resolution {
 public:
  explicit Resolution(const Request& request) : request_(request), logger_(request.logger ? request.logger : silent()) {
    if (!request.test || !request.set_server_cred || !request.set_proxy) {
      throw std::invalid_argument("kiv: a request needs test, set_server_cred and set_proxy");
    }
  }

  ProxyConfig run() {
    const Text url(request_.url);
    const Text user_agent(request_.user_agent);
    const Text bypass_list(request_.bypass_list.value_or(std::wstring()));
    ExceptionRelay relay;
    relay_ = &relay;
    ProxyConfig found(
        KivProxyResolver_Resolve(url.c_str(), user_agent.c_str(), request_.bypass_list ? bypass_list.c_str() : nullptr,
                                 only_read(request_.preferred), only_read(request_.fallback), this, filter, this,
                                 server_cred, this, proxy_cred, this, test, set_server_cred, set_proxy, this, logger));
    relay.rethrow();
    if (!found.handle()) throw ResolutionError();
    return found;
  }

 private:
  using BorrowedConfig = Borrowed<ProxyConfig, KivProxyConfig>;

  static Resolution& of(const void* context) noexcept { return *static_cast<Resolution*>(const_cast<void*>(context)); }
  static KivProxyConfig* only_read(const ProxyConfig& config) noexcept {
    return const_cast<KivProxyConfig*>(config.handle());
  }

  // The library requires a logger.
  static Logger silent() {
    return Logger(made(KivLogger_Construct(nullptr, [](void*, const KivLog*) {})));
  }

  // A credentials callback must not return null. One spare is enough: after an exception every test fails, so that no
  // further credentials are asked for.
  template <class Source>
  KivCred* credential_of(const Source& source) noexcept {
    KivCred* const cred = relay_->call<KivCred*>(nullptr, [&] {
      Credential given = source();
      return given.handle() ? given.release() : made(KivCred_None());
    });
    return cred ? cred : spare_.release();
  }

  static int filter(const void* context, KivProxyConfig* candidate) {
    Resolution& self = of(context);
    return self.relay_->call(
        0, [&] { return !self.request_.filter || self.request_.filter(*BorrowedConfig(candidate)) ? 1 : 0; });
  }
  static KivCred* server_cred(const void* context, const wchar_t* url) {
    const auto& source = of(context).request_.server_cred;
    return of(context).credential_of([&] { return source ? source(url) : Credential(); });
  }
  static KivCred* proxy_cred(const void* context, KivProxyConfig* proxy) {
    const auto& source = of(context).request_.proxy_cred;
    return of(context).credential_of([&] { return source ? source(*BorrowedConfig(proxy)) : Credential(); });
  }
  static int test(const void* context, const void*) {
    Resolution& self = of(context);
    return self.relay_->call(-1, [&] { return self.request_.test(); });
  }
  // Null means that memory ran out for the handle.
  static void set_server_cred(void* context, KivCred* cred) {
    Credential owned(cred);
    Resolution& self = of(context);
    self.relay_->call([&] {
      made(owned.handle());
      self.request_.set_server_cred(std::move(owned));
    });
  }
  static void set_proxy(void* context, KivProxyConfig* proxy) {
    Resolution& self = of(context);
    self.relay_->call([&] { self.request_.set_proxy(*BorrowedConfig(proxy)); });
  }
  static KivLogger* logger(const void* context) { return of(context).logger_.handle(); }

  const Request& request_;
  Logger logger_;
  Credential spare_{made(KivCred_None())};
  ExceptionRelay* relay_ = nullptr;
};

}  // namespace detail

/**
 * Finds the first proxy configuration that reaches a URL, as KivProxyResolver_Resolve does, with the request's client.
 *
 * The first exception of a callable, the logger's included, ends the resolution: no callable is called any more, the
 * remaining candidates fail without a request, and the exception is rethrown.
 * @return the first candidate that worked, with the proxy credentials that it needed; direct if the target is bypassed
 *         or there was no candidate; none if no candidate worked or the filter kept none.
 * @throws std::invalid_argument if `test`, `set_server_cred` or `set_proxy` is empty, ResolutionError if the library
 *         returns no result, and whatever a callable throws.
 */
inline ProxyConfig resolve(const Request& request) { return detail::Resolution(request).run(); }

/** The method of a test request. */
enum class Method { Head, Get };

/** How resolve_with_client creates and uses its client. */
struct ClientOptions {
  bool ignore_cert_errors = false; /**< accepts https certificates with a wrong authority, usage, name or date */
  Method method = Method::Head;    /**< of every test request */
};

/**
 * Resolves with the caller's client. Afterwards the client has the proxy and the credentials of the last candidate that
 * was tested, which is the one that worked, if one did.
 * @param client  created for the request's URL.
 * @param request its `test`, `set_server_cred` and `set_proxy` are replaced by the client's functions.
 * @param method  of every test request.
 * @throws as resolve does.
 */
inline ProxyConfig resolve_with_client(HttpClient& client, Request request, Method method = Method::Head) {
  request.test = [&] { return method == Method::Get ? client.get(request.logger) : client.head(request.logger); };
  request.set_server_cred = [&](Credential cred) { client.set_server_cred(std::move(cred)); };
  request.set_proxy = [&](const ProxyConfig& proxy) { client.set_proxy(proxy); };
  return resolve(request);
}

/** Resolves with a temporary client for the request's URL and user agent. */
inline ProxyConfig resolve_with_client(Request request, const ClientOptions& options = {}) {
  HttpClient client(request.url, request.user_agent, options.ignore_cert_errors);
  return resolve_with_client(client, std::move(request), options.method);
}

}  // namespace kiv

#endif
