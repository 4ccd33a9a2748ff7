// What people see on standard error while URLs are resolved: the log or a line per candidate, and the table at the end.
#pragma once

#include <cstdint>

#include "live_line.h"
#include "resolution.h"

namespace kiv::tool {

// Nothing, a line per candidate and the table, or the log and the table.
enum class Detail : std::uint8_t { Nothing, Brief, Log };

class Display {
 public:
  explicit Display(Detail detail);

  void discoveryBegins(const Resolution& resolution);
  void testBegins(std::size_t number, const Candidate& candidate);
  void underwayEnds() { live_.end(); }
  void record(const Record& record);
  void finished(const Resolution& resolution);

 private:
  Detail detail_;
  bool coloured_;
  LiveLine live_;
};

}  // namespace kiv::tool
