// What the network says about proxies. Unit tests give its answers as data.
#include "sources/network.h"

#include <winhttp.h>

#include <array>

#include "support/owners.h"

namespace kiv::tool {
namespace {

using support::UniqueInternet;

constexpr int kPatience = 5000;           // milliseconds, for each step of a request
constexpr std::size_t kBeginning = 1024;  // bytes of a body, enough to tell HTML from a script

// A GET or HEAD request, in a session of its own.
class PlainRequest {
 public:
  PlainRequest(const wchar_t* method, const std::wstring& host, std::uint16_t port, const std::wstring& path, bool tls)
      : session_(WinHttpOpen(L"kiv-resolve/" KIV_VERSION, WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                             WINHTTP_NO_PROXY_BYPASS, 0)) {
    if (!session_) return;
    WinHttpSetTimeouts(session_.get(), kPatience, kPatience, kPatience, kPatience);
    connection_ = UniqueInternet(WinHttpConnect(session_.get(), host.c_str(), port, 0));
    if (!connection_) return;
    request_ = UniqueInternet(WinHttpOpenRequest(connection_.get(), method, path.c_str(), nullptr, WINHTTP_NO_REFERER,
                                                 WINHTTP_DEFAULT_ACCEPT_TYPES, tls ? WINHTTP_FLAG_SECURE : 0));
    DWORD patience = kPatience;
    DWORD neverLogOn = WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH;
    DWORD neverAuthenticate = WINHTTP_DISABLE_AUTHENTICATION;
    WinHttpSetOption(request_.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &patience, sizeof(patience));
    WinHttpSetOption(request_.get(), WINHTTP_OPTION_AUTOLOGON_POLICY, &neverLogOn, sizeof(neverLogOn));
    WinHttpSetOption(request_.get(), WINHTTP_OPTION_DISABLE_FEATURE, &neverAuthenticate, sizeof(neverAuthenticate));
  }

  // False with the last error.
  bool send() {
    return request_ &&
           WinHttpSendRequest(request_.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) &&
           WinHttpReceiveResponse(request_.get(), nullptr);
  }

  int status() const {
    DWORD status = 0;
    DWORD size = sizeof(status);
    const bool read = WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                          WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
    return read ? static_cast<int>(status) : -1;
  }

  // A header that does not fit is none that anybody sends.
  std::wstring contentType() const {
    std::array<wchar_t, 256> text{};
    DWORD size = sizeof(text);
    const bool read = WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_CONTENT_TYPE, WINHTTP_HEADER_NAME_BY_INDEX,
                                          text.data(), &size, WINHTTP_NO_HEADER_INDEX);
    return read ? std::wstring(text.data(), size / sizeof(wchar_t)) : std::wstring();
  }

  std::optional<std::int64_t> date() const {
    SYSTEMTIME time{};
    DWORD size = sizeof(time);
    FILETIME fileTime{};
    if (!WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_DATE | WINHTTP_QUERY_FLAG_SYSTEMTIME,
                             WINHTTP_HEADER_NAME_BY_INDEX, &time, &size, WINHTTP_NO_HEADER_INDEX) ||
        !SystemTimeToFileTime(&time, &fileTime))
      return std::nullopt;
    constexpr std::int64_t kPerSecond = 10'000'000;
    return ((std::int64_t{fileTime.dwHighDateTime} << 32) | fileTime.dwLowDateTime) / kPerSecond;
  }

  std::string beginning() {
    std::string body(kBeginning, '\0');
    std::size_t length = 0;
    DWORD read = 0;
    while (length < body.size() &&
           WinHttpReadData(request_.get(), body.data() + length, static_cast<DWORD>(body.size() - length), &read) &&
           read > 0)
      length += read;
    body.resize(length);
    return body;
  }

 private:
  UniqueInternet session_;
  UniqueInternet connection_;
  UniqueInternet request_;
};

struct CrackedUrl {
  std::wstring host;
  std::wstring path;  // with the query
  std::uint16_t port = 0;
  bool tls = false;
};

// Without user name and password.
std::optional<CrackedUrl> cracked(const std::wstring& url) {
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwUserNameLength = parts.dwPasswordLength =
      parts.dwExtraInfoLength = static_cast<DWORD>(-1);
  if (!WinHttpCrackUrl(url.c_str(), 0, 0, &parts)) return std::nullopt;
  return CrackedUrl{
      .host = {parts.lpszHostName, parts.dwHostNameLength},
      .path = std::wstring(parts.lpszUrlPath, parts.dwUrlPathLength) +
              std::wstring(parts.lpszExtraInfo, parts.dwExtraInfoLength),
      .port = parts.nPort,
      .tls = parts.nScheme == INTERNET_SCHEME_HTTPS,
  };
}

}  // namespace

Detected WindowsNetwork::detect(DetectionBy way) const {
  const DWORD flags = way == DetectionBy::Dhcp ? WINHTTP_AUTO_DETECT_TYPE_DHCP : WINHTTP_AUTO_DETECT_TYPE_DNS_A;
  support::UniqueGlobalText<wchar_t> url;
  if (WinHttpDetectAutoProxyConfigUrl(flags, url.put())) return {PlaceState::Found, url ? url.get() : L""};
  const DWORD error = GetLastError();
  if (error == ERROR_WINHTTP_AUTODETECTION_FAILED) return {};
  if (error == ERROR_CALL_NOT_IMPLEMENTED) return {.state = PlaceState::NotOnThisSystem};
  return {PlaceState::NotReadable, {}, error};
}

FetchedScript WindowsNetwork::fetch(const std::wstring& url) const {
  const auto target = cracked(url);
  if (!target) return {.error = GetLastError()};
  PlainRequest request(L"GET", target->host, target->port, target->path, target->tls);
  if (!request.send()) return {.error = GetLastError()};
  return {.status = request.status(), .contentType = request.contentType(), .beginning = request.beginning()};
}

std::optional<std::int64_t> WindowsNetwork::dateOf(const std::wstring& host, std::uint16_t port) const {
  PlainRequest request(L"HEAD", host, port, L"/", false);
  if (!request.send()) return std::nullopt;
  return request.date();
}

}  // namespace kiv::tool
