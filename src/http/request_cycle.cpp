// One test request, from opening to its final status.
#include "http/request_cycle.h"

#include <string>
#include <utility>

#include "http/auth_scheme.h"
#include "http/pending_request.h"
#include "support/format.h"
#include "support/owners.h"

namespace kiv::impl {
namespace {

using support::failureOf;
using support::format;

constexpr int kFailed = -1;
constexpr int kNoStatus = 0;
constexpr int kMostSends = 6;
constexpr DWORD kIgnoredCertErrors = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                                     SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;

// Path and query follow each other as they are stored, without the "/" in front and the "?" between: servers have
// always been asked for this.
std::wstring objectName(const ParsedAddress& server) { return server.path + server.query; }

// Logs the failure of the call made just before at Error; to be called before anything else can change the error.
bool fail(const Logger& logger, const wchar_t* call, DWORD error = GetLastError()) {
  logger.error(failureOf(call, error));
  return false;
}

support::UniqueInternet open(HINTERNET connection, const wchar_t* verb, const ClientSettings& client,
                             const Logger& logger) {
  const std::wstring object = objectName(*client.server);
  // The object name is sent as it stands, not escaped once more.
  const DWORD flags = WINHTTP_FLAG_ESCAPE_DISABLE | (client.https() ? WINHTTP_FLAG_SECURE : 0);
  support::UniqueInternet request(WinHttpOpenRequest(connection, verb, object.c_str(), nullptr, WINHTTP_NO_REFERER,
                                                     WINHTTP_DEFAULT_ACCEPT_TYPES, flags));
  if (!request) fail(logger, L"WinHttpOpenRequest()");
  return request;
}

class RequestCycle {
 public:
  RequestCycle(support::UniqueInternet request, const ClientSettings& client, ChosenSchemes& schemes,
               const Logger& logger)
      : client_(client), schemes_(schemes), logger_(logger), request_(std::move(request)) {}

  int run() {
    if (!configure()) return kFailed;
    int status = sendAndReceive();
    if (status == HTTP_STATUS_PROXY_AUTH_REQ && client_.proxy.isValid() && client_.proxy.hasCred()) {
      if (!chooseForProxy()) return kFailed;
      status = sendAndReceive();
      if (status == HTTP_STATUS_PROXY_AUTH_REQ) return status;
    }
    if (status == HTTP_STATUS_DENIED && client_.serverCred) {
      if (!chooseForServer()) return kFailed;
      status = sendAndReceive();
      if (status == HTTP_STATUS_DENIED) return status;
    }
    logHeaders();
    return status;
  }

 private:
  HINTERNET handle() const { return request_.handle(); }
  bool fail(const wchar_t* call) const { return impl::fail(logger_, call); }

  bool configure() const {
    if (client_.https() && client_.ignoreCertErrors && !ignoreCertErrors()) return false;
    return !client_.proxy.isValid() || setProxy();
  }

  bool ignoreCertErrors() const {
    DWORD flags = 0;
    DWORD size = sizeof(flags);
    if (!WinHttpQueryOption(handle(), WINHTTP_OPTION_SECURITY_FLAGS, &flags, &size)) {
      return fail(L"WinHttpQueryOption(WINHTTP_OPTION_SECURITY_FLAGS)");
    }
    flags |= kIgnoredCertErrors;
    return WinHttpSetOption(handle(), WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof(flags)) ||
           fail(L"WinHttpSetOption(WINHTTP_OPTION_SECURITY_FLAGS)");
  }

  bool setProxy() const {
    std::wstring proxy = client_.proxy.display();
    std::wstring noBypass;
    WINHTTP_PROXY_INFO info{};
    info.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    info.lpszProxy = proxy.data();
    info.lpszProxyBypass = noBypass.data();
    return WinHttpSetOption(handle(), WINHTTP_OPTION_PROXY, &info, sizeof(info)) ||
           fail(L"WinHttpSetOption(WINHTTP_OPTION_PROXY)");
  }

  // Sends until there is an answer with a status; WinHTTP asks for another try while it negotiates.
  int sendAndReceive() {
    for (int sends = 0; sends < kMostSends; ++sends) {
      if (const CallResult sent = send(); !sent.succeeded) {
        if (!mayResend(L"WinHttpSendRequest()", sent.error)) return kFailed;
      } else if (const CallResult received = request_.receive(); !received.succeeded) {
        if (!mayResend(L"WinHttpReceiveResponse()", received.error)) return kFailed;
      } else if (const int status = statusOfAnswer(); status != kNoStatus) {
        return status;
      }
    }
    logger_.warn(L"ERROR_WINHTTP_RESEND_REQUEST occured too many times.");
    return kFailed;
  }

