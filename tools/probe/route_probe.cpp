// The probe of one route: a request of the tool's own beside the one of kiv.dll, of which more is known.
#include "probe/route_probe.h"

#include <algorithm>

#include "common/presentable.h"
#include "http/auth_scheme.h"
#include "probe/addresses.h"
#include "probe/certificates.h"
#include "probe/exchange.h"

namespace kiv::tool {
namespace {

constexpr unsigned kLogOnSchemes = WINHTTP_AUTH_SCHEME_NEGOTIATE | WINHTTP_AUTH_SCHEME_NTLM;

// The errors of a certificate that Windows refuses, and of TLS that fails for any reason.
constexpr unsigned kTlsErrors[] = {
    ERROR_WINHTTP_SECURE_FAILURE,         ERROR_WINHTTP_SECURE_CHANNEL_ERROR, ERROR_WINHTTP_SECURE_CERT_DATE_INVALID,
    ERROR_WINHTTP_SECURE_CERT_CN_INVALID, ERROR_WINHTTP_SECURE_INVALID_CA,    ERROR_WINHTTP_SECURE_INVALID_CERT,
    ERROR_WINHTTP_SECURE_CERT_REVOKED,
};

class RouteProbe {
 public:
  RouteProbe(const ProbePlan& plan, const Location& target)
      : plan_(plan), target_(target), exchange_(planOf(Purpose::Answer)) {}

  void run(RouteFindings& findings) {
    findings.error = converse(findings.challenges);
    ObservedRequest& request = exchange_.request();
    findings.duration = request.sinceBegin();
    findings.phases = phasesOf(request.notices(), target_.isHttps);
    findings.redirects = redirects();
    if (!findings.error) {
      findings.status = exchange_.status();
      findings.finalHost = finalHost(findings.redirects);
    }
    findings.certificate = certificate(findings.error);
  }

 private:
  ExchangePlan planOf(Purpose purpose) const {
    const bool answer = purpose == Purpose::Answer;
    ExchangePlan plan{.target = target_,
                      .userAgent = plan_.userAgent,
                      .method = plan_.method,
                      .ignoreCertErrors = plan_.ignoreCertErrors || !answer,
                      .limit = plan_.limit,
                      .purpose = purpose};
    // Nothing of the URL is shown to a server that this machine does not trust.
    if (!answer) plan.target.object = L"/";
    const ProxyConfig& route = plan_.route;
    if (route.is_valid()) plan.proxy = std::wstring(route.host()) + L":" + std::to_wstring(*route.port_or_default());
    return plan;
  }

  // Answers each challenge once.
  DWORD converse(std::vector<Challenge>& challenges) {
    while (true) {
      const DWORD error = exchange_.run();
      const int status = error ? 0 : exchange_.status();
      for (Challenge& challenge : challenges) {
        challenge.accepted = challenge.used && status > 0 && status != statusOf(challenge);
      }
      if (status != HTTP_STATUS_PROXY_AUTH_REQ && status != HTTP_STATUS_DENIED) return error;
      if (std::ranges::count(challenges, status, statusOf) > 0) return error;
      if (!answer(challenges.emplace_back(Challenge{.byProxy = status == HTTP_STATUS_PROXY_AUTH_REQ}))) return error;
    }
  }

  static int statusOf(const Challenge& challenge) {
    return challenge.byProxy ? HTTP_STATUS_PROXY_AUTH_REQ : HTTP_STATUS_DENIED;
  }

  // False if there is nothing to answer with.
  bool answer(Challenge& challenge) {
    const HINTERNET request = exchange_.request().handle();
    DWORD offered = 0;
    DWORD first = 0;
    DWORD target = 0;
    if (!WinHttpQueryAuthSchemes(request, &offered, &first, &target)) return false;
    challenge.offered = offered;
    if (!plan_.answersChallenges) return false;
    const Credential& cred = challenge.byProxy ? plan_.proxyCred : plan_.serverCred;
    const std::optional<DWORD> scheme = chosen(challenge, cred.is_none());
    if (!scheme) return false;
    challenge.asLoggedOnUser = cred.is_none();
    if (!(cred.is_none() ? exchange_.mayLogOn() : give(cred, challenge, *scheme))) return false;
    challenge.used = *scheme;
    return true;
  }

