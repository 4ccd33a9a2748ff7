/** @file
 * The interface of kiv.dll for C++17 and later: owners in place of handles, exceptions in place of null, callables in
 * place of callbacks. Nothing here is compiled into the DLL; all of it stands on the C functions of kiv/kiv.h.
 *
 * Conventions that hold for every type:
 *
 * - An object owns one handle. Copying copies what is behind it; moving passes the handle on and allocates nothing. A
 *   type that the C interface cannot copy can only be moved.
 * - An object that was constructed without arguments, or moved from, owns no handle. It may be used like any other and
 *   behaves as a null handle does: a configuration and a credential are none, a logger drops every line, a client's
 *   requests fail, a text is empty.
 * - A constructor from a handle takes it over, null included. handle() lends it to a C function, and release() gives it
 *   away.
 * - Text that goes in need not be terminated, but must not contain a NUL character: std::invalid_argument. The copies
 *   that are made on the way to the C interface are wiped. A view that comes out belongs to the object that it was
 *   asked of and is valid until that is changed, moved from or destroyed; its characters are followed by a NUL, and a
 *   view of no text at all has null for its data().
 * - Whatever can run out of memory throws std::bad_alloc and leaves its object as it was. Where the C interface says
 *   that the process ends, it ends here too: when memory runs out for a line of the log.
 * - What a callable throws does not pass through the DLL, which another compiler may have built. It is kept until the
 *   library returns and is then thrown where the library was called.
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

// Given nothing that is null, a function that makes handles gives null only when memory runs out.
template <class Handle>
Handle* made(Handle* handle) {
  if (!handle) throw std::bad_alloc();
  return handle;
}

inline KivCred* copied(const KivCred* source) { return made(KivCred_CopyConstruct(source)); }
inline KivLog* copied(const KivLog* source) { return made(KivLog_CopyConstruct(source)); }
inline KivLogger* copied(const KivLogger* source) { return made(KivLogger_CopyConstruct(source)); }

// KivProxyConfig_CopyConstruct may end the process. A copy onto a configuration never does; if memory runs out, that
// one stays none.
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
  /** Takes over a handle; null is allowed. */
  explicit Owner(Handle* handle) noexcept : handle_(handle) {}

  /** The handle, which stays this object's; null if there is none. */
  Handle* handle() noexcept { return handle_.get(); }
  /** The handle, to be read only; null if there is none. */
  const Handle* handle() const noexcept { return handle_.get(); }

  /** Gives the handle away: the caller releases it. Null if there is none. */
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
  /** Copies what is behind the handle. */
  Value(const Value& other) : Owner<Handle>(other.handle() ? copied(other.handle()) : nullptr) {}
  /** Takes the handle; `other` has none afterwards. */
  Value(Value&&) noexcept = default;
  /** Copies; if memory runs out, this object stays as it was. */
  Value& operator=(const Value& other) {
    *this = Value(other);
    return *this;
  }
  /** Takes the handle and releases the one that was here. */
  Value& operator=(Value&&) noexcept = default;
  ~Value() = default;
};

/** Lends a handle that belongs to the library to a callable, as an object. */
template <class Object, class Handle>
class Lent {
 public:
  explicit Lent(const Handle* handle) noexcept : object_(const_cast<Handle*>(handle)) {}
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;
  ~Lent() { object_.release(); }
  const Object& operator*() const noexcept { return object_; }

 private:
  Object object_;
};

