// The second look at a resolution: each route that was tested, and the PAC script, with requests of the tool's own.
#include "resolve/resolution_probe.h"

#include <algorithm>
#include <string>

#include "common/presentable.h"
#include "probe/certificates.h"
#include "probe/route_probe.h"
#include "probe/script_probe.h"
#include "resolve/user_settings.h"

namespace kiv::tool {
namespace {

class ResolutionProbe {
 public:
  ResolutionProbe(const RequestOptions& options, const Target& target, milliseconds spent, Display& display)
      : options_(options), target_(target), display_(display), spent_(spent), began_(Clock::now()) {}

  // The winner has the credentials that worked. A direct connection that needed no test is probed too: it is the route.
  ProbeFindings findingsOn(const Resolution& resolution) {
    ProbeFindings findings;
    const auto winner = resolution.winner();
    for (std::size_t i = 0; i < resolution.candidates.size(); ++i) {
      const Candidate& candidate = resolution.candidates[i];
      if (candidate.requests.empty()) continue;
      const ProxyConfig& route = winner == i && !resolution.found.is_none() ? resolution.found : candidate.route;
      findings.routes.push_back(findingsOn(route, !candidate.rejectsCredentials()));
      findings.routes.back().candidate = i;
    }
    if (resolution.found.is_direct() && findings.routes.empty()) {
      findings.routes.push_back(findingsOn(resolution.found, true));
    }
    findings.script = findingsOnScript();
    return findings;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // For all that is done with one route, or with the PAC script.
  milliseconds limit() const {
    constexpr milliseconds kMost{15'000};
    return timeLeft(options_, spent_ + std::chrono::duration_cast<milliseconds>(Clock::now() - began_), kMost);
  }

  std::wstring shown(std::wstring_view text) const {
    return options_.redaction ? (*options_.redaction)(presentable(text)) : presentable(text);
  }

  RouteFindings findingsOn(const ProxyConfig& route, bool answersChallenges) {
    const milliseconds left = limit();
    if (left == milliseconds::zero())
      return {.route = presentable(route.display_string()), .notProbed = L"the time is up (--max-time)"};
    display_.probeBegins(L"Probing " + shown(route.display_string()));
    RouteFindings findings =
        probeRoute({.url = target_.url,
                    .route = route,
                    .userAgent = options_.userAgent,
                    .method = options_.method == Method::Get ? L"GET" : L"HEAD",
                    .proxyCred = options_.proxyCred.is_none() ? route.cred() : options_.proxyCred,
                    .serverCred = options_.serverCred.is_none() ? target_.cred : options_.serverCred,
                    .answersChallenges = answersChallenges,
                    .ignoreCertErrors = options_.ignoreCertErrors,
                    .limit = left});
    display_.underwayEnds();
    return findings;
  }

  std::optional<ScriptFindings> findingsOnScript() {
    const milliseconds left = limit();
    if (left == milliseconds::zero()) return std::nullopt;
    display_.probeBegins(L"Fetching the PAC script");
    const UserSettings settings = readUserSettings();
    auto findings = probeScript({.detect = settings.automaticDetection,
                                 .scriptUrl = settings.scriptUrl,
                                 .userAgent = options_.userAgent,
                                 .limit = left});
    display_.underwayEnds();
    return findings;
  }

  const RequestOptions& options_;
  const Target& target_;
  Display& display_;
  const milliseconds spent_;  // by the resolution
  const Clock::time_point began_;
};

void redact(std::vector<std::wstring>& texts, Redaction& redaction) {
  for (std::wstring& text : texts) text = redaction(text);
}

// Who issues certificates inside a company is its own affair; what public authorities sign is not.
void redact(Certificate& certificate, Redaction& redaction) {
  certificate.host = redaction(certificate.host);
  for (std::wstring* const text : {&certificate.subject, &certificate.issuer, &certificate.rootName}) {
    if (!text->empty()) *text = certificate.root == Root::Public ? redaction(*text) : L"(removed)";
  }
}

void redact(RouteFindings& route, Redaction& redaction) {
  for (std::wstring* const text : {&route.host, &route.finalHost, &route.addresses.host}) redaction.learnHost(*text);
  for (std::wstring* const text :
       {&route.route, &route.notProbed, &route.host, &route.finalHost, &route.addresses.host}) {
    *text = redaction(*text);
  }
  redact(route.addresses.ipv4, redaction);
  redact(route.addresses.ipv6, redaction);
  redact(route.redirects, redaction);
  for (Phase& phase : route.phases) phase.address = redaction(phase.address);
  if (route.certificate) redact(*route.certificate, redaction);
}

}  // namespace

ProbeFindings probed(const RequestOptions& options, const Target& target, const Resolution& resolution,
                     Display& display) {
  ProbeFindings findings = ResolutionProbe(options, target, resolution.duration, display).findingsOn(resolution);
  if (!options.redaction) return findings;
  for (RouteFindings& route : findings.routes) redact(route, *options.redaction);
  if (findings.script) findings.script->url = (*options.redaction)(findings.script->url);
  return findings;
}

void findInspection(std::vector<Resolution>& resolutions) {
  std::vector<Sighting> sightings;
  const auto forEachCertificate = [&](auto visit) {
    for (Resolution& resolution : resolutions) {
      if (!resolution.probe) continue;
      for (const RouteFindings& route : resolution.probe->routes) {
        if (route.certificate) visit(resolution, *route.certificate);
      }
    }
  };
  forEachCertificate([&](const Resolution& /*resolution*/, const Certificate& certificate) {
    sightings.push_back({certificate.host, certificate.root});
  });
  const std::vector<std::wstring> inspected = inspectedHosts(sightings);
  forEachCertificate([&](Resolution& resolution, const Certificate& certificate) {
    if (std::ranges::count(inspected, certificate.host) > 0) resolution.probe->inspectionLikely = true;
  });
}

}  // namespace kiv::tool
