// The group "What WinHTTP does": facts about its requests that documentation leaves open.
#include <array>
#include <string>
#include <string_view>

#include "checks/checks.h"
#include "checks/first_bytes.h"
#include "checks/winhttp_request.h"
#include "common/console.h"
#include "ground/ground.h"

namespace selfcheck {
namespace {

using kiv::tool::toUtf8;

constexpr const wchar_t* kHost = L"target.test";
constexpr std::uint16_t kPort = 80;

std::string errorText(DWORD error) { return std::string("error ").append(std::to_string(error)); }

std::string sentText(DWORD status, DWORD error) {
  return status != 0 ? "the request got " + std::to_string(status) : "the request failed with " + errorText(error);
}

// Sets a proxy on a request as kiv does, and sends the request.
std::string tryProxy(std::wstring proxy) {
  WinHttpRequest request(kHost, kPort, L"/");
  std::wstring noBypass;
  WINHTTP_PROXY_INFO info{};
  info.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
  info.lpszProxy = proxy.data();
  info.lpszProxyBypass = noBypass.data();
  if (!WinHttpSetOption(request.handle(), WINHTTP_OPTION_PROXY, &info, sizeof(info))) {
    return "It was refused with " + errorText(GetLastError());
  }
  const DWORD status = request.send();
  return "It was accepted; " + sentText(status, request.error());
}

Finding factOfScheme(const wchar_t* scheme) {
  FirstBytes server;
  const std::string text = tryProxy(scheme + server.address());
  return {Verdict::Fact, text + "; the proxy received " + server.heard() + "."};
}
Finding factOfSocks4(Ground& /*ground*/) { return factOfScheme(L"socks4://"); }
Finding factOfSocks5(Ground& /*ground*/) { return factOfScheme(L"socks5://"); }
Finding factOfHttps(Ground& /*ground*/) { return factOfScheme(L"https://"); }
Finding factOfPort0(Ground& /*ground*/) { return {Verdict::Fact, tryProxy(L"http://127.0.0.1:0") + "."}; }
Finding factOfNoHost(Ground& /*ground*/) { return {Verdict::Fact, tryProxy(L"http://:8080") + "."}; }

Finding factOfObjectNames(Ground& ground) {
  constexpr const wchar_t* kNames[] = {L"", L"name", L"?query", L"name?query", L"/name"};
  std::string text;
  for (const wchar_t* const name : kNames) {
    ground.forget();
    WinHttpRequest request(L"127.0.0.1", ground.port(Server::Site), name);
    const DWORD status = request.send();
    const std::vector<Asked> asked = ground.asked(Server::Site);
    text.append(text.empty() ? "\"" : " \"").append(toUtf8(name)).append("\": ");
    if (asked.empty()) {
      text.append(sentText(status, request.error())).append(".");
    } else {
      text.append("asks for \"").append(asked.front().target).append("\".");
    }
  }
  return {Verdict::Fact, text};
}

Finding factOfBigBodyAt401(Ground& ground) {
  WinHttpRequest request(L"127.0.0.1", ground.port(Server::Site), L"/big401");
  if (request.send() != HTTP_STATUS_DENIED) return {Verdict::Fail, "The site's 401 did not arrive."};
  if (!WinHttpSetCredentials(request.handle(), WINHTTP_AUTH_TARGET_SERVER, WINHTTP_AUTH_SCHEME_BASIC, kUser, kPassword,
                             nullptr)) {
    return {Verdict::Fact, "The credentials were refused with " + errorText(GetLastError()) + "."};
  }
  const DWORD status = request.send();
  return {Verdict::Fact, "The body was not read, and sent again, " + sentText(status, request.error()) + "."};
}

// The proxy closes the connection at the first token, and looks at none.
Finding factOfLoggedOnUser(Ground& ground) {
  WinHttpRequest request(kHost, kPort, L"/", ground.address(Server::OfferingProxy));
  request.send();
  const std::vector<Asked> asked = ground.asked(Server::OfferingProxy);
  if (asked.empty()) return {Verdict::Fail, "The proxy was not asked."};
  for (const Asked& each : asked) {
    if (!each.scheme.empty()) return {Verdict::Fact, "The proxy was offered a token of " + each.scheme + "."};
  }
  return {Verdict::Fact, "The proxy was offered no token."};
}

constexpr Check kChecks[] = {
    {"fact-proxy-socks4", "What becomes of a proxy \"socks4://\" that is set on a request?", factOfSocks4},
    {"fact-proxy-socks5", "What becomes of a proxy \"socks5://\" that is set on a request?", factOfSocks5},
    {"fact-proxy-https", "What becomes of a proxy \"https://\" that is set on a request?", factOfHttps},
    {"fact-proxy-port-0", "What becomes of a proxy with port 0?", factOfPort0},
    {"fact-proxy-without-host", "What becomes of a proxy without a host?", factOfNoHost},
    {"fact-object-names", "What does a request ask for whose object name has no slash?", factOfObjectNames},
    {"fact-big-body-at-a-401", "Can a request be sent again after a 401 with 2 MB?", factOfBigBodyAt401},
    {"fact-logged-on-user", "Are the logged-on user's credentials offered to a proxy?", factOfLoggedOnUser},
};

}  // namespace

Group requestFacts() { return {"What WinHTTP does", kChecks}; }

}  // namespace selfcheck