/** A terminated copy of a text, wiped when it goes: it may hold a password. */
class Text {
 public:
  explicit Text(std::wstring_view text) : text_(checked(text)) {}
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() {
    // Through a volatile pointer, or the compiler leaves out what nobody reads afterwards.
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

/** The passage from the library back into its host, for the time of one call into the library.
 *
 * The first exception of a callable is kept; from then on no callable is called, and each callback does what harms
 * nothing. Borders nest on a thread as the calls do.
 */
class Border {
 public:
  Border() noexcept : outer_(std::exchange(innermost(), this)) {}
  Border(const Border&) = delete;
  Border& operator=(const Border&) = delete;
  ~Border() { innermost() = outer_; }

  /** Of this thread; null outside every call. */
  static Border*& innermost() noexcept {
    static thread_local Border* border = nullptr;
    return border;
  }

  template <class Result, class Body>
  Result cross(Result harmless, Body&& body) noexcept {
    if (thrown_) return harmless;
    try {
      return std::forward<Body>(body)();
    } catch (...) {
      thrown_ = std::current_exception();
      return harmless;
    }
  }

  template <class Body>
  void cross(Body&& body) noexcept {
    cross(0, [&] { return std::forward<Body>(body)(), 0; });
  }

  /** To be called when the library has returned. */
  void rethrow() {
    if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
  }

 private:
  Border* outer_;
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

/** A user name and a password, or none. The password is kept encrypted, for this process only. */
class Credential : public detail::Value<KivCred> {
 public:
  using Value::Value;
  /** None. */
  Credential() noexcept = default;
  /** The password is encrypted at once; the credential is none if the system cannot do that. */
  Credential(std::wstring_view username, std::wstring_view password)
      : Value(detail::made(KivCred_Create(detail::Text(username).c_str(), detail::Text(password).c_str()))) {}

  /** Whether there is no credential. */
  bool is_none() const noexcept { return KivCred_IsNone(handle()); }
  /** Empty for a none credential. */
  std::wstring_view username() const noexcept { return detail::view(KivCred_Username(handle())); }
  /** Decrypts the password, to be kept no longer than it is used. Empty for a none credential. */
  SecureString password() const { return SecureString(handle() ? detail::made(KivCred_Password(handle())) : nullptr); }
};

/** How one connection is made: directly, through a proxy server, or not at all (none). */
class ProxyConfig : public detail::Value<KivProxyConfig> {
 public:
  using Value::Value;
  /** None. */
  ProxyConfig() noexcept = default;

  /** No way at all. */
  static ProxyConfig none() { return ProxyConfig(detail::made(KivProxyConfig_None())); }
  /** The direct connection. */
  static ProxyConfig direct() { return ProxyConfig(detail::made(KivProxyConfig_Direct())); }

  /** An HTTP proxy server. A host is neither checked nor converted; a negative port counts as none. */
  static ProxyConfig http(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Http, host, port, cred);
  }
  /** An HTTPS proxy server; otherwise as http(). */
  static ProxyConfig https(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Https, host, port, cred);
  }
  /** A SOCKS 4 proxy server; otherwise as http(). */
  static ProxyConfig socks4(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Socks4, host, port, cred);
  }
  /** A SOCKS 5 proxy server; otherwise as http(). */
  static ProxyConfig socks5(std::wstring_view host, std::optional<int> port = {}, const Credential& cred = {}) {
    return server(KivProxyConfig_Socks5, host, port, cred);
  }
  /** Of the kind that a scheme word names, as KivProxyConfig_Create reads it; none for an unknown word. */
  static ProxyConfig create(std::wstring_view scheme, std::wstring_view host, std::optional<int> port = {},
                            const Credential& cred = {}) {
    return ProxyConfig(detail::made(KivProxyConfig_Create(detail::Text(scheme).c_str(), detail::Text(host).c_str(),
                                                          port.value_or(-1), cred.handle())));
  }
  /** Reads [scheme://][user:password@]host[:port]; none for a text that cannot be read. `cred` replaces the text's. */
  static ProxyConfig parse(std::wstring_view text, const Credential& cred = {}) {
    return ProxyConfig(detail::made(KivProxyConfig_Parse(detail::Text(text).c_str(), cred.handle())));
  }

  /** Whether there is no way at all. */
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

