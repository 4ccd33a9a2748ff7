// A line at the bottom of a console that shows what is being done and for how long.
#pragma once

#include <chrono>
#include <string>
#include <thread>

namespace kiv::tool {

class LiveLine {
 public:
  // One that is not `enabled` never shows anything.
  explicit LiveLine(bool enabled) : enabled_(enabled) {}
  LiveLine(const LiveLine&) = delete;
  LiveLine& operator=(const LiveLine&) = delete;
  ~LiveLine() { end(); }

  void begin(std::wstring text);
  void end();

  // Clears the line while something else is printed.
  void pause();
  void resume();

 private:
  void draw(std::size_t frame) const;
  void run(const std::stop_token& stop) const;

  bool enabled_;
  std::wstring text_;  // empty while nothing is being done
  std::chrono::steady_clock::time_point began_;
  std::jthread ticker_;
};

}  // namespace kiv::tool
