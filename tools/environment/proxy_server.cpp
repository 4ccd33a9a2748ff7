// A resolved proxy as the URL that programs read in their settings.
#include "environment/proxy_server.h"

#include "common/ascii.h"

namespace kiv::tool {
namespace {

void append(Wiped<wchar_t>& text, std::wstring_view more) { text.insert(text.end(), more.begin(), more.end()); }

// What RFC 3986 calls unreserved.
bool isPlain(char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == '-' || c == '.' || c == '_' || c == '~'; }

Wiped<char> utf8Of(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  Wiped<char> utf8(static_cast<std::size_t>(size));
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
  return utf8;
}

void appendEncoded(Wiped<wchar_t>& text, std::wstring_view more) {
  constexpr std::wstring_view kDigits = L"0123456789ABCDEF";
  for (const char c : utf8Of(more)) {
    const auto byte = static_cast<unsigned char>(c);
    if (isPlain(c)) {
      text.push_back(byte);
    } else {
      for (const wchar_t shown : {L'%', kDigits[byte / 16], kDigits[byte % 16]}) text.push_back(shown);
    }
  }
}

}  // namespace

std::optional<ProxyServer> readProxyServer(const ProxyConfig& proxy) {
  const int port = proxy.port_or_default().value_or(0);
  if (proxy.host().empty() || port < 1 || port > 65535) return std::nullopt;
  return ProxyServer{std::wstring(proxy.scheme()), std::wstring(proxy.host()), port};
}

Wiped<wchar_t> urlOf(const ProxyServer& proxy, std::wstring_view userInfo) {
  Wiped<wchar_t> url;
  append(url, proxy.scheme);
  append(url, L"://");
  append(url, userInfo);
  append(url, proxy.host);
  append(url, L":" + std::to_wstring(proxy.port));
  return url;
}

Wiped<wchar_t> userInfoOf(const Credential& cred) {
  Wiped<wchar_t> text;
  if (cred.is_none()) return text;
  appendEncoded(text, cred.username());
  text.push_back(L':');
  appendEncoded(text, cred.password().view());
  text.push_back(L'@');
  return text;
}

}  // namespace kiv::tool
