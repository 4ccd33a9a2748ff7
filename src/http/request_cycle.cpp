// One test request, from opening to its final status.
#include "http/request_cycle.h"

#include <string>
#include <utility>

#include "http/auth_scheme.h"
#include "http/pending_request.h"
#include "log/format.h"
#include "support/owners.h"

namespace kiv::impl {
namespace {

constexpr int kFailed = -1;
constexpr int kProxyAuthenticationRequired = 407;
constexpr int kServerAuthenticationRequired = 401;
constexpr int kMostSends = 6;
constexpr DWORD kIgnoredCertErrors = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                                     SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;

// Path and query follow each other as they are stored, with nothing in front or between: what a host's server sees as
// the object has always been this.
std::wstring objectName(const ParsedAddress& server) { return server.path + server.query; }

class RequestCycle {
 public:
  RequestCycle(const ClientSettings& client, ChosenSchemes& schemes, const Logger& logger)
      : client_(client), schemes_(schemes), logger_(logger) {}

  int run(HINTERNET connection, const wchar_t* verb) {
    support::UniqueInternet opened = open(connection, verb);
    if (!opened) return kFailed;
    PendingRequest request(std::move(opened));
    if (!configure(request.handle())) return kFailed;

    int status = sendAndReceive(request);
    if (status == kProxyAuthenticationRequired && client_.proxy.isValid() && client_.proxy.hasCred()) {
      if (!chooseForProxy(request.handle())) return kFailed;
      status = sendAndReceive(request);
      if (status == kProxyAuthenticationRequired) return status;
    }
    if (status == kServerAuthenticationRequired && client_.serverCred) {
      if (!chooseForServer(request.handle())) return kFailed;
      status = sendAndReceive(request);
      if (status == kServerAuthenticationRequired) return status;
    }
    logHeaders(request.handle());
    return status;
  }

 private:
  // Logs the failure of the call made just before at Error; to be called before anything else can change the error.
  bool fail(const wchar_t* call, DWORD error = GetLastError()) const {
    logger_.error(failureOf(call, error));
    return false;
  }

  support::UniqueInternet open(HINTERNET connection, const wchar_t* verb) const {
    const std::wstring object = objectName(*client_.server);
    // The object name is sent as it stands, not escaped once more.
    const DWORD flags = WINHTTP_FLAG_ESCAPE_DISABLE | (client_.https() ? WINHTTP_FLAG_SECURE : 0);
    support::UniqueInternet request(WinHttpOpenRequest(connection, verb, object.c_str(), nullptr, WINHTTP_NO_REFERER,
                                                       WINHTTP_DEFAULT_ACCEPT_TYPES, flags));
    if (!request) fail(L"WinHttpOpenRequest()");
    return request;
  }

  bool configure(HINTERNET request) const {
    if (client_.https() && client_.ignoreCertErrors && !ignoreCertErrors(request)) return false;
    return !client_.proxy.isValid() || setProxy(request);
  }

  bool ignoreCertErrors(HINTERNET request) const {
    DWORD flags = 0;
    DWORD size = sizeof(flags);
    if (!WinHttpQueryOption(request, WINHTTP_OPTION_SECURITY_FLAGS, &flags, &size)) {
      return fail(L"WinHttpQueryOption(WINHTTP_OPTION_SECURITY_FLAGS)");
    }
    flags |= kIgnoredCertErrors;
    return WinHttpSetOption(request, WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof(flags)) ||
           fail(L"WinHttpSetOption(WINHTTP_OPTION_SECURITY_FLAGS)");
  }

  bool setProxy(HINTERNET request) const {
    std::wstring proxy = client_.proxy.display();
    std::wstring noBypass;
    WINHTTP_PROXY_INFO info{};
    info.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    info.lpszProxy = proxy.data();
    info.lpszProxyBypass = noBypass.data();
    return WinHttpSetOption(request, WINHTTP_OPTION_PROXY, &info, sizeof(info)) ||
           fail(L"WinHttpSetOption(WINHTTP_OPTION_PROXY)");
  }

  // Sends until an answer is there; WinHTTP asks for another try while it negotiates.
  int sendAndReceive(PendingRequest& request) const {
    for (int sends = 1;; ++sends) {
      if (const std::optional<DWORD> error = sendOnce(request)) {
        if (!mayResend(L"WinHttpSendRequest()", *error)) return kFailed;
      } else if (const std::optional<DWORD> failure = request.receive()) {
        if (!mayResend(L"WinHttpReceiveResponse()", *failure)) return kFailed;
      } else if (const int status = statusOf(request.handle())) {
        return status;
      }
      if (sends == kMostSends) {
        logger_.warn(L"ERROR_WINHTTP_RESEND_REQUEST occured too many times.");
        return kFailed;
      }
    }
  }

