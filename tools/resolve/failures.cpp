// What the failure of a test request means, in a few words.
#include "resolve/failures.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>

namespace kiv::tool {
namespace {

struct KnownError {
  unsigned error;
  std::wstring_view name;
  std::wstring_view meaning;
};

// The error codes of WinHTTP and of the sockets below it that a test request or a PAC script can meet.
constexpr KnownError kErrors[] = {
    {ERROR_INVALID_OPERATION, L"ERROR_INVALID_OPERATION", L"no response"},
    {WSAECONNRESET, L"WSAECONNRESET", L"connection reset"},
    {WSAETIMEDOUT, L"WSAETIMEDOUT", L"timed out"},
    {WSAECONNREFUSED, L"WSAECONNREFUSED", L"cannot connect"},
    {ERROR_WINHTTP_TIMEOUT, L"ERROR_WINHTTP_TIMEOUT", L"timed out"},
    {ERROR_WINHTTP_INVALID_URL, L"ERROR_WINHTTP_INVALID_URL", L"invalid URL"},
    {ERROR_WINHTTP_NAME_NOT_RESOLVED, L"ERROR_WINHTTP_NAME_NOT_RESOLVED", L"host name not found"},
    {ERROR_WINHTTP_LOGIN_FAILURE, L"ERROR_WINHTTP_LOGIN_FAILURE", L"login failed"},
    {ERROR_WINHTTP_OPERATION_CANCELLED, L"ERROR_WINHTTP_OPERATION_CANCELLED", L"cancelled"},
    {ERROR_WINHTTP_CANNOT_CONNECT, L"ERROR_WINHTTP_CANNOT_CONNECT", L"cannot connect"},
    {ERROR_WINHTTP_CONNECTION_ERROR, L"ERROR_WINHTTP_CONNECTION_ERROR", L"connection closed or reset"},
    {ERROR_WINHTTP_SECURE_CERT_DATE_INVALID, L"ERROR_WINHTTP_SECURE_CERT_DATE_INVALID", L"certificate out of date"},
    {ERROR_WINHTTP_SECURE_CERT_CN_INVALID, L"ERROR_WINHTTP_SECURE_CERT_CN_INVALID", L"certificate for another host"},
    {ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED, L"ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED", L"client certificate required"},
    {ERROR_WINHTTP_SECURE_INVALID_CA, L"ERROR_WINHTTP_SECURE_INVALID_CA", L"certificate authority not trusted"},
    {ERROR_WINHTTP_INVALID_SERVER_RESPONSE, L"ERROR_WINHTTP_INVALID_SERVER_RESPONSE", L"response is not HTTP"},
    {ERROR_WINHTTP_REDIRECT_FAILED, L"ERROR_WINHTTP_REDIRECT_FAILED", L"redirect failed"},
    {ERROR_WINHTTP_SECURE_CHANNEL_ERROR, L"ERROR_WINHTTP_SECURE_CHANNEL_ERROR", L"TLS failed"},
    {ERROR_WINHTTP_BAD_AUTO_PROXY_SCRIPT, L"ERROR_WINHTTP_BAD_AUTO_PROXY_SCRIPT", L"PAC script failed"},
    {ERROR_WINHTTP_UNABLE_TO_DOWNLOAD_SCRIPT, L"ERROR_WINHTTP_UNABLE_TO_DOWNLOAD_SCRIPT", L"PAC script not downloaded"},
    {ERROR_WINHTTP_SECURE_INVALID_CERT, L"ERROR_WINHTTP_SECURE_INVALID_CERT", L"certificate not valid"},
    {ERROR_WINHTTP_SECURE_CERT_REVOKED, L"ERROR_WINHTTP_SECURE_CERT_REVOKED", L"certificate revoked"},
    {ERROR_WINHTTP_HEADER_COUNT_EXCEEDED, L"ERROR_WINHTTP_HEADER_COUNT_EXCEEDED", L"too many response headers"},
    {ERROR_WINHTTP_HEADER_SIZE_OVERFLOW, L"ERROR_WINHTTP_HEADER_SIZE_OVERFLOW", L"response headers too large"},
    {ERROR_WINHTTP_AUTO_PROXY_SERVICE_ERROR, L"ERROR_WINHTTP_AUTO_PROXY_SERVICE_ERROR", L"PAC script service failed"},
    {ERROR_WINHTTP_SECURE_FAILURE, L"ERROR_WINHTTP_SECURE_FAILURE", L"certificate or TLS not accepted"},
};

struct LineMeaning {
  std::wstring_view beginning;
  std::wstring_view meaning;
};

// Failures without an error code: the library's log lines, and what the tool says itself.
constexpr LineMeaning kLines[] = {
    {L"No supported schemes for the proxy authentication.", L"proxy offers no usable authentication"},
    {L"No supported schemes for the server authentication.", L"server offers no usable authentication"},
    {L"Stopped (", L"no answer in time"},
    {L"ERROR_WINHTTP_RESEND_REQUEST occured too many times.", L"authentication never completes"},
};

const KnownError* known(std::optional<unsigned> error) {
  const auto* const found = std::ranges::find(kErrors, error, &KnownError::error);
  return found == std::ranges::end(kErrors) ? nullptr : found;
}

}  // namespace

std::wstring_view meaningOf(const Request& request) {
  if (const KnownError* const error = known(request.error)) return error->meaning;
  for (const auto& [beginning, meaning] : kLines) {
    if (request.failure.starts_with(beginning)) return meaning;
  }
  return {};
}

std::wstring errorText(unsigned error) {
  const KnownError* const found = known(error);
  const std::wstring number = std::to_wstring(error);
  return found ? std::wstring(found->name) + L" (" + number + L")" : L"error " + number;
}

}  // namespace kiv::tool
