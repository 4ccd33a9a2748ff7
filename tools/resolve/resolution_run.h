// One run of the library's resolution, with its own client and dialogs, and a record of every step.
#pragma once

#include <chrono>
#include <optional>

#include "common/output_file.h"
#include "kiv/kiv.hpp"
#include "resolve/choices.h"
#include "resolve/display.h"
#include "resolve/request_options.h"
#include "resolve/resolution.h"

namespace kiv::tool {

class ResolutionRun {
 public:
  // `trace` is null if none is wanted.
  ResolutionRun(const RequestOptions& options, Task task, const Target& target, Display& display, OutputFile* trace);

  // With `probe` each route that was tested is probed too, and the PAC script is fetched.
  Resolution resolve(bool probe);

 private:
  // The library's callbacks. Those about one candidate come after a line of the log that has its number.
  void onRecord(const LogRecord& logged);
  bool keep(const ProxyConfig& candidate);
  int test();
  Credential giveProxyCred(const ProxyConfig& proxy);
  Credential giveServerCred(std::wstring_view url);

  Credential proxyCred(const ProxyConfig& proxy) const;
  Credential serverCred(std::wstring_view url) const;
  std::optional<ProxyConfig> run();
  void learn(std::wstring_view message);
  void noteFailure(const Record& record, std::wstring_view message);
  void endDiscovery();
  void assignOrigins();
  ProbeFindings probe(const std::optional<ProxyConfig>& found);
  RouteFindings probe(const ProxyConfig& route, bool answersChallenges) const;
  Outcome outcomeOf(const std::optional<ProxyConfig>& found) const;
  milliseconds sinceBegin() const;

  const RequestOptions& options_;
  const Task task_;
  const Target& target_;
  Display& display_;
  OutputFile* trace_;
  Logger logger_;
  HttpClient client_;
  std::chrono::steady_clock::time_point began_;
  Resolution resolution_;
  std::vector<ProxyConfig> routes_;  // of the candidates
  std::size_t current_ = 0;          // the candidate that is being tested
  bool discovering_ = false;
  Request* underway_ = nullptr;
};

// Marks the probes of hosts whose TLS connections are likely inspected on some route.
void findInspection(std::vector<Resolution>& resolutions);

}  // namespace kiv::tool
