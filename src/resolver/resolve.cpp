// The procedure of a resolution: gathers candidates, filters them, and tests them until one works.
#include "resolver/resolve.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "config/address.h"
#include "discovery/bypass_rules.h"
#include "resolver/system_candidates.h"
#include "support/border.h"
#include "support/format.h"
#include "support/platform.h"

namespace kiv::impl {
namespace {

using support::format;

bool succeeded(int status) { return status >= 200 && status <= 299; }

// Frames the log of a resolution: the last line is written however it ends.
class LogFrame {
 public:
  explicit LogFrame(const Logger& logger) : logger_(logger) {}
  LogFrame(const LogFrame&) = delete;
  LogFrame& operator=(const LogFrame&) = delete;
  ~LogFrame() {
    support::guarded([&] { logger_.info(L"END: ProxyResolver"); });
  }

 private:
  const Logger& logger_;
};

bool isBypassed(const std::wstring& targetUrl, const std::wstring& bypassList, const Logger& logger) {
  if (bypassList.empty()) return false;
  logger.debug(L"Proxy bypass list: " + bypassList);
  const std::optional<ParsedAddress> target = parseAddress(targetUrl, false);
  if (!target) return false;
  if (!anyRuleMatches(BuildBypassRules(bypassList), *target)) return false;
  logger.info(format(L"%ls is matched to the bypass list (%ls). Use direct connection.", targetUrl.c_str(),
                     bypassList.c_str()));
  return true;
}

// A configuration that the caller and the system both name is tried twice: nothing is taken out.
std::vector<ProxyConfig> gather(ProxyConfig preferred, std::vector<ProxyConfig> system, ProxyConfig fallback) {
  std::vector<ProxyConfig> candidates = std::move(system);
  if (!preferred.isNone()) candidates.insert(candidates.begin(), std::move(preferred));
  if (!fallback.isNone()) candidates.push_back(std::move(fallback));
  return candidates;
}

void logCandidates(const std::vector<ProxyConfig>& candidates, const Logger& logger) {
  logger.info(format(L"%d candidates found.", static_cast<int>(candidates.size())));
  if (candidates.empty()) return;
  std::wstring line = L"Candidates: ";
  for (const ProxyConfig& candidate : candidates) {
    if (&candidate != &candidates.front()) line += L", ";
    candidate.appendTo(line);
  }
  logger.debug(std::move(line));
}

// One attempt to connect through one candidate.
class Attempt {
 public:
  Attempt(int number, ProxyConfig& candidate, const std::wstring& targetUrl, const ApplicationCallbacks& application,
          const Logger& logger)
      : number_(number), candidate_(candidate), targetUrl_(targetUrl), application_(application), logger_(logger) {}

  // Whether the candidate works. It is left with the credentials that were obtained for it.
  bool run() {
    if (!announce()) return false;
    application_.setServerCred(std::nullopt);
    application_.setProxy(candidate_);
    int status = test(L"No. %d: Test connection to %ls.");
    if (status == HTTP_STATUS_PROXY_AUTH_REQ) status = retryWithProxyCred();
    if (status == HTTP_STATUS_DENIED) status = retryWithServerCred();
    logger_.debug(succeeded(status) ? format(L"No. %d: Test connection succeeded.", number_)
                                    : format(L"No. %d: Test connection failed.", number_));
    return succeeded(status);
  }

 private:
  // False for a candidate that cannot be tested.
  bool announce() {
    if (candidate_.isNone()) {
      logger_.debug(format(L"No. %d: Invalid proxy", number_));
      return false;
    }
    logger_.info(candidate_.isDirect() ? format(L"No. %d: Direct connection", number_)
                                       : format(L"No. %d: Proxy %ls", number_, candidate_.display().c_str()));
    return true;
  }

  int test(const wchar_t* line) {
    logger_.info(format(line, number_, targetUrl_.c_str()));
    return application_.testConnection();
  }

  int retry() { return test(L"No. %d: Retry test connection to %ls."); }

  int retryWithProxyCred() {
    logger_.debug(format(L"No. %d: Proxy authentication required.", number_));
    candidate_.setCred(application_.proxyCred(candidate_));
    application_.setProxy(candidate_);
    return retry();
  }

  int retryWithServerCred() {
    logger_.debug(format(L"No. %d: Server authentication required.", number_));
    application_.setServerCred(application_.serverCred(targetUrl_.c_str()));
    return retry();
  }

  int number_;
  ProxyConfig& candidate_;
  const std::wstring& targetUrl_;
  const ApplicationCallbacks& application_;
  const Logger& logger_;
};

}  // namespace

ProxyConfig resolveProxyConfig(std::wstring_view targetUrl, std::wstring_view userAgent,
                               std::optional<std::wstring_view> bypassOverride, ProxyConfig preferred,
                               ProxyConfig fallback, ApplicationCallbacks application, const Logger& logger) {
  const LogFrame frame(logger);
  logger.info(L"BEGIN: ProxyResolver");
  const std::wstring url(targetUrl);
  SystemProxySettings system = readSystemProxySettings(url, std::wstring(userAgent), logger);
  if (bypassOverride) system.bypassList = *bypassOverride;
  if (isBypassed(url, system.bypassList, logger)) {
    return ProxyConfig::makeDirect();
  }

  std::vector<ProxyConfig> candidates = gather(std::move(preferred), std::move(system.candidates), std::move(fallback));
  if (candidates.empty()) {
    logger.info(L"No candidates found. Use direct connection.");
    return ProxyConfig::makeDirect();
  }
  std::erase_if(candidates, [&](const ProxyConfig& candidate) { return !application.filter(candidate); });
  logCandidates(candidates, logger);

  for (std::size_t i = 0; i < candidates.size(); ++i) {
    ProxyConfig& candidate = candidates[i];
    if (!Attempt(static_cast<int>(i), candidate, url, application, logger).run()) continue;
    logger.info(format(L"Proxy %ls found.", candidate.display().c_str()));
    return std::move(candidate);
  }
  logger.warn(L"No available proxy found.");
  return ProxyConfig::makeNone();
}

}  // namespace kiv::impl