  bool mayResend(const wchar_t* call, DWORD error) const {
    if (error == ERROR_WINHTTP_RESEND_REQUEST) return true;
    logger_.warn(failureOf(call, error));
    return false;
  }

  // Gives the error if it failed.
  std::optional<DWORD> sendOnce(PendingRequest& request) const {
    if (client_.proxy.isValid() && client_.proxy.cred() && schemes_.proxy) {
      if (const auto error =
              setCredentials(request.handle(), WINHTTP_AUTH_TARGET_PROXY, *schemes_.proxy, *client_.proxy.cred(),
                             L"WinHttpSetCredentials(WINHTTP_AUTH_TARGET_PROXY)")) {
        return error;
      }
    }
    if (client_.serverCred && schemes_.server) {
      if (const auto error =
              setCredentials(request.handle(), WINHTTP_AUTH_TARGET_SERVER, *schemes_.server, *client_.serverCred,
                             L"WinHttpSetCredentials(WINHTTP_AUTH_TARGET_SERVER)")) {
        return error;
      }
    }
    return request.send();
  }

  std::optional<DWORD> setCredentials(HINTERNET request, DWORD target, DWORD scheme, const Cred& cred,
                                      const wchar_t* call) const {
    DWORD error = ERROR_SUCCESS;
    {
      const SecureString password = cred.password();
      if (WinHttpSetCredentials(request, target, scheme, cred.username().c_str(), password.c_str(), nullptr)) {
        return std::nullopt;
      }
      error = GetLastError();
    }
    fail(call, error);
    return error;
  }

  // 0 if the answer has none, which asks for another try.
  int statusOf(HINTERNET request) const {
    DWORD status = 0;
    DWORD size = sizeof(status);
    if (!WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                             WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX)) {
      fail(L"WinHttpQueryHeaders(WINHTTP_QUERY_STATUS_CODE)");
      return kFailed;
    }
    return static_cast<int>(status);
  }

  // The set of schemes that the last challenge offered; nothing, after a line in the log, if it cannot be had.
  std::optional<DWORD> offeredSchemes(HINTERNET request, const wchar_t* call) const {
    DWORD supported = 0;
    DWORD first = 0;
    DWORD target = 0;
    if (WinHttpQueryAuthSchemes(request, &supported, &first, &target)) return supported;
    fail(call);
    return std::nullopt;
  }

  bool chooseForProxy(HINTERNET request) {
    const std::optional<DWORD> offered = offeredSchemes(request, L"WinHttpQueryAuthSchemes(proxy)");
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

  bool chooseForServer(HINTERNET request) {
    const std::optional<DWORD> offered = offeredSchemes(request, L"WinHttpQueryAuthSchemes(server)");
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

  void logHeaders(HINTERNET request) const {
    constexpr const wchar_t* kCall = L"WinHttpQueryHeaders(WINHTTP_QUERY_RAW_HEADERS_CRLF)";
    DWORD size = 0;
    // Asked for the size alone, the call fails; that it does not is what would be wrong.
    if (queryRawHeaders(request, nullptr, size)) {
      fail(kCall);
      return;
    }
    if (size < sizeof(wchar_t)) return;
    std::wstring headers(size / sizeof(wchar_t), L'\0');
    if (!queryRawHeaders(request, headers.data(), size)) {
      fail(kCall);
      return;
    }
    headers.resize(size / sizeof(wchar_t));
    logger_.debug(format(L"Response Header: %ls", headers.c_str()));
  }

  static bool queryRawHeaders(HINTERNET request, wchar_t* buffer, DWORD& size) {
    return WinHttpQueryHeaders(request, WINHTTP_QUERY_RAW_HEADERS_CRLF, WINHTTP_HEADER_NAME_BY_INDEX, buffer, &size,
                               WINHTTP_NO_HEADER_INDEX) != FALSE;
  }

  const ClientSettings& client_;
  ChosenSchemes& schemes_;
  const Logger& logger_;
};

}  // namespace

int runRequest(HINTERNET connection, const wchar_t* verb, const ClientSettings& client, ChosenSchemes& schemes,
               const Logger& logger) {
  return RequestCycle(client, schemes, logger).run(connection, verb);
}

}  // namespace kiv::impl
