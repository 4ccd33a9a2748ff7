// One run of the library's resolution, with its own client and dialogs, and a record of every step.
#include "resolve/resolution_run.h"

#include <algorithm>
#include <string>

#include "common/presentable.h"
#include "probe/certificates.h"
#include "probe/route_probe.h"
#include "probe/script_probe.h"
#include "resolve/bypass_entry.h"
#include "resolve/json_document.h"
#include "resolve/log_facts.h"
#include "resolve/user_settings.h"

namespace kiv::tool {
namespace {

// For all that is done with one route, and with the PAC script.
constexpr milliseconds kProbeLimit{15000};

}  // namespace

ResolutionRun::ResolutionRun(const RequestOptions& options, Task task, const Target& target, Display& display,
                             OutputFile* trace)
    : options_(options),
      task_(task),
      target_(target),
      display_(display),
      trace_(trace),
      logger_([this](const LogRecord& logged) { onRecord(logged); }),
      client_(target.url, options.userAgent, options.ignoreCertErrors),
      began_(std::chrono::steady_clock::now()) {
  resolution_.url = presentable(target.url);
  resolution_.began = std::chrono::system_clock::now();
  resolution_.bypass.given = options.bypass.has_value();
}

milliseconds ResolutionRun::sinceBegin() const {
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - began_);
}

Resolution ResolutionRun::resolve(bool probe) {
  resolution_.settings = readUserSettings();
  discovering_ = true;
  display_.discoveryBegins(resolution_);
  const std::optional<ProxyConfig> found = run();
  resolution_.outcome = outcomeOf(found);
  resolution_.duration = sinceBegin();
  assignOrigins();
  if (probe) resolution_.probe = this->probe(found);
  display_.finished(resolution_);
  return std::move(resolution_);
}

// Nothing if the resolution did not complete.
std::optional<ProxyConfig> ResolutionRun::run() {
  kiv::Request request;
  request.url = target_.url;
  request.user_agent = options_.userAgent;
  request.bypass_list = options_.bypass;
  request.preferred = options_.preferred;
  request.fallback = options_.fallback;
  request.filter = [this](const ProxyConfig& candidate) { return keep(candidate); };
  request.server_cred = [this](std::wstring_view url) { return giveServerCred(url); };
  request.proxy_cred = [this](const ProxyConfig& proxy) { return giveProxyCred(proxy); };
  request.test = [this] { return test(); };
  request.set_server_cred = [this](Credential cred) { client_.set_server_cred(std::move(cred)); };
  request.set_proxy = [this](const ProxyConfig& proxy) { client_.set_proxy(proxy); };
  request.logger = logger_;
  try {
    return kiv::resolve(request);
  } catch (const ResolutionError&) {
    return std::nullopt;
  }
}

Credential ResolutionRun::proxyCred(const ProxyConfig& proxy) const {
  if (!options_.proxyCred.is_none() || !options_.prompt) return options_.proxyCred;
  return ProxyAuthDialog{L"kiv-resolve", windowOfConsole()}(proxy);
}

Credential ResolutionRun::serverCred(std::wstring_view url) const {
  if (!options_.serverCred.is_none()) return options_.serverCred;
  if (!target_.cred.is_none() || !options_.prompt) return target_.cred;
  return ServerAuthDialog{L"kiv-resolve", windowOfConsole()}(url);
}

Credential ResolutionRun::giveProxyCred(const ProxyConfig& proxy) {
  Credential cred = proxyCred(proxy);
  resolution_.candidates.at(current_).proxyCredGiven = !cred.is_none();
  return cred;
}

Credential ResolutionRun::giveServerCred(std::wstring_view url) {
  Credential cred = serverCred(url);
  resolution_.candidates.at(current_).serverCredGiven = !cred.is_none();
  return cred;
}

// Every candidate is tested, unless the task is to test none.
bool ResolutionRun::keep(const ProxyConfig& candidate) {
  endDiscovery();
  resolution_.candidates.push_back({.text = presentable(candidate.display_string())});
  routes_.push_back(candidate);
  return task_ == Task::Resolve;
}

int ResolutionRun::test() {
  Candidate& candidate = resolution_.candidates.at(current_);
  display_.testBegins(current_, candidate);
  Request request{.began = sinceBegin()};
  underway_ = &request;
  request.status = options_.method == Method::Get ? client_.get(logger_) : client_.head(logger_);
  underway_ = nullptr;
  request.duration = sinceBegin() - request.began;
  display_.underwayEnds();
  const int status = request.status;
  candidate.requests.push_back(std::move(request));
  return status;
}

