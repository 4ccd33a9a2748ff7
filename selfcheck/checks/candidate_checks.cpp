// The group "Candidates and PAC scripts": what a resolution of kiv.dll tests, in which order, and what it makes of it.
#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "checks/checks.h"
#include "checks/expectations.h"
#include "checks/own_settings.h"
#include "checks/script_file.h"
#include "common/console.h"
#include "ground/ground.h"
#include "kiv/kiv.hpp"

namespace selfcheck {
namespace {

using kiv::Credential;
using kiv::ProxyConfig;
using kiv::Request;
using kiv::tool::toUtf8;

constexpr int kOk = 200;
constexpr int kFailed = -1;

// Candidates of these hosts and of no others: what stands in the user's settings is not tested.
constexpr std::array<std::wstring_view, 4> kOwnHosts = {L"first.test", L"second.test", L"third.test", L"fourth.test"};

bool isOwn(const ProxyConfig& candidate) { return std::ranges::count(kOwnHosts, candidate.host()) != 0; }

ProxyConfig own(std::size_t which) { return ProxyConfig::http(kOwnHosts[which], 8080); }

Request requestFor(const std::wstring& url) {
  Request request;
  request.url = url;
  request.user_agent = kAgent;
  request.bypass_list = L"";
  request.filter = [](const ProxyConfig& candidate) { return candidate.is_direct() || isOwn(candidate); };
  return request;
}

// A resolution of an application that answers its test requests itself.
struct Resolved {
  std::vector<std::wstring> tried;
  ProxyConfig found;
};

Resolved resolveWith(Request request, const std::function<int(const ProxyConfig& candidate)>& answer) {
  Resolved resolved;
  ProxyConfig installed;
  request.set_proxy = [&](const ProxyConfig& proxy) {
    resolved.tried.push_back(proxy.display_string());
    installed = proxy;
  };
  request.set_server_cred = [](const Credential&) {};
  request.test = [&] { return answer(installed); };
  resolved.found = kiv::resolve(request);
  return resolved;
}

int works(const ProxyConfig& /*candidate*/) { return kOk; }
int fails(const ProxyConfig& /*candidate*/) { return kFailed; }

// Whether the application was handed exactly these own candidates, in this order.
bool were(const std::vector<std::wstring>& tried, const std::vector<std::size_t>& expected) {
  return std::ranges::equal(tried, expected, {}, {}, [](std::size_t which) { return own(which).display_string(); });
}

// ---- Candidates of the application

Finding testsEveryKind(Ground& /*ground*/) {
  const ProxyConfig kinds[] = {ProxyConfig::direct(), ProxyConfig::http(kOwnHosts[0]), ProxyConfig::https(kOwnHosts[0]),
                               ProxyConfig::socks4(kOwnHosts[0]), ProxyConfig::socks5(kOwnHosts[0])};
  Expectations expected;
  for (const ProxyConfig& kind : kinds) {
    Request request = requestFor(kTarget);
    request.preferred = kind;
    const Resolved resolved = resolveWith(request, works);
    expected.that(resolved.tried.size() == 1 && resolved.tried.front() == kind.display_string() &&
                      resolved.found.scheme() == kind.scheme(),
                  "A candidate of kind " + toUtf8(kind.scheme()) + " was not tested and found");
  }
  return expected.finding("Direct, HTTP, HTTPS, SOCKS 4 and SOCKS 5 were each tested and found.");
}

Finding keepsTheOrder(Ground& /*ground*/) {
  Request request = requestFor(kTarget);
  request.preferred = own(0);
  request.fallback = own(1);
  const Resolved first = resolveWith(request, works);
  const Resolved second =
      resolveWith(request, [](const auto& proxy) { return proxy.host() == kOwnHosts[1] ? 204 : 502; });
  const Resolved none = resolveWith(request, fails);
  Expectations expected;
  expected.that(were(first.tried, {0}) && first.found.host() == kOwnHosts[0],
                "When both candidates work, the preferred one was not the result");
  expected.that(were(second.tried, {0, 1}) && second.found.host() == kOwnHosts[1],
                "When only the fallback works, it was not the result");
  expected.that(were(none.tried, {0, 1}) && none.found.is_none(), "When nothing works, the result was not None");
  return expected.finding(
      "The preferred candidate was tested first, the fallback last; the first that works is the result.");
}

Finding obeysBypassList(Ground& /*ground*/) {
  struct Case {
    const wchar_t* list;
    bool matches;
  };
  constexpr Case kCases[] = {{L"*.test", true},   {L"TARGET.test", true},      {L"target.test:80", true},
                             {L"", false},        {L"*.other.test", false},    {L"https://*", false},
                             {L"<local>", false}, {L"target.test:8080", false}};
  Expectations expected;
  for (const auto& [list, matches] : kCases) {
    Request request = requestFor(kTarget);
    request.preferred = own(0);
    request.bypass_list = list;
    const Resolved resolved = resolveWith(request, works);
    expected.that(resolved.found.is_direct() == matches && resolved.tried.empty() == matches,
                  "The list \"" + toUtf8(list) + "\" was not obeyed");
  }
  return expected.finding("What the list names is direct and not tested; all else is tested.");
}

// ---- Candidates of settings

// Runs a check that needs settings of its own.
Finding withSettings(const ProxySettings& settings, const std::function<Finding()>& check) {
  const OwnSettings own(settings);
  if (own.areRead()) return check();
  return {Verdict::Skipped, "This Windows reads settings where only the user's are, and those are never changed."};
}

std::wstring listOf(const std::vector<std::size_t>& candidates) {
  std::wstring list;
  for (const std::size_t which : candidates) list += (list.empty() ? L"" : L";") + own(which).to_string(false);
  return list;
}

Finding takesManualList(Ground& /*ground*/) {
  return withSettings({.proxies = listOf({1, 2})}, [] {
    Request request = requestFor(kTarget);
    request.preferred = own(0);
    request.fallback = own(3);
    Expectations expected;
    expected.that(were(resolveWith(request, fails).tried, {0, 1, 2, 3}),
                  "The candidates were not the preferred one, the list's, and the fallback");
    return expected.finding("The list's proxies were tested in its order, between the preferred one and the fallback.");
  });
}

Finding takesBypassListOfSettings(Ground& /*ground*/) {
  return withSettings({.proxies = listOf({0}), .bypass = L"*.test"}, [] {
    Request request = requestFor(kTarget);
    request.bypass_list.reset();
    const Resolved bypassed = resolveWith(request, works);
    request.bypass_list = L"";
    const Resolved tested = resolveWith(request, works);
    Expectations expected;
    expected.that(bypassed.found.is_direct() && bypassed.tried.empty(), "The settings' bypass list was not obeyed");
    expected.that(were(tested.tried, {0}), "The application's list did not replace the settings'");
    return expected.finding("The settings' list was obeyed; the application's replaces it.");
  });
}

// Names two proxies for the target, and the direct connection for all else.
std::string scriptForTarget() {
  return "function FindProxyForURL(url, host) {\n"
         "  if (host != 'target.test') return 'DIRECT';\n"
         "  return 'PROXY first.test:8080; PROXY second.test:8080';\n"
         "}\n";
}

Finding judgeScript() {
  const Resolved resolved = resolveWith(requestFor(kTarget), fails);
  if (were(resolved.tried, {0})) {
    return {Verdict::Fail, "Of the two proxies that the script names, only the first became a candidate."};
  }
  Expectations expected;
  expected.that(were(resolved.tried, {0, 1}), "The proxies that the script names were not the candidates");
  expected.that(resolveWith(requestFor(L"http://other.test/"), works).found.is_direct(),
                "Where the script says DIRECT, the result was not Direct");
  return expected.finding("The proxies that the script names became the candidates, in its order.");
}

Finding runsScriptOfSettings(Ground& ground) {
  return withSettings({.script = ground.scriptUrl(scriptForTarget())}, judgeScript);
}

// Of DIRECT the engine for local scripts makes another answer than WinHTTP does, so only the target is asked about.
Finding runsScriptFileOfSettings(Ground& /*ground*/) {
  const ScriptFile file(scriptForTarget());
  return withSettings({.script = L"file://" + file.path()}, [] {
    Expectations expected;
    expected.that(were(resolveWith(requestFor(kTarget), fails).tried, {0, 1}),
                  "The proxies that the script names were not the candidates");
    return expected.finding("The proxies that the script names became the candidates, in its order.");
  });
}

// ---- Candidates that the built-in client tests

ProxyConfig proxyOf(const Ground& ground, Server server) {
  return ProxyConfig::http(L"127.0.0.1", ground.port(server));
}

// For candidates of the ground: their ports say which they are.
Request requestTo(const Ground& ground, const std::wstring& url, const std::vector<Server>& candidates) {
  Request request = requestFor(url);
  std::vector<int> ports;
  for (const Server server : candidates) ports.push_back(ground.port(server));
  request.filter = [ports](const ProxyConfig& candidate) {
    return candidate.is_direct() || (candidate.host() == L"127.0.0.1" &&
                                     std::ranges::count(ports, candidate.port_or_default().value_or(-1)) != 0);
  };
  return request;
}

Finding findsTheDirectConnection(Ground& ground) {
  Request request = requestTo(ground, ground.url("/"), {});
  request.preferred = ProxyConfig::direct();
  const ProxyConfig found = kiv::resolve_with_client(request);
  Expectations expected;
  expected.that(found.is_direct(), "The direct connection was not the result");
  expected.that(ground.asked(Server::Site).size() == 1, "The site was not asked once");
  return expected.finding("The site was asked once, and the direct connection is the result.");
}

Finding passesOver(Ground& ground, Server server, bool isAsked) {
  Request request = requestTo(ground, kTarget, {server, Server::OpenProxy});
  request.preferred = proxyOf(ground, server);
  request.fallback = proxyOf(ground, Server::OpenProxy);
  const ProxyConfig found = kiv::resolve_with_client(request);
  Expectations expected;
  expected.that(!isAsked || !ground.asked(server).empty(), "The first proxy was not asked");
  expected.that(!ground.asked(Server::OpenProxy).empty(), "The second proxy was not asked");
  expected.that(found.port() == int{ground.port(Server::OpenProxy)}, "The second proxy was not the result");
  return expected.finding("The proxy was passed over, and the next one is the result.");
}
Finding passesOverDeadProxy(Ground& ground) { return passesOver(ground, Server::DeadProxy, false); }
Finding passesOverResettingProxy(Ground& ground) { return passesOver(ground, Server::ResettingProxy, true); }

// How often an application was asked for credentials.
struct Asking {
  int times = 0;
  Credential answer;
};

bool endsWith(const std::vector<Asked>& asked, int status) { return !asked.empty() && asked.back().answer == status; }

Finding answersProxyOnce(Ground& ground) {
  Expectations expected;
  for (const bool right : {true, false}) {
    ground.forget();
    Asking asking{.answer = Credential(kUser, right ? kPassword : L"wrong")};
    Request request = requestTo(ground, kTarget, {Server::BasicProxy});
    request.preferred = proxyOf(ground, Server::BasicProxy);
    request.proxy_cred = [&](const ProxyConfig&) { return ++asking.times, asking.answer; };
    const ProxyConfig found = kiv::resolve_with_client(request);
    if (ground.asked(Server::BasicProxy).empty()) return {Verdict::Fail, "The proxy was not asked."};
    const std::string which = right ? "right" : "wrong";
    expected.that(asking.times == 1, "With the " + which + " password, the application was not asked for it once");
    expected.that(endsWith(ground.asked(Server::BasicProxy), right ? kOk : 407),
                  "The proxy did not get the " + which + " password");
    expected.that(found.is_none() != right && found.has_cred() == right,
                  "With the " + which + " password, the result was not the one expected");
  }
  return expected.finding("The application was asked once; the right password lets pass, the wrong one does not.");
}

// Lets the built-in client send Basic credentials without TLS, as long as it stands.
class InsecureSchemesAllowed {
 public:
  InsecureSchemesAllowed() { SetEnvironmentVariableW(kName, L"1"); }
  InsecureSchemesAllowed(const InsecureSchemesAllowed&) = delete;
  InsecureSchemesAllowed& operator=(const InsecureSchemesAllowed&) = delete;
  ~InsecureSchemesAllowed() { SetEnvironmentVariableW(kName, nullptr); }

