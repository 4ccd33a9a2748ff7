// The application's logger, as the rest of the library uses it.
#include "log/logger.h"

#include <utility>

#include "support/foreign_exceptions.h"

namespace kiv::impl {
namespace {

// A line that cannot be copied must not look like a line that was never logged, so memory running out ends the process.
Log record(LogLevel level, std::wstring_view text) noexcept { return {level, text}; }

}  // namespace

Logger::Logger(Logger&& other) noexcept
    : context_(std::exchange(other.context_, nullptr)),
      callback_(std::exchange(other.callback_, nullptr)),
      engaged_(other.engaged_) {}

Logger& Logger::operator=(Logger&& other) noexcept {
  const Logger moved(std::move(other));
  return *this = moved;
}

void Logger::emit(LogLevel level, std::wstring_view text) const {
  if (engaged_) hand(record(level, text));
}

void Logger::emit(LogLevel level, std::wstring&& text) const {
  if (engaged_) hand({level, std::move(text)});
}

void Logger::hand(const Log& log) const {
  support::callApplication(callback_, context_, support::toHandle<KivLog>(&log));
}

void Logger::logForApplication(LogLevel level, const wchar_t* text) const {
  if (!engaged_) return;
  support::lend(record(level, text), [this](const Log& log) { callback_(context_, support::toHandle<KivLog>(&log)); });
}

}  // namespace kiv::impl
