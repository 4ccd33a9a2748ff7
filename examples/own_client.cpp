// An application that tests candidates with its own HTTP client, here WinINet, instead of the library's.
//
// What a client has to do: test() sends one request, with the proxy and the credentials that were set last, and returns
// the HTTP status, 401 and 407 included, or a negative number if there was no response. The library does the rest: it
// chooses the next proxy and asks for credentials.
#include <windows.h>
#include <wininet.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "kiv/kiv.hpp"

namespace {

struct CloseInternet {
  void operator()(HINTERNET handle) const { InternetCloseHandle(handle); }
};
using Internet = std::unique_ptr<void, CloseInternet>;

class WinInetClient {
 public:
  explicit WinInetClient(std::wstring url) : url_(std::move(url)) {}

  void set_proxy(const kiv::ProxyConfig& proxy) { proxy_ = proxy; }
  void set_server_cred(kiv::Credential cred) { cred_ = std::move(cred); }

  int head() const {
    URL_COMPONENTSW parts = {};
    parts.dwStructSize = sizeof parts;
    parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;
    if (!InternetCrackUrlW(url_.c_str(), 0, 0, &parts)) return -1;
    const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
    // The query follows the path in the same text.
    const std::wstring object(parts.lpszUrlPath, parts.dwUrlPathLength + parts.dwExtraInfoLength);

    const Internet session = open_session();
    const Internet connection(
        InternetConnectW(session.get(), host.c_str(), parts.nPort, nullptr, nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    const DWORD secure = parts.nScheme == INTERNET_SCHEME_HTTPS ? INTERNET_FLAG_SECURE : 0;
    const Internet request(
        HttpOpenRequestW(connection.get(), L"HEAD", object.c_str(), nullptr, nullptr, nullptr, secure | kFlags, 0));
    set_login(request.get(), INTERNET_OPTION_PROXY_USERNAME, INTERNET_OPTION_PROXY_PASSWORD, proxy_.cred());
    set_login(request.get(), INTERNET_OPTION_USERNAME, INTERNET_OPTION_PASSWORD, cred_);
    if (!HttpSendRequestW(request.get(), nullptr, 0, nullptr, 0)) return -1;
    return status_of(request.get());
  }

 private:
  // No response may come from a cache, and only the resolution asks for credentials.
  static constexpr DWORD kFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_COOKIES |
                                  INTERNET_FLAG_NO_UI | INTERNET_FLAG_KEEP_CONNECTION;

  // A new session for each request: a session keeps the proxy that it was opened with, and credentials that worked.
  Internet open_session() const {
    if (!proxy_.is_valid()) return Internet(InternetOpenW(L"example", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
    const std::wstring server = std::wstring(proxy_.is_http() ? L"http://" : L"socks=").append(proxy_.host()) + L":" +
                                std::to_wstring(proxy_.port_or_default().value_or(0));
    return Internet(InternetOpenW(L"example", INTERNET_OPEN_TYPE_PROXY, server.c_str(), nullptr, 0));
  }

  // WinINet answers a challenge with what is set here.
  static void set_login(HINTERNET request, DWORD user_option, DWORD password_option, const kiv::Credential& cred) {
    if (cred.is_none()) return;
    std::wstring user(cred.username());
    const kiv::SecureString password = cred.password();
    InternetSetOptionW(request, user_option, user.data(), static_cast<DWORD>(user.size()));
    InternetSetOptionW(request, password_option, const_cast<wchar_t*>(password.c_str()),
                       static_cast<DWORD>(password.size()));
  }

  static int status_of(HINTERNET request) {
    DWORD status = 0, size = sizeof status;
    if (!HttpQueryInfoW(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size, nullptr)) return -1;
    return static_cast<int>(status);
  }

  std::wstring url_;
  kiv::ProxyConfig proxy_;
  kiv::Credential cred_;
};

// The same login for the proxy and the server, to keep the example short.
int resolve(const wchar_t* url, const kiv::Credential& login) {
  WinInetClient client(url);
  kiv::Request request;
  request.url = url;
  request.user_agent = L"example";
  // This client supports HTTP and SOCKS 4 proxies only.
  request.filter = [](const kiv::ProxyConfig& candidate) { return !candidate.is_https() && !candidate.is_socks5(); };
  request.test = [&] { return client.head(); };
  request.set_proxy = [&](const kiv::ProxyConfig& proxy) { client.set_proxy(proxy); };
  request.set_server_cred = [&](kiv::Credential cred) { client.set_server_cred(std::move(cred)); };
  request.proxy_cred = [&](const kiv::ProxyConfig&) { return login; };
  request.server_cred = [&](std::wstring_view) { return login; };
  request.logger = [](const kiv::LogRecord& line) { std::fwprintf(stderr, L"%ls\n", line.message().data()); };

  const kiv::ProxyConfig found = kiv::resolve(request);
  if (found.is_none()) return 2;
  std::wprintf(L"%ls\n", found.display_string().c_str());
  return 0;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 2 && count != 4) {
    std::fwprintf(stderr, L"usage: own_client URL [USER PASSWORD]\n");
    return 64;
  }
  try {
    return resolve(arguments[1], count == 4 ? kiv::Credential(arguments[2], arguments[3]) : kiv::Credential());
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
