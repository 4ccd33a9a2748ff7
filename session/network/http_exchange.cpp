// One test request: a HEAD of the origin's root, without redirects and cookies, directly or through one HTTP proxy.
#include "network/http_exchange.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "credentials/challenges.h"
#include "http/call_result.h"
#include "kiv/session.h"
#include "loop/system_error.h"
#include "support/owners.h"

namespace kiv::session {
namespace {

constexpr int kMostSends = 6;
constexpr DWORD kNotifications =
    WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES | WINHTTP_CALLBACK_FLAG_CONNECT_TO_SERVER;
constexpr std::uint32_t kAllSchemes = KIV_SCHEME_BASIC | KIV_SCHEME_NTLM | KIV_SCHEME_DIGEST | KIV_SCHEME_NEGOTIATE;
constexpr std::array<DWORD, 5> kRedirects = {301, 302, 303, 307, 308};

static_assert(KIV_SCHEME_BASIC == WINHTTP_AUTH_SCHEME_BASIC && KIV_SCHEME_NTLM == WINHTTP_AUTH_SCHEME_NTLM &&
                  KIV_SCHEME_DIGEST == WINHTTP_AUTH_SCHEME_DIGEST &&
                  KIV_SCHEME_NEGOTIATE == WINHTTP_AUTH_SCHEME_NEGOTIATE,
              "WinHTTP's schemes and ours have the same numbers");

// host:port, an IPv6 address in brackets.
std::wstring addressOf(const Route& proxy) {
  const bool isIpv6 = proxy.host.find(L':') != std::wstring::npos;
  const std::wstring host = isIpv6 ? L'[' + proxy.host + L']' : proxy.host;
  return host + L':' + std::to_wstring(proxy.port);
}

// A session for this request alone, so that no connection is shared with another attempt.
support::UniqueInternet openSession(const HttpPlan& plan) {
  const std::wstring proxy = plan.route.isDirect() ? std::wstring() : addressOf(plan.route);
  support::UniqueInternet session(WinHttpOpen(
      plan.userAgent.c_str(), proxy.empty() ? WINHTTP_ACCESS_TYPE_NO_PROXY : WINHTTP_ACCESS_TYPE_NAMED_PROXY,
      proxy.empty() ? WINHTTP_NO_PROXY_NAME : proxy.c_str(), WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
  if (!session) throwLastError();
  return session;
}

support::UniqueInternet openConnection(HINTERNET session, const Origin& target) {
  support::UniqueInternet connection(WinHttpConnect(session, std::wstring(target.host()).c_str(), target.port(), 0));
  if (!connection) throwLastError();
  return connection;
}

support::UniqueInternet openRequest(HINTERNET connection, const Origin& target) {
  support::UniqueInternet request(WinHttpOpenRequest(connection, L"HEAD", L"/", nullptr, WINHTTP_NO_REFERER,
                                                     WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                     target.isHttps() ? WINHTTP_FLAG_SECURE : 0));
  if (!request) throwLastError();
  return request;
}

void setOption(HINTERNET request, DWORD option, DWORD value) {
  if (!WinHttpSetOption(request, option, &value, sizeof(value))) throwLastError();
}

// By the documentation of WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT it is a limit beside that of WinHttpSetTimeouts, of
// 90 seconds unless it is set.
void setTimeOuts(HINTERNET request, const HttpPlan& plan) {
  const int connecting = static_cast<int>(plan.connectTimeOut);
  const int answering = static_cast<int>(plan.answerTimeOut);
  if (!WinHttpSetTimeouts(request, connecting, connecting, answering, answering)) throwLastError();
  setOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, plan.answerTimeOut);
}

// A header of the answer, the one at `index` among those of its name; empty if there is none, or it is too long.
std::wstring header(HINTERNET request, DWORD query, DWORD index) {
  DWORD size = 0;
  DWORD next = index;
  // Without a buffer the call fails with ERROR_INSUFFICIENT_BUFFER and gives the size in bytes.
  if (WinHttpQueryHeaders(request, query, WINHTTP_HEADER_NAME_BY_INDEX, WINHTTP_NO_OUTPUT_BUFFER, &size, &next) ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER || size > kLongestHeader * sizeof(wchar_t)) {
    return {};
  }
  std::wstring text(size / sizeof(wchar_t), L'\0');
  next = index;
  if (!WinHttpQueryHeaders(request, query, WINHTTP_HEADER_NAME_BY_INDEX, text.data(), &size, &next)) return {};
  text.resize(std::min<std::size_t>(text.size(), size / sizeof(wchar_t)));
  return text;
}

// All headers of that name, one in each line.
std::wstring headers(HINTERNET request, DWORD query) {
  std::wstring all;
  for (DWORD index = 0; index < kMostChallenges; ++index) {
    const std::wstring one = header(request, query, index);
    if (one.empty()) break;
    all.append(one).append(L"\n");
  }
  return all;
}

std::uint32_t offeredSchemes(HINTERNET request) noexcept {
  DWORD supported = 0;
  DWORD first = 0;
  DWORD target = 0;
  return WinHttpQueryAuthSchemes(request, &supported, &first, &target) ? supported & kAllSchemes : 0;
}

std::wstring realmOf(std::wstring_view challenges, std::uint32_t scheme) {
  for (const HeaderChallenge& challenge : readChallenges(challenges)) {
    if (challenge.scheme == scheme) return challenge.realm;
  }
  return {};
}

// A location without a host stays at the target.
bool leadsElsewhere(const std::wstring& location, const Origin& target) {
  const bool lacksScheme = location.starts_with(L"//");
  const std::optional<Origin> next = Origin::parse(lacksScheme ? L"http:" + location : location);
  return next && next->host() != target.host();
}

// Whether the answer came over TLS. A proxy that refuses to connect to the target answers without.
bool isSecure(HINTERNET request) {
  DWORD bits = 0;
  DWORD size = sizeof(bits);
  return WinHttpQueryOption(request, WINHTTP_OPTION_SECURITY_KEY_BITNESS, &bits, &size) && bits != 0;
}

class PendingExchange final : public HttpExchange {
 public:
  PendingExchange(EventLoop& loop, HttpPlan plan, HttpListener& listener)
      : loop_(&loop), plan_(std::move(plan)), listener_(&listener), deadline_(loop, *this) {}

  void open();
  void stop() noexcept override;

 private:
  ~PendingExchange() override = default;

  static void CALLBACK onStatus(HINTERNET request, DWORD_PTR context, DWORD status, LPVOID information, DWORD length);

  void run() noexcept override;
  void proceed();
  void tellConnected() noexcept;
  void send();
  impl::CallResult setCredentials() const;
  void receive();
  void failed(DWORD error);
  void readAnswer();
  void readChallenge();
  bool maySendLogonCredentials();
  void end(DWORD error) noexcept;
  void overdue() noexcept { end(ERROR_WINHTTP_TIMEOUT); }

  Ref<EventLoop> loop_;
  HttpPlan plan_;
  HttpListener* listener_;  // null when it hears nothing any more
  DeadlineOf<PendingExchange, &PendingExchange::overdue> deadline_;
  HttpAnswer answer_;
  int sends_ = 0;
  bool mayLogOn_ = false;  // the policy has been lifted

  // What WinHTTP's threads say.
  std::atomic<bool> connected_{false};
  std::atomic<DWORD> outcome_{0};  // of the call under way: a WINHTTP_CALLBACK_STATUS_ value
  std::atomic<DWORD> error_{0};

  support::UniqueInternet session_;
  support::UniqueInternet connection_;
  support::UniqueInternet request_;  // closed before its parents
};

// The callback is installed last. Nothing can fail then before WinHTTP owns this object, and whoever closes the request
// hears WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, for which a context must be set: WinHttpSendRequest sets none if it
// fails to start.
void PendingExchange::open() {
  if (!loop_->worksAsItsUser()) throw SystemError{ERROR_BAD_IMPERSONATION_LEVEL};
  session_ = openSession(plan_);
  connection_ = openConnection(session_.get(), plan_.target);
  support::UniqueInternet request = openRequest(connection_.get(), plan_.target);
  auto context = reinterpret_cast<DWORD_PTR>(this);
  if (!WinHttpSetOption(request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context))) throwLastError();
  setOption(request.get(), WINHTTP_OPTION_DISABLE_FEATURE, WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES);
  if (plan_.autoLogon != AutoLogon::System) {
    setOption(request.get(), WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH);
  }
  setTimeOuts(request.get(), plan_);
  if (WinHttpSetStatusCallback(request.get(), onStatus, kNotifications, 0) ==
      WINHTTP_INVALID_STATUS_CALLBACK) {  // NOLINT(performance-no-int-to-ptr): the platform's constant
    throwLastError();
  }
  retain();
  request_ = std::move(request);
  deadline_.set(EventLoop::now() + plan_.connectTimeOut);
  loop_->post(*this);
}

void PendingExchange::stop() noexcept {
  listener_ = nullptr;
  deadline_.clear();
  request_ = support::UniqueInternet();
  connection_ = support::UniqueInternet();
  session_ = support::UniqueInternet();
}

// Runs on any thread, also inside the calls below, that is, with or without the loop's lock. HANDLE_CLOSING is the last
// notification: WinHTTP gives its reference back.
void CALLBACK PendingExchange::onStatus(HINTERNET /*request*/, DWORD_PTR context, DWORD status, LPVOID information,
                                        DWORD /*length*/) {
  auto* const self =
      reinterpret_cast<PendingExchange*>(context);  // NOLINT(performance-no-int-to-ptr): as WinHTTP has it
  if (!self) return;
  const Ref<EventLoop> loop = self->loop_;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      self->error_ = static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError;
      self->outcome_ = status;
      break;
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      self->connected_ = true;
      self->outcome_ = status;
      break;
    case WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER:
      self->connected_ = true;
      break;
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      loop->postAndRelease(*self);
      return;
    default:
      return;
  }
  loop->post(*self);
}

void PendingExchange::run() noexcept {
  try {
    proceed();
  } catch (const std::bad_alloc&) {
    end(ERROR_NOT_ENOUGH_MEMORY);
  }
}

void PendingExchange::proceed() {
  if (connected_) tellConnected();
  if (!listener_) return;
  switch (outcome_.exchange(0)) {
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
      receive();
      break;
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      readAnswer();
      break;
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      failed(error_);
      break;
    default:
      if (sends_ == 0) send();
      break;
  }
}

void PendingExchange::tellConnected() noexcept {
  if (!listener_ || std::exchange(answer_.connected, true)) return;
  deadline_.set(EventLoop::now() + plan_.answerTimeOut);
  listener_->exchangeConnected(*this);
}

void PendingExchange::send() {
  if (!loop_->worksAsItsUser()) {
    end(ERROR_BAD_IMPERSONATION_LEVEL);
    return;
  }
  ++sends_;
  outcome_ = 0;
  if (const impl::CallResult set = setCredentials(); !set.succeeded) {
    failed(set.error);
  } else if (!WinHttpSendRequest(request_.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0,
                                 reinterpret_cast<DWORD_PTR>(this))) {
    failed(GetLastError());
  }
}

// Before each send: by the documentation of WinHttpSetCredentials they are used for one request.
impl::CallResult PendingExchange::setCredentials() const {
  if (!plan_.cred || plan_.credScheme == 0) return {};
  const impl::SecureString password = plan_.cred->password();
  if (WinHttpSetCredentials(request_.get(), WINHTTP_AUTH_TARGET_PROXY, plan_.credScheme, plan_.cred->username().c_str(),
                            password.c_str(), nullptr)) {
    return {};
  }
  return impl::CallResult::failed(GetLastError());
}

void PendingExchange::receive() {
  outcome_ = 0;
  if (!WinHttpReceiveResponse(request_.get(), nullptr)) failed(GetLastError());
}

void PendingExchange::failed(DWORD error) {
  if (error == ERROR_WINHTTP_RESEND_REQUEST && sends_ < kMostSends) {
    send();
  } else {
    end(error ? error : DWORD{ERROR_WINHTTP_INTERNAL_ERROR});
  }
}

// An answer without a status asks for another try, too.
void PendingExchange::readAnswer() {
  DWORD status = 0;
  DWORD size = sizeof(status);
  if (!WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                           WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
    failed(GetLastError());
    return;
  }
  if (status == 0) {
    failed(ERROR_WINHTTP_RESEND_REQUEST);
    return;
  }
  if (status == HTTP_STATUS_PROXY_AUTH_REQ && !plan_.route.isDirect()) {
    readChallenge();
    if (maySendLogonCredentials()) {
      send();
      return;
    }
  }
  answer_.redirectsElsewhere = std::ranges::find(kRedirects, status) != kRedirects.end() &&
                               leadsElsewhere(header(request_.get(), WINHTTP_QUERY_LOCATION, 0), plan_.target);
  answer_.status = status;
  answer_.secure = isSecure(request_.get());
  end(ERROR_SUCCESS);
}

void PendingExchange::readChallenge() {
  answer_.schemes = offeredSchemes(request_.get());
  answer_.realm =
      realmOf(headers(request_.get(), WINHTTP_QUERY_PROXY_AUTHENTICATE), strongestScheme(answer_.schemes, kAllSchemes));
}

// The default policy allows servers of the intranet as well, which is why the first send goes without: by
// "Authentication in WinHTTP" the policy can be set again after the challenge, when it is known who asks.
bool PendingExchange::maySendLogonCredentials() {
  constexpr std::uint32_t kOfTheUser = KIV_SCHEME_NTLM | KIV_SCHEME_NEGOTIATE;
  if (plan_.autoLogon != AutoLogon::Proxies || plan_.cred || (answer_.schemes & kOfTheUser) == 0) return false;
  DWORD policy = WINHTTP_AUTOLOGON_SECURITY_LEVEL_MEDIUM;
  return !std::exchange(mayLogOn_, true) &&
         WinHttpSetOption(request_.get(), WINHTTP_OPTION_AUTOLOGON_POLICY, &policy, sizeof(policy));
}

void PendingExchange::end(DWORD error) noexcept {
  HttpListener* const listener = listener_;
  if (!listener) return;
  answer_.error = error;
  stop();
  listener->exchangeEnded(*this, answer_);
}

}  // namespace

Ref<HttpExchange> HttpExchange::start(EventLoop& loop, HttpPlan plan, HttpListener& listener) {
  const auto exchange = makeRef<PendingExchange>(loop, std::move(plan), listener);
  exchange->open();
  return exchange;
}

}  // namespace kiv::session