  /** "scheme://host:port", or without the scheme, and always without credentials. Empty for none and direct. */
  std::wstring to_string(bool with_scheme = true) const {
    std::wstring text;
    show(with_scheme, false, [&](std::wstring_view shown) { text = shown; });
    return text;
  }
  /** Shows `sink` the text with user name and password in clear. The text is wiped when `sink` returns. */
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
      detail::Border border;
      bool happened;
    } visit{sink, {}, false};
    KivProxyConfig_ToString(handle(), with_scheme, with_cred, &visit, [](void* context, const wchar_t* text) {
      Visit& self = *static_cast<Visit*>(context);
      self.happened = true;
      self.border.cross([&] { self.sink(detail::view(text)); });
    });
    visit.border.rethrow();
    if (!visit.happened) throw std::bad_alloc();
  }
};

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
  /** The text. */
  std::wstring_view message() const noexcept { return detail::view(KivLog_Message(handle())); }

 private:
  template <class Create>
  static LogRecord record(Create create, std::wstring_view message) {
    return LogRecord(detail::made(create(detail::Text(message).c_str())));
  }
};

/** Hands lines to a callable, on the thread that logs. Copies share the callable. */
class Logger : public detail::Value<KivLogger> {
 public:
  /** Receives one record, which is lent for the call; copy it to keep it. */
  using Sink = std::function<void(const LogRecord&)>;

  /** Drops every line. */
  Logger() noexcept = default;
  /** Takes over a handle. The callback of its maker is what receives the lines. */
  explicit Logger(KivLogger* handle) noexcept : Value(handle) {}
  /** Logs to whatever can be called with a record. An empty std::function drops every line. */
  template <class Callable, class = std::enable_if_t<!std::is_base_of_v<Logger, std::decay_t<Callable>> &&
                                                     std::is_invocable_v<Callable&, const LogRecord&>>>
  Logger(Callable&& sink) : Logger(std::make_shared<Sink>(std::forward<Callable>(sink))) {}

  /** Whether lines go anywhere. */
  explicit operator bool() const noexcept { return handle() != nullptr; }

  /** Logs one line at level Error, and throws what the callable throws. */
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

  // Used with C functions alone, outside every border, a logger does as kiv/log.h says: what is thrown passes through.
  static void receive(void* context, const KivLog* log) {
    const auto deliver = [&] {
      const detail::Lent<LogRecord, KivLog> record(log);
      (*static_cast<const Sink*>(context))(*record);
    };
    if (detail::Border* const border = detail::Border::innermost()) return border->cross(deliver);
    deliver();
  }

  template <class Function>
  void log(Function function, std::wstring_view message) const {
    if (!handle()) return;
    const detail::Text text(message);
    detail::Border border;
    function(handle(), text.c_str());
    border.rethrow();
  }

  std::shared_ptr<Sink> sink_;
};

/** Proves with real requests whether one URL can be reached through one proxy configuration. */
class HttpClient : public detail::Owner<KivHttpClient> {
 public:
  using Owner::Owner;
  HttpClient() noexcept = default;
  /** A URL that is not an http or https URL gives a client whose requests fail. */
  HttpClient(std::wstring_view url, std::wstring_view user_agent, bool ignore_cert_errors = false)
      : Owner(detail::made(
            KivHttpClient_Create(detail::Text(url).c_str(), detail::Text(user_agent).c_str(), ignore_cert_errors))) {}

  /** A none credential takes the client's away. */
  void set_server_cred(Credential cred) {
    if (!cred.handle()) cred = Credential(detail::made(KivCred_None()));
    KivHttpClient_SetServerCred(handle(), cred.handle());
  }
  /** Copies the configuration; none and direct mean no proxy. If memory runs out inside, the client stays as it was. */
  void set_proxy(const ProxyConfig& proxy) {
    if (!proxy.handle()) return set_proxy(ProxyConfig::none());
    KivHttpClient_SetProxy(handle(), proxy.handle());
  }

  /** Sends a HEAD request: the HTTP status, or -1 if it failed. Throws what the logger's callable throws. */
  int head(const Logger& logger = {}) { return send(KivHttpClient_Head, logger); }
  /** Sends a GET request, without reading the body of its answer; otherwise as head(). */
  int get(const Logger& logger = {}) { return send(KivHttpClient_Get, logger); }

 private:
  template <class Function>
  int send(Function function, const Logger& logger) {
    detail::Border border;
    const int status = function(handle(), logger.handle());
    border.rethrow();
    return status;
  }
};

