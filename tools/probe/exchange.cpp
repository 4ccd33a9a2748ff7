// One request of the probe in a WinHTTP session of its own.
#include "probe/exchange.h"

#include "common/ascii.h"
#include "common/presentable.h"

namespace kiv::tool {
namespace {

constexpr int kMostSends = 6;
constexpr DWORD kAnyCertificate = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                                  SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;

bool setOption(HINTERNET handle, DWORD option, DWORD value) {
  return WinHttpSetOption(handle, option, &value, sizeof(value)) != FALSE;
}

// A text that WinHTTP gives in two calls, of which the first says how many bytes it needs.
template <class Query>
std::wstring textFrom(Query query) {
  constexpr DWORD kLongest = 65536;
  DWORD size = 0;
  if (query(nullptr, &size) || GetLastError() != ERROR_INSUFFICIENT_BUFFER || size > kLongest) return {};
  std::wstring text(size / sizeof(wchar_t), L'\0');
  if (!query(text.data(), &size)) return {};
  text.resize(std::min<std::size_t>(text.find(L'\0'), size / sizeof(wchar_t)));
  return text;
}

}  // namespace

std::optional<Location> locate(const std::wstring& url) {
  constexpr auto kWanted = static_cast<DWORD>(-1);
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = kWanted;
  if (!WinHttpCrackUrl(url.c_str(), 0, 0, &parts)) return std::nullopt;
  Location location{.host = {parts.lpszHostName, parts.dwHostNameLength},
                    .port = parts.nPort,
                    .object = {parts.lpszUrlPath, parts.dwUrlPathLength},
                    .isHttps = parts.nScheme == INTERNET_SCHEME_HTTPS};
  for (wchar_t& c : location.host) c = asciiLower(c);
  const std::wstring_view extra(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  location.object += extra.substr(0, extra.find(L'#'));
  if (!location.object.starts_with(L'/')) location.object.insert(0, L"/");
  return location;
}

support::UniqueInternet Exchange::open(const ExchangePlan& plan) {
  const bool isDirect = plan.proxy.empty();
  const int limit = static_cast<int>(plan.limit.count());
  session_ = support::UniqueInternet(
      WinHttpOpen(plan.userAgent.c_str(), isDirect ? WINHTTP_ACCESS_TYPE_NO_PROXY : WINHTTP_ACCESS_TYPE_NAMED_PROXY,
                  isDirect ? WINHTTP_NO_PROXY_NAME : plan.proxy.c_str(), WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
  if (!session_ || !WinHttpSetTimeouts(session_.get(), limit, limit, limit, limit)) return {};
  connection_ = support::UniqueInternet(WinHttpConnect(session_.get(), plan.target.host.c_str(), plan.target.port, 0));
  if (!connection_) return {};
  support::UniqueInternet request(WinHttpOpenRequest(
      connection_.get(), plan.method, plan.target.object.c_str(), nullptr, WINHTTP_NO_REFERER,
      WINHTTP_DEFAULT_ACCEPT_TYPES, WINHTTP_FLAG_ESCAPE_DISABLE | (plan.target.isHttps ? WINHTTP_FLAG_SECURE : 0)));
  if (!request || !setOption(request.get(), WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_HIGH) ||
      (plan.ignoreCertErrors && plan.target.isHttps &&
       !setOption(request.get(), WINHTTP_OPTION_SECURITY_FLAGS, kAnyCertificate))) {
    return {};
  }
  return request;
}

Exchange::Exchange(const ExchangePlan& plan) {
  support::UniqueInternet request = open(plan);
  if (!request) error_ = GetLastError();
  request_.emplace(std::move(request), plan.limit, plan.purpose);
}

DWORD Exchange::run() {
  if (error_) return error_;
  DWORD error = ERROR_WINHTTP_RESEND_REQUEST;
  for (int sends = 0; sends < kMostSends && error == ERROR_WINHTTP_RESEND_REQUEST; ++sends) {
    error = request_->send();
    if (!error) error = request_->receive();
  }
  return error;
}

int Exchange::status() const {
  DWORD status = 0;
  DWORD size = sizeof(status);
  const bool good = WinHttpQueryHeaders(request_->handle(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                        WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
  return good ? static_cast<int>(status) : -1;
}

// As WinHTTP does unless told otherwise: to every proxy, and to servers of the intranet.
bool Exchange::mayLogOn() {
  return setOption(request_->handle(), WINHTTP_OPTION_AUTOLOGON_POLICY, WINHTTP_AUTOLOGON_SECURITY_LEVEL_MEDIUM);
}

std::wstring Exchange::contentType() const {
  return presentable(textFrom([&](wchar_t* buffer, DWORD* size) {
    return WinHttpQueryHeaders(request_->handle(), WINHTTP_QUERY_CONTENT_TYPE, WINHTTP_HEADER_NAME_BY_INDEX, buffer,
                               size, WINHTTP_NO_HEADER_INDEX);
  }));
}

std::wstring Exchange::finalHost() const {
  const std::optional<Location> location = locate(textFrom([&](wchar_t* buffer, DWORD* size) {
    return WinHttpQueryOption(request_->handle(), WINHTTP_OPTION_URL, buffer, size);
  }));
  return location ? presentable(location->host) : std::wstring();
}

}  // namespace kiv::tool
