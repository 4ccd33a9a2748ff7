// An application that runs for long, here a downloader with WinHTTP, and asks the session how to connect before each
// transfer: it uses the session's credentials for the proxy, and tells the session what did not work.
//
//   session_downloader [--login USER PASSWORD] URL...
#include <windows.h>
#include <winhttp.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "kiv/session.h"

namespace {

struct Release {
  void operator()(KivSession* session) const { KivSession_Destruct(session); }
  void operator()(KivDecision* decision) const { KivDecision_Release(decision); }
};
using Session = std::unique_ptr<KivSession, Release>;
using Decision = std::unique_ptr<KivDecision, Release>;

struct CloseInternet {
  void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using Internet = std::unique_ptr<std::remove_pointer_t<HINTERNET>, CloseInternet>;

// What answers a proxy that asks for credentials: at once, from the command line. An application with a window shows a
// dialog instead, and answers when the user has.
struct Login {
  std::wstring user;
  std::wstring password;
};

void answer(void* context, KivChallenge* challenge) {
  const auto& login = *static_cast<const Login*>(context);
  if (!KivChallenge_IsWithdrawn(challenge) && !login.user.empty()) {
    KivChallenge_Answer(challenge, login.user.c_str(), login.password.c_str());
  }
  KivChallenge_Release(challenge);  // one that was not answered is declined
}

Session create_session(Login& login) {
  KivSession* session = nullptr;
  if (KivSession_Create(L"example", &session) != KIV_STATUS_OK) return nullptr;
  KivSession_SetCredentialCallback(session, answer, &login);
  // WinHTTP speaks neither SOCKS nor TLS to proxies, so that such a proxy is no answer for this application.
  KivSession_SetText(session, KIV_OPTION_LEFT_OUT, L"socks4://*;socks5://*;https://*");
  return Session(session);
}

// One transfer by one route.
class Transfer {
 public:
  Transfer(const std::wstring& url, const KivDecision* decision) : decision_(decision) {
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof parts;
    parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = 1;
    if (!WinHttpCrackUrl(url.c_str(), 0, 0, &parts)) return;
    const std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
    const std::wstring object(parts.lpszUrlPath, parts.dwUrlPathLength + parts.dwExtraInfoLength);
    internet_ = open();
    connection_.reset(WinHttpConnect(internet_.get(), host.c_str(), parts.nPort, 0));
    const DWORD secure = parts.nScheme == INTERNET_SCHEME_HTTPS ? WINHTTP_FLAG_SECURE : 0;
    request_.reset(WinHttpOpenRequest(connection_.get(), L"GET", object.c_str(), nullptr, WINHTTP_NO_REFERER,
                                      WINHTTP_DEFAULT_ACCEPT_TYPES, secure));
  }

  // The HTTP status, or 0 if there was no response: error() says why.
  DWORD run() {
    DWORD status = send();
    if (status != HTTP_STATUS_PROXY_AUTH_REQ) return status;
    return KivDecision_Credentials(decision_, this, use_credentials) == KIV_STATUS_OK ? send() : status;
  }
  DWORD error() const { return error_; }

 private:
  Internet open() const {
    if (KivDecision_Kind(decision_) != KIV_KIND_PROXY) {
      return Internet(WinHttpOpen(L"example", WINHTTP_ACCESS_TYPE_NO_PROXY, nullptr, nullptr, 0));
    }
    const std::wstring_view proxy = KivDecision_ProxyUrl(decision_);
    const std::wstring server(proxy.substr(proxy.find(L"://") + 3));
    return Internet(WinHttpOpen(L"example", WINHTTP_ACCESS_TYPE_NAMED_PROXY, server.c_str(), nullptr, 0));
  }

  // The password is the session's, and in clear only while this function runs.
  static void use_credentials(void* context, const wchar_t* user, const wchar_t* password) {
    auto& self = *static_cast<Transfer*>(context);
    DWORD supported = 0;
    DWORD first = 0;
    DWORD target = 0;
    if (!WinHttpQueryAuthSchemes(self.request_.get(), &supported, &first, &target)) return;
    const DWORD proved = KivDecision_AuthScheme(self.decision_);
    WinHttpSetCredentials(self.request_.get(), WINHTTP_AUTH_TARGET_PROXY, proved != 0 ? proved : first, user, password,
                          nullptr);
  }

  DWORD send() {
    if (!WinHttpSendRequest(request_.get(), nullptr, 0, nullptr, 0, 0, 0) ||
        !WinHttpReceiveResponse(request_.get(), nullptr)) {
      error_ = GetLastError();
      return 0;
    }
    DWORD status = 0;
    DWORD size = sizeof status;
    WinHttpQueryHeaders(request_.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status, &size,
                        nullptr);
    return status;
  }

  const KivDecision* decision_;
  Internet internet_;
  Internet connection_;
  Internet request_;
  DWORD error_ = ERROR_SUCCESS;
};

// Why a transfer failed, as the session wants to know it; 0 if that is not the route's fault.
DWORD failure_of(const KivDecision* decision, DWORD status, DWORD error) {
  if (status == HTTP_STATUS_PROXY_AUTH_REQ) return KIV_FAILURE_PROXY_CREDENTIALS;
  if (status != 0) return 0;
  const bool unreachable = error == ERROR_WINHTTP_CANNOT_CONNECT || error == ERROR_WINHTTP_NAME_NOT_RESOLVED;
  return unreachable && KivDecision_Kind(decision) == KIV_KIND_PROXY ? KIV_FAILURE_PROXY_UNREACHABLE
                                                                     : KIV_FAILURE_TARGET;
}

// A transfer that fails by a kept route is tried once more by a new one.
bool download(KivSession* session, const std::wstring& url) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    KivDecision* made = nullptr;
    const KivStatus result = KivSession_Resolve(session, url.c_str(), 0, &made);
    const Decision decision(made);
    if (result != KIV_STATUS_OK || KivDecision_Kind(made) == KIV_KIND_NONE) {
      std::fwprintf(stderr, L"%ls: %ls\n", url.c_str(),
                    KivStatus_Text(result != KIV_STATUS_OK ? result : KivDecision_Reason(made)));
      return false;
    }
    Transfer transfer(url, made);
    const DWORD status = transfer.run();
    const DWORD failure = failure_of(made, status, transfer.error());
    if (failure == 0) {
      const bool proxied = KivDecision_Kind(made) == KIV_KIND_PROXY;
      std::wprintf(L"%lu by %ls\n", status, proxied ? KivDecision_ProxyUrl(made) : L"DIRECT");
      return true;
    }
    KivSession_ReportFailure(session, made, failure);
  }
  std::fwprintf(stderr, L"%ls: no route works\n", url.c_str());
  return false;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  Login login;
  int first = 1;
  if (count > 3 && std::wstring_view(arguments[1]) == L"--login") {
    login = {arguments[2], arguments[3]};
    first = 4;
  }
  if (count <= first) {
    std::fwprintf(stderr, L"usage: session_downloader [--login USER PASSWORD] URL...\n");
    return 64;
  }
  const Session session = create_session(login);
  if (!session) return 1;
  bool all = true;
  for (int i = first; i < count; ++i) all = download(session.get(), arguments[i]) && all;
  return all ? 0 : 2;
}
