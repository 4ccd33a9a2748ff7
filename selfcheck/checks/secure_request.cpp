// One request to a server with TLS, straight through WinHTTP: what the system says of its certificate.
#include "checks/secure_request.h"

#include "loop/system_error.h"
#include "support/owners.h"

namespace selfcheck {
namespace {

using kiv::session::throwLastError;
using kiv::support::UniqueInternet;

UniqueInternet owned(HINTERNET handle) {
  if (!handle) throwLastError();
  return UniqueInternet(handle);
}

void CALLBACK onStatus(HINTERNET /*handle*/, DWORD_PTR context, DWORD status, LPVOID information, DWORD /*size*/) {
  if (status != WINHTTP_CALLBACK_STATUS_SECURE_FAILURE || !context) return;
  auto& answer = *reinterpret_cast<SecureAnswer*>(context);
  answer.saidProblems = true;
  answer.certificateProblems |= *static_cast<const DWORD*>(information);
}

UniqueInternet sessionWith(const std::wstring& proxy) {
  const DWORD access = proxy.empty() ? WINHTTP_ACCESS_TYPE_NO_PROXY : WINHTTP_ACCESS_TYPE_NAMED_PROXY;
  return owned(WinHttpOpen(L"kiv-selfcheck", access, proxy.empty() ? nullptr : proxy.c_str(), nullptr, 0));
}

DWORD statusOf(HINTERNET request) {
  DWORD status = 0;
  DWORD size = sizeof status;
  WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status, &size, nullptr);
  return status;
}

}  // namespace

SecureAnswer send(const SecureRequest& wanted) {
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = static_cast<DWORD>(-1);
  if (!WinHttpCrackUrl(wanted.url.c_str(), 0, 0, &parts)) throwLastError();
  const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
  const DWORD flags = parts.nScheme == INTERNET_SCHEME_HTTPS ? WINHTTP_FLAG_SECURE : 0;

  SecureAnswer answer;
  const UniqueInternet session = sessionWith(wanted.proxy);
  WinHttpSetStatusCallback(session.get(), onStatus, WINHTTP_CALLBACK_FLAG_SECURE_FAILURE, 0);
  const UniqueInternet connection = owned(WinHttpConnect(session.get(), host.c_str(), parts.nPort, 0));
  const UniqueInternet request = owned(
      WinHttpOpenRequest(connection.get(), L"HEAD", parts.lpszUrlPath, nullptr, WINHTTP_NO_REFERER, nullptr, flags));
  DWORD ignored = wanted.ignoredProblems;
  if (ignored) WinHttpSetOption(request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &ignored, sizeof ignored);
  if (WinHttpSendRequest(request.get(), nullptr, 0, nullptr, 0, 0, reinterpret_cast<DWORD_PTR>(&answer)) &&
      WinHttpReceiveResponse(request.get(), nullptr)) {
    answer.status = statusOf(request.get());
  } else {
    answer.error = GetLastError();
  }
  return answer;
}

}  // namespace selfcheck