 private:
  static constexpr const wchar_t* kName = L"PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME";
};

Finding answersServerOnce(Ground& ground) {
  const InsecureSchemesAllowed allowed;
  Expectations expected;
  for (const bool right : {true, false}) {
    ground.forget();
    Asking asking{.answer = Credential(kUser, right ? kPassword : L"wrong")};
    Request request = requestTo(ground, ground.url("/401"), {});
    request.preferred = ProxyConfig::direct();
    request.server_cred = [&](std::wstring_view) { return ++asking.times, asking.answer; };
    const ProxyConfig found = kiv::resolve_with_client(request);
    const std::string which = right ? "right" : "wrong";
    expected.that(asking.times == 1, "With the " + which + " password, the application was not asked for it once");
    expected.that(endsWith(ground.asked(Server::Site), right ? kOk : 401),
                  "The site did not get the " + which + " password");
    expected.that(found.is_direct() == right && found.is_none() != right,
                  "With the " + which + " password, the result was not the one expected");
  }
  return expected.finding("The application was asked once; the right password lets pass, the wrong one does not.");
}

constexpr Check kChecks[] = {
    {"every-kind-of-candidate", "Is every kind of candidate tested?", testsEveryKind},
    {"the-order-of-candidates", "Is the first candidate that works the result?", keepsTheOrder},
    {"the-bypass-list", "Does the bypass list decide?", obeysBypassList},
    {"a-manual-list", "Are the proxies of a manual list candidates?", takesManualList},
    {"the-bypass-list-of-settings", "Is the bypass list of the settings obeyed?", takesBypassListOfSettings},
    {"a-script-of-settings", "Is a PAC script of the settings downloaded and run?", runsScriptOfSettings},
    {"a-script-in-a-file", "Is a PAC script in a file run?", runsScriptFileOfSettings},
    {"the-direct-connection", "Does the built-in client test the direct connection?", findsTheDirectConnection},
    {"a-dead-proxy", "Is a proxy that refuses connections passed over?", passesOverDeadProxy},
    {"a-resetting-proxy", "Is a proxy that resets connections passed over?", passesOverResettingProxy},
    {"a-407-once", "Is a proxy's 407 answered once?", answersProxyOnce},
    {"a-401-once", "Is a site's 401 answered once?", answersServerOnce},
};

}  // namespace

Group candidateChecks() { return {"Candidates and PAC scripts", kChecks}; }

}  // namespace selfcheck
