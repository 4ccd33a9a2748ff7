// A line at the bottom of a console that shows what is being done and for how long.
#include "resolve/live_line.h"

#include <algorithm>
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
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stop_.notify_one();
  ticker_.join();
  print(Stream::Error, L"\r\x1b[K");
}

void LiveLine::resume() {
  if (!enabled_ || text_.empty() || ticker_.joinable()) return;
  stopping_ = false;
  ticker_ = std::thread([this] { run(); });
}

void LiveLine::draw(std::size_t frame) const {
  const std::wstring time = elapsedText(std::chrono::steady_clock::now() - began_);
  std::wstring line = std::wstring(1, kFrames[frame % kFrames.size()]) + L" " + text_;
  // A line that wraps could not be cleared.
  const std::size_t limit = std::max<std::size_t>(consoleWidth(Stream::Error), 24) - time.size() - 4;
  if (line.size() > limit) line = line.substr(0, limit - 3) + L"...";
  print(Stream::Error, L"\r" + line + L"  " + time + L"\x1b[K");
}

void LiveLine::run() {
  std::unique_lock lock(mutex_);
  for (std::size_t frame = 0; !stopping_; ++frame) {
    draw(frame);
    stop_.wait_for(lock, kTick, [this] { return stopping_; });
  }
}

}  // namespace kiv::tool