/** Asks the user for a server's credentials with the system's prompt; a source for Request::server_cred. */
struct ServerAuthDialog {
  std::wstring detail;    /**< shown in brackets behind the caption, unless empty */
  void* parent = nullptr; /**< the window (HWND) that the prompt belongs to */

  /** Blocks until the prompt is closed. None if the user cancelled. */
  Credential operator()(std::wstring_view target) const {
    return Credential(kiv::detail::made(
        KivDialogAuthUi_ServerAuthUi(kiv::detail::Text(target).c_str(), kiv::detail::Text(detail).c_str(), parent)));
  }
};

/** Asks the user for a proxy's credentials with the system's prompt; a source for Request::proxy_cred. */
struct ProxyAuthDialog {
  std::wstring detail;    /**< as in ServerAuthDialog */
  void* parent = nullptr; /**< as in ServerAuthDialog */

  /** Blocks until the prompt is closed. None if the user cancelled. */
  Credential operator()(std::wstring_view target) const {
    return Credential(kiv::detail::made(
        KivDialogAuthUi_ProxyAuthUi(kiv::detail::Text(target).c_str(), kiv::detail::Text(detail).c_str(), parent)));
  }
  /** Likewise, and shows the proxy without its credentials. */
  Credential operator()(const ProxyConfig& proxy) const { return (*this)(proxy.to_string()); }
};

/** What a resolution is asked. The callables are called on the thread of kiv::resolve, before it returns. */
struct Request {
  std::wstring url;                        /**< to be reached */
  std::wstring user_agent;                 /**< used while the system's settings are read, and by resolve_with_client */
  std::optional<std::wstring> bypass_list; /**< in place of the system's; an empty text switches that off */
  ProxyConfig preferred;                   /**< tried first, unless none */
  ProxyConfig fallback;                    /**< tried last, unless none */

  /** Whether a candidate is tried. If empty, all are. */
  std::function<bool(const ProxyConfig& candidate)> filter;
  /** Gives credentials when the server answered 401. If empty, none. */
  std::function<Credential(std::wstring_view url)> server_cred;
  /** Gives credentials when the proxy answered 407. If empty, none. */
  std::function<Credential(const ProxyConfig& proxy)> proxy_cred;

  /** The client sends a request: the HTTP status, 401 and 407 included, or a negative number if it failed. This one and
   * the next two are needed by resolve, and replaced by resolve_with_client. */
  std::function<int()> test;
  /** Installs credentials for the server in the client; none takes them away. */
  std::function<void(Credential cred)> set_server_cred;
  /** Installs a proxy, with its credentials, in the client; direct means no proxy. */
  std::function<void(const ProxyConfig& proxy)> set_proxy;

  /** Receives every step. Anything that can be called with a const LogRecord& can be assigned. */
  Logger logger;
};

/** A resolution that did not come to an end, though no callable threw. */
class ResolutionError : public std::runtime_error {
 public:
  ResolutionError() : std::runtime_error("kiv: memory ran out, or a port in the URL or the bypass list is too large") {}
};

