// The host of a resolution: the library's own client and dialogs behind its callbacks, and a record of what they saw.
#pragma once

#include <chrono>

#include "display.h"
#include "handles.h"
#include "options.h"
#include "output_file.h"
#include "resolution.h"

namespace kiv::tool {

class Host {
 public:
  // `trace` is null if nobody wants one.
  Host(const Options& options, const Target& target, Display& display, OutputFile* trace);

  Resolution resolve();

 private:
  // The library's callbacks. Those of one candidate's turn come between lines of the log that say which candidate.
  void onRecord(const KivLog* log);
  bool keep(const KivProxyConfig* candidate);
  int test();
  KivCred* giveProxyCred(const KivProxyConfig* proxy);
  KivCred* giveServerCred(const wchar_t* url);

  KivCred* proxyCred(const KivProxyConfig* proxy) const;
  KivCred* serverCred(const wchar_t* url) const;
  UniqueProxyConfig run();
  void learn(std::wstring_view message);
  void noteFailure(const Record& record, std::wstring_view message);
  void endDiscovery();
  void assignOrigins();
  Outcome outcomeOf(const KivProxyConfig* config) const;
  milliseconds sinceBegin() const;

  const Options& options_;
  const Target& target_;
  Display& display_;
  OutputFile* trace_;
  UniqueLogger logger_;
  UniqueHttpClient client_;
  std::chrono::steady_clock::time_point began_;
  Resolution resolution_;
  std::size_t turn_ = 0;  // the candidate that is being tested
  bool discovering_ = false;
  Request* underway_ = nullptr;
};

}  // namespace kiv::tool