void ResolutionRun::onRecord(const LogRecord& logged) {
  const std::wstring_view message = logged.message();
  Record record{std::chrono::system_clock::now(), logged.level(), presentable(message)};
  learn(message);
  noteFailure(record, message);
  display_.record(record);
  if (trace_) trace_->write(traceLine(resolution_, record));
  resolution_.log.push_back(std::move(record));
}

void ResolutionRun::learn(std::wstring_view message) {
  // The first line is written before discovery, all others after it.
  if (!resolution_.log.empty()) endDiscovery();
  const Fact fact = factOf(message, target_.url);
  switch (fact.kind) {
    case FactKind::DiscoveryFailed:
      resolution_.discoveryFailed = true;
      break;
    case FactKind::BypassList:
      resolution_.bypass.list = presentable(fact.text);
      break;
    case FactKind::Bypassed:
      resolution_.bypass.matches = true;
      resolution_.bypass.entry = matchingEntry(resolution_.bypass.list, resolution_.url);
      break;
    case FactKind::InvalidCandidate:
      resolution_.candidates.at(fact.number).invalid = true;
      break;
    case FactKind::Attempt:
      current_ = fact.number;
      break;
    case FactKind::Other:
      break;
  }
}

// The last warning or error during a request is why it failed, if it did.
void ResolutionRun::noteFailure(const Record& record, std::wstring_view message) {
  if (!underway_ || record.level > LogLevel::Warn) return;
  underway_->failure = record.message;
  underway_->error = errorCodeOf(message);
}

void ResolutionRun::endDiscovery() {
  if (!discovering_) return;
  discovering_ = false;
  resolution_.discoveryDuration = sinceBegin();
  display_.underwayEnds();
}

// The library puts the preferred candidate before the system's and the fallback after them.
void ResolutionRun::assignOrigins() {
  auto& candidates = resolution_.candidates;
  if (candidates.empty()) return;
  if (!options_.fallback.is_none()) candidates.back().origin = Origin::Fallback;
  if (!options_.preferred.is_none()) candidates.front().origin = Origin::Preferred;
}

RouteFindings ResolutionRun::probe(const ProxyConfig& route, bool answersChallenges) const {
  display_.probeBegins(L"Probing " + presentable(route.display_string()));
  RouteFindings findings = probeRoute({.url = target_.url,
                                       .route = route,
                                       .userAgent = options_.userAgent,
                                       .method = options_.method == Method::Get ? L"GET" : L"HEAD",
                                       .proxyCred = options_.proxyCred.is_none() ? route.cred() : options_.proxyCred,
                                       .serverCred = options_.serverCred.is_none() ? target_.cred : options_.serverCred,
                                       .answersChallenges = answersChallenges,
                                       .ignoreCertErrors = options_.ignoreCertErrors,
                                       .limit = kProbeLimit});
  display_.underwayEnds();
  return findings;
}

// The winner has the credentials that worked. A direct connection that needed no test is probed too: it is the route.
ProbeFindings ResolutionRun::probe(const std::optional<ProxyConfig>& found) {
  ProbeFindings findings;
  const auto winner = resolution_.winner();
  for (std::size_t i = 0; i < resolution_.candidates.size(); ++i) {
    if (resolution_.candidates[i].requests.empty()) continue;
    const ProxyConfig& route = found && winner == i ? *found : routes_[i];
    findings.routes.push_back(probe(route, !resolution_.candidates[i].rejectsCredentials()));
    findings.routes.back().candidate = i;
  }
  if (found && found->is_direct() && findings.routes.empty()) {
    findings.routes.push_back(probe(*found, true));
  }
  display_.probeBegins(L"Fetching the PAC script");
  findings.script = probeScript({.detect = resolution_.settings.automaticDetection,
                                 .scriptUrl = resolution_.settings.scriptUrl,
                                 .userAgent = options_.userAgent,
                                 .limit = kProbeLimit});
  display_.underwayEnds();
  return findings;
}

Outcome ResolutionRun::outcomeOf(const std::optional<ProxyConfig>& found) const {
  if (!found) return {OutcomeKind::NotCarriedOut, L"NONE"};
  if (found->is_none() && task_ != Task::Resolve) return {OutcomeKind::NotTested, {}};
  const OutcomeKind kind = found->is_none()     ? OutcomeKind::None
                           : found->is_direct() ? OutcomeKind::Direct
                                                : OutcomeKind::Proxy;
  return {kind, found->display_string()};
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
