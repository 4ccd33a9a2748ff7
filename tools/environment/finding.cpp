// How URLs are reached, found for programs that do not ask kiv: the resolution, and what the proxy answers to them.
#include "environment/finding.h"

#include <algorithm>

#include "common/time_limits.h"
#include "environment/log_on.h"
#include "resolve/resolution_probe.h"
#include "resolve/resolution_run.h"
#include "resolve/wording.h"

namespace kiv::tool {
namespace {

Finding find(const RequestOptions& options, const Target& target, Display& display, OutputFile* trace) {
  Finding finding{.resolution = resolve(options, Task::Resolve, target, display, trace), .route = {.url = target.url}};
  const ProxyConfig& found = finding.resolution.found;
  finding.cred = found.cred();
  const OutcomeKind kind = finding.resolution.outcome.kind;
  if (kind == OutcomeKind::NotCarriedOut) finding.problem = kNotCompleted;
  if (kind != OutcomeKind::Proxy && kind != OutcomeKind::Direct && finding.problem.empty()) {
    finding.problem = L"no route to " + finding.resolution.url + L" was found";
  }
  if (kind != OutcomeKind::Proxy) return finding;
  finding.route.proxy = readProxyServer(found);
  if (!finding.route.proxy)
    finding.problem = L"the proxy " + finding.resolution.outcome.text + L" has no host or no port";
  return finding;
}

void ask(Finding& finding, const RequestOptions& options) {
  // What speaks TLS or SOCKS would not understand the question.
  if (!finding.route.proxy || !finding.route.proxy->isHttp()) return;
  const std::string question = questionFor(finding.route.url, options.userAgent);
  if (question.empty()) return;
  constexpr milliseconds kMost{10'000};
  const milliseconds limit = timeLeft(options, finding.resolution.duration, kMost);
  finding.answer = TimeLimits({}, limit).within(
      ProxyAnswer(), [proxy = *finding.route.proxy, question, limit] { return askProxy(proxy, question, limit); });
  // If WinHTTP logged on as the user, the library needed no credentials, but other programs do.
  if (finding.answer->status == 407 && finding.cred.is_none()) finding.cred = options.proxyCred;
}

bool isSuccess(int status) { return status >= 200 && status <= 299; }

}  // namespace

std::wstring withOtherScheme(std::wstring_view url) {
  const ProxyConfig target = ProxyConfig::parse(url);
  const std::wstring_view rest = url.substr(url.find(L"://") + 3);
  const std::wstring_view path = rest.substr(std::min(rest.find_first_of(L"/?"), rest.size()));
  return std::wstring(target.is_https() ? L"http://" : L"https://").append(target.host()).append(path);
}

std::vector<Finding> findRoutes(const RequestOptions& options, const Target& target, const Search& search,
                                OutputFile* trace) {
  std::vector<Target> targets = {target};
  if (search.all) targets.push_back({withOtherScheme(target.url), target.cred});
  Display display(search.detail);
  std::vector<Finding> findings;
  for (const Target& each : targets) {
    findings.push_back(find(options, each, display, trace));
    Resolution& resolution = findings.back().resolution;
    if (search.probe) resolution.probe = probed(options, each, resolution, display);
  }
  for (Finding& finding : findings) ask(finding, options);
  return findings;
}

std::vector<Resolution> resolutionsOf(const std::vector<Finding>& findings) {
  std::vector<Resolution> resolutions;
  for (const Finding& finding : findings) resolutions.push_back(finding.resolution);
  return resolutions;
}

std::vector<BypassEntry> convertedExceptions(const std::vector<Finding>& findings, ExceptionsRead reads) {
  const Resolution& resolution = findings.front().resolution;
  return convertBypassList(resolution.bypass.list, ProxyConfig::parse(resolution.url).host(), reads);
}

std::vector<std::wstring> remarksOn(const std::vector<BypassEntry>& entries) {
  std::vector<std::wstring> remarks;
  for (const BypassEntry& entry : entries) {
    if (entry.reason.empty()) continue;
    const std::wstring became = entry.becomes.empty()         ? L"dropped"
                                : entry.becomes == entry.text ? L"kept"
                                                              : L"written as " + entry.becomes;
    remarks.push_back(L"exception " + entry.text + L" " + became + L": " + entry.reason);
  }
  return remarks;
}

std::vector<std::wstring> remarksOn(const Finding& finding) {
  if (!finding.answer) return {};
  const std::wstring& proxy = finding.resolution.outcome.text;
  const int status = finding.answer->status;
  if (status == 407) return logOnRemarks(proxy, finding.answer->schemes);
  if (status == 0) return {proxy + L" did not answer a request without credentials"};
  // A server behind the proxy asks for its own credentials with 401.
  if (isSuccess(status) || status == 401) return {};
  return {proxy + L" answered " + std::to_wstring(status) + L" to a request without credentials"};
}

}  // namespace kiv::tool
