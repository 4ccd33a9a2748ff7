// What standard error shows while URLs are resolved: the log or a line per candidate, and the table at the end.
#pragma once

#include <optional>

#include "common/console.h"
#include "resolve/choices.h"
#include "resolve/live_line.h"
#include "resolve/resolution.h"

namespace kiv::tool {

// "Testing No. 0: DIRECT".
std::wstring testText(const wchar_t* verb, std::size_t number, const Candidate& candidate);

class Display {
 public:
  explicit Display(Detail detail);

  void discoveryBegins(const Resolution& resolution);
  void testBegins(std::size_t number, const Candidate& candidate);
  void probeBegins(std::wstring_view subject) { live_.begin(std::wstring(subject)); }
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
