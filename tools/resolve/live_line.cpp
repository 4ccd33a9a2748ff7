// A line at the bottom of a console that shows what is being done and for how long.
#include "resolve/live_line.h"

#include <condition_variable>
#include <mutex>
#include <string_view>

#include "common/console.h"

namespace kiv::tool {
namespace {

constexpr std::wstring_view kFrames = L"|/-\\";
constexpr auto kTick = std::chrono::milliseconds(125);

// "3.4 s"
std::wstring elapsedText(std::chrono::steady_clock::duration elapsed) {
  const auto tenths = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count() / 100;
  return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10) + L" s";
}

}  // namespace

void LiveLine::begin(std::wstring text) {
  end();
  text_ = std::move(text);
  began_ = std::chrono::steady_clock::now();
  resume();
}

void LiveLine::end() {
  pause();
  text_.clear();
}

void LiveLine::pause() {
  if (!ticker_.joinable()) return;
  ticker_ = {};  // asks it to stop, and waits for it
  print(Stream::Error, L"\r\x1b[K");
}

void LiveLine::resume() {
  if (!enabled_ || text_.empty()) return;
  ticker_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

void LiveLine::draw(std::size_t frame) const {
  const std::wstring time = elapsedText(std::chrono::steady_clock::now() - began_);
  std::wstring line = std::wstring(1, kFrames[frame % kFrames.size()]) + L" " + text_;
  // A line that wraps could not be cleared.
  const std::size_t limit = std::max<std::size_t>(consoleWidth(Stream::Error), 24) - time.size() - 4;
  if (line.size() > limit) line = line.substr(0, limit - 3) + L"...";
  print(Stream::Error, L"\r" + line + L"  " + time + L"\x1b[K");
}

void LiveLine::run(const std::stop_token& stop) const {
  std::mutex mutex;
  std::condition_variable_any ticks;
  std::unique_lock lock(mutex);
  for (std::size_t frame = 0; !stop.stop_requested(); ++frame) {
    draw(frame);
    ticks.wait_for(lock, stop, kTick, [] { return false; });
  }
}

}  // namespace kiv::tool
