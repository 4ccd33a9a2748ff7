// A line at the bottom of a console that shows what is being done and for how long.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
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
  void run();

  bool enabled_;
  std::wstring text_;  // empty while nothing is being done
  std::chrono::steady_clock::time_point began_;
  std::thread ticker_;
  // No stop token ends the ticker: GCC's library for Windows can miss the end of a stop callback, and then waits for it
  // for ever (__waiter_pool_base::_M_do_wait of bits/atomic_wait.h looks at the value before it takes the lock).
  std::mutex mutex_;
  std::condition_variable stop_;
  bool stopping_ = false;
};

}  // namespace kiv::tool
