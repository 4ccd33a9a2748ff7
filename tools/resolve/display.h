// What standard error shows while URLs are resolved: the log or a line per candidate, and the table at the end.
#pragma once

#include <optional>

#include "common/console.h"
#include "resolve/choices.h"
#include "resolve/live_line.h"
#include "resolve/resolution.h"

namespace kiv::tool {

class Display {
 public:
  explicit Display(Detail detail);

  void discoveryBegins(const Resolution& resolution);
  void testBegins(std::size_t number, const Candidate& candidate);
  void probeBegins(std::wstring subject) { live_.begin(std::move(subject)); }
  void underwayEnds() { live_.end(); }
  void record(const Record& record);
  void finished(const Resolution& resolution);

 private:
  Detail detail_;
  std::optional<StyledConsole> console_;  // nothing if nothing is shown
  bool coloured_;
  bool hasLiveLine_;
  LiveLine live_;
};

}  // namespace kiv::tool