namespace detail {

/** One call of KivProxyResolver_Resolve: what its callbacks are given, and the callbacks. */
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
    Border border;
    border_ = &border;
    ProxyConfig found(
        KivProxyResolver_Resolve(url.c_str(), user_agent.c_str(), request_.bypass_list ? bypass_list.c_str() : nullptr,
                                 only_read(request_.preferred), only_read(request_.fallback), this, filter, this,
                                 server_cred, this, proxy_cred, this, test, set_server_cred, set_proxy, this, logger));
    border.rethrow();
    if (!found.handle()) throw ResolutionError();
    return found;
  }

 private:
  using LentConfig = Lent<ProxyConfig, KivProxyConfig>;

  static Resolution& of(const void* context) noexcept { return *static_cast<Resolution*>(const_cast<void*>(context)); }
  static KivProxyConfig* only_read(const ProxyConfig& config) noexcept {
    return const_cast<KivProxyConfig*>(config.handle());
  }

  // The library takes a logger for granted.
  static Logger silent() {
    return Logger(made(KivLogger_Construct(nullptr, [](void*, const KivLog*) {})));
  }

  // What comes from a source of credentials must not be null. One spare is enough: once something was thrown, no test
  // gives a status that leads to another source.
  template <class Source>
  KivCred* credential_of(const Source& source) noexcept {
    KivCred* const cred = border_->cross<KivCred*>(nullptr, [&] {
      Credential given = source();
      return given.handle() ? given.release() : made(KivCred_None());
    });
    return cred ? cred : spare_.release();
  }

  static int filter(const void* context, KivProxyConfig* candidate) {
    Resolution& self = of(context);
    return self.border_->cross(
        0, [&] { return !self.request_.filter || self.request_.filter(*LentConfig(candidate)) ? 1 : 0; });
  }
  static KivCred* server_cred(const void* context, const wchar_t* url) {
    const auto& source = of(context).request_.server_cred;
    return of(context).credential_of([&] { return source ? source(url) : Credential(); });
  }
  static KivCred* proxy_cred(const void* context, KivProxyConfig* proxy) {
    const auto& source = of(context).request_.proxy_cred;
    return of(context).credential_of([&] { return source ? source(*LentConfig(proxy)) : Credential(); });
  }
  static int test(const void* context, const void*) {
    Resolution& self = of(context);
    return self.border_->cross(-1, [&] { return self.request_.test(); });
  }
  // Null says that memory ran out for the handle.
  static void set_server_cred(void* context, KivCred* cred) {
    Credential owned(cred);
    Resolution& self = of(context);
    self.border_->cross([&] {
      made(owned.handle());
      self.request_.set_server_cred(std::move(owned));
    });
  }
  static void set_proxy(void* context, KivProxyConfig* proxy) {
    Resolution& self = of(context);
    self.border_->cross([&] { self.request_.set_proxy(*LentConfig(proxy)); });
  }
  static KivLogger* logger(const void* context) { return of(context).logger_.handle(); }

  const Request& request_;
  Logger logger_;
  Credential spare_{made(KivCred_None())};
  Border* border_ = nullptr;
};

}  // namespace detail

/**
 * Finds how to reach a URL, as KivProxyResolver_Resolve does, with the request's own client.
 *
 * The first exception of a callable, the logger's included, ends the resolution: no callable is called any more, every
 * candidate that is left fails without a request, and the exception is thrown here.
 * @return the winner, with the proxy credentials that were obtained for it; direct if the target is bypassed or there
 *         was no candidate; none if no candidate worked or the filter kept none.
 * @throws std::invalid_argument if `test`, `set_server_cred` or `set_proxy` is empty, ResolutionError if the library
 *         gives no result, and whatever a callable throws.
 */
inline ProxyConfig resolve(const Request& request) { return detail::Resolution(request).run(); }

/** What a test request asks for. */
enum class Method { Head, Get };

/** How resolve_with_client makes and uses its client. */
struct ClientOptions {
  bool ignore_cert_errors = false; /**< accepts, over https, unknown authorities, wrong usage, names and dates */
  Method method = Method::Head;    /**< of every test request */
};

/**
 * Resolves with a client of the caller's. It is left with the proxy and the credentials of the last candidate that was
 * tested, the winner if there is one.
 * @param client  as made for the request's URL.
 * @param method  of every test request.
 * @param request its `test`, `set_server_cred` and `set_proxy` are replaced by the client's.
 * @throws as resolve does.
 */
inline ProxyConfig resolve_with_client(HttpClient& client, Request request, Method method = Method::Head) {
  request.test = [&] { return method == Method::Get ? client.get(request.logger) : client.head(request.logger); };
  request.set_server_cred = [&](Credential cred) { client.set_server_cred(std::move(cred)); };
  request.set_proxy = [&](const ProxyConfig& proxy) { client.set_proxy(proxy); };
  return resolve(request);
}

/** Resolves with a client that is made for the request's URL and user agent, and gone afterwards. */
inline ProxyConfig resolve_with_client(Request request, const ClientOptions& options = {}) {
  HttpClient client(request.url, request.user_agent, options.ignore_cert_errors);
  return resolve_with_client(client, std::move(request), options.method);
}

}  // namespace kiv

#endif