  bool mayResend(const wchar_t* call, DWORD error) const {
    if (error == ERROR_WINHTTP_RESEND_REQUEST) return true;
    logger_.warn(failureOf(call, error));
    return false;
  }

  CallResult send() {
    if (client_.proxy.isValid() && client_.proxy.cred() && schemes_.proxy) {
      const CallResult set = setCredentials(WINHTTP_AUTH_TARGET_PROXY, *schemes_.proxy, *client_.proxy.cred(),
                                            L"WinHttpSetCredentials(WINHTTP_AUTH_TARGET_PROXY)");
      if (!set.succeeded) return set;
    }
    if (client_.serverCred && schemes_.server) {
      const CallResult set = setCredentials(WINHTTP_AUTH_TARGET_SERVER, *schemes_.server, *client_.serverCred,
                                            L"WinHttpSetCredentials(WINHTTP_AUTH_TARGET_SERVER)");
      if (!set.succeeded) return set;
    }
    return request_.send();
  }

  CallResult setCredentials(DWORD target, DWORD scheme, const Cred& cred, const wchar_t* call) const {
    DWORD error = ERROR_SUCCESS;
    {
      const SecureString password = cred.password();
      if (WinHttpSetCredentials(handle(), target, scheme, cred.username().c_str(), password.c_str(), nullptr)) {
        return {};
      }
      error = GetLastError();
    }
    impl::fail(logger_, call, error);
    return CallResult::failed(error);
  }

  int statusOfAnswer() const {
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!WinHttpQueryHeaders(handle(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
      fail(L"WinHttpQueryHeaders(WINHTTP_QUERY_STATUS_CODE)");
      return kFailed;
    }
    return static_cast<int>(status);
  }

  // The set of schemes that the last challenge offered; nothing, after a line in the log, if it cannot be had.
  std::optional<DWORD> offeredSchemes(const wchar_t* call) const {
    DWORD supported = 0;
    DWORD first = 0;
    DWORD target = 0;
    if (WinHttpQueryAuthSchemes(handle(), &supported, &first, &target)) return supported;
    fail(call);
    return std::nullopt;
  }

  bool chooseForProxy() {
    const std::optional<DWORD> offered = offeredSchemes(L"WinHttpQueryAuthSchemes(proxy)");
    if (!offered) return false;
    const std::optional<DWORD> scheme = chooseScheme(*offered);
    if (scheme) {
      schemes_.proxy = scheme;
    } else {
      logger_.error(
          format(L"No supported schemes for the proxy authentication. (%ls)", client_.proxy.display().c_str()));
    }
    return scheme.has_value();
  }

  bool chooseForServer() {
    const std::optional<DWORD> offered = offeredSchemes(L"WinHttpQueryAuthSchemes(server)");
    if (!offered) return false;
    const std::optional<DWORD> scheme = chooseServerScheme(*offered, client_.https());
    if (scheme) {
      schemes_.server = scheme;
    } else {
      logger_.error(
          format(L"No supported schemes for the server authentication. (%ls)", urlText(*client_.server).c_str()));
    }
    return scheme.has_value();
  }

  void logHeaders() const {
    constexpr const wchar_t* kCall = L"WinHttpQueryHeaders(WINHTTP_QUERY_RAW_HEADERS_CRLF)";
    DWORD size = 0;
    // Without a buffer the call fails with ERROR_INSUFFICIENT_BUFFER and gives the size in bytes, says its
    // documentation; so here it is success that is wrong.
    if (queryRawHeaders(nullptr, size)) {
      fail(kCall);
      return;
    }
    if (size < sizeof(wchar_t)) return;
    std::wstring headers(size / sizeof(wchar_t), L'\0');
    if (!queryRawHeaders(headers.data(), size)) {
      fail(kCall);
      return;
    }
    headers.resize(size / sizeof(wchar_t));
    logger_.debug(format(L"Response Header: %ls", headers.c_str()));
  }

  bool queryRawHeaders(wchar_t* buffer, DWORD& size) const {
    return WinHttpQueryHeaders(handle(), WINHTTP_QUERY_RAW_HEADERS_CRLF, WINHTTP_HEADER_NAME_BY_INDEX, buffer, &size,
                               WINHTTP_NO_HEADER_INDEX) != FALSE;
  }

  const ClientSettings& client_;
  ChosenSchemes& schemes_;
  const Logger& logger_;
  PendingRequest request_;
};

}  // namespace

int runRequest(HINTERNET connection, const wchar_t* verb, const ClientSettings& client, ChosenSchemes& schemes,
               const Logger& logger) {
  support::UniqueInternet request = open(connection, verb, client, logger);
  if (!request) return kFailed;
  return RequestCycle(std::move(request), client, schemes, logger).run();
}

}  // namespace kiv::impl
