// A request of WinHTTP's, without kiv: for what the system itself does.
#include "checks/winhttp_request.h"

#include "ground/ground.h"
#include "loop/system_error.h"

namespace selfcheck {
namespace {

using kiv::session::throwLastError;

HINTERNET openSession(const std::wstring& proxy) {
  const bool direct = proxy.empty();
  return WinHttpOpen(kAgent, direct ? WINHTTP_ACCESS_TYPE_NO_PROXY : WINHTTP_ACCESS_TYPE_NAMED_PROXY,
                     direct ? WINHTTP_NO_PROXY_NAME : proxy.c_str(), WINHTTP_NO_PROXY_BYPASS, 0);
}

}  // namespace

WinHttpRequest::WinHttpRequest(const std::wstring& host, std::uint16_t port, const std::wstring& object,
                               const std::wstring& proxy)
    : session_(openSession(proxy)) {
  if (!session_) throwLastError();
  connection_ = kiv::support::UniqueInternet(WinHttpConnect(session_.get(), host.c_str(), port, 0));
  if (!connection_) throwLastError();
  request_ = kiv::support::UniqueInternet(WinHttpOpenRequest(connection_.get(), L"GET", object.c_str(), nullptr,
                                                             WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                                             WINHTTP_FLAG_ESCAPE_DISABLE));
  if (!request_) throwLastError();
}

DWORD WinHttpRequest::send() {
  DWORD status = 0;
  DWORD size = sizeof(status);
  const bool answered =
      WinHttpSendRequest(handle(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) &&
      WinHttpReceiveResponse(handle(), nullptr) &&
      WinHttpQueryHeaders(handle(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, WINHTTP_HEADER_NAME_BY_INDEX,
                          &status, &size, WINHTTP_NO_HEADER_INDEX);
  error_ = answered ? ERROR_SUCCESS : GetLastError();
  return status;
}

}  // namespace selfcheck