  // As kiv.dll chooses.
  std::optional<DWORD> chosen(const Challenge& challenge, bool asLoggedOnUser) const {
    const DWORD offered = asLoggedOnUser ? challenge.offered & kLogOnSchemes : challenge.offered;
    return challenge.byProxy ? impl::chooseScheme(offered) : impl::chooseServerScheme(offered, target_.isHttps);
  }

  bool give(const Credential& cred, const Challenge& challenge, DWORD scheme) {
    const SecureString password = cred.password();
    return WinHttpSetCredentials(exchange_.request().handle(),
                                 challenge.byProxy ? WINHTTP_AUTH_TARGET_PROXY : WINHTTP_AUTH_TARGET_SERVER, scheme,
                                 std::wstring(cred.username()).c_str(), password.c_str(), nullptr) != FALSE;
  }

  std::vector<std::wstring> redirects() {
    std::vector<std::wstring> urls;
    for (const Notice& notice : exchange_.request().notices()) {
      if (notice.status == WINHTTP_CALLBACK_STATUS_REDIRECT) urls.push_back(presentable(notice.text));
    }
    return urls;
  }

  // Wine's WinHTTP does not tell the URL at the end, but each redirect.
  std::wstring finalHost(const std::vector<std::wstring>& redirects) const {
    const std::wstring told = exchange_.finalHost();
    if (!told.empty()) return told;
    const auto last = redirects.empty() ? std::nullopt : locate(redirects.back());
    return presentable(last ? last->host : target_.host);
  }

  // Of the first host that was connected to with TLS: that of the URL, or of a redirect.
  std::optional<Certificate> certificate(DWORD error) {
    ObservedRequest& request = exchange_.request();
    const std::wstring host = securedHost(request.notices());
    if (request.certificate()) return describe(request.certificate().get(), host);
    if (!target_.isHttps || std::ranges::count(kTlsErrors, error) == 0) return std::nullopt;
    Exchange look(planOf(Purpose::CertificateAlone));
    look.run();
    if (!look.request().certificate()) return std::nullopt;
    Certificate refused = describe(look.request().certificate().get(), host);
    // What WinHTTP says about the request that failed is the reason; Wine's does not say it.
    if (request.tlsFailure()) refused.problems = request.tlsFailure();
    refused.refused = true;
    return refused;
  }

  std::wstring securedHost(const std::vector<Notice>& notices) const {
    std::wstring host = target_.host;
    for (const Notice& notice : notices) {
      if (notice.hasCertificate) break;
      const auto next = notice.status == WINHTTP_CALLBACK_STATUS_REDIRECT ? locate(notice.text) : std::nullopt;
      if (next) host = next->host;
    }
    return presentable(host);
  }

  const ProbePlan& plan_;
  const Location& target_;
  Exchange exchange_;
};

// Why WinHTTP cannot use a route; null if it can.
const wchar_t* obstacleTo(const ProxyConfig& route) {
  if (route.is_direct()) return nullptr;
  if (!route.is_http()) return L"WinHTTP supports HTTP proxies only";
  return route.host().empty() || route.port_or_default().value_or(0) == 0 ? L"the proxy has no host or no port"
                                                                          : nullptr;
}

}  // namespace

RouteFindings probeRoute(const ProbePlan& plan) {
  const ProxyConfig& route = plan.route;
  RouteFindings findings{.route = presentable(route.display_string())};
  const std::optional<Location> target = locate(plan.url);
  if (!target) {
    findings.notProbed = L"WinHTTP cannot read the URL";
  } else if (const wchar_t* const obstacle = obstacleTo(route)) {
    findings.notProbed = obstacle;
  } else {
    findings.host = presentable(target->host);
    findings.addresses = lookUp(route.is_direct() ? target->host : std::wstring(route.host()));
    RouteProbe(plan, *target).run(findings);
  }
  return findings;
}

}  // namespace kiv::tool
