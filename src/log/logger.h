// The application's logger, as the rest of the library uses it.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "kiv/log.h"
#include "log/log.h"
#include "support/border.h"

namespace kiv::impl {

// A logger that is not engaged drops every line; it stands in where the application gave none, so that nothing else
// tests for null. A logger that was moved from stays engaged, with nothing to call: it may only be overwritten or
// destroyed.
class Logger {
 public:
  Logger() = default;
  Logger(void* context, KivLogCallback callback) : context_(context), callback_(callback), engaged_(true) {}
  Logger(const Logger&) = default;
  Logger& operator=(const Logger&) = default;
  Logger(Logger&& other) noexcept;
  Logger& operator=(Logger&& other) noexcept;
  ~Logger() = default;

  // Each hands one record to the callback, on this thread, with the text as it is. What the callback throws arrives
  // here as callApplication has it. A text that was made for the line becomes the record's; any other is copied, and
  // the process ends if memory runs out for that.
  template <class Text>
  void error(Text&& text) const {
    emit(LogLevel::Error, std::forward<Text>(text));
  }
  template <class Text>
  void warn(Text&& text) const {
    emit(LogLevel::Warn, std::forward<Text>(text));
  }
  template <class Text>
  void info(Text&& text) const {
    emit(LogLevel::Info, std::forward<Text>(text));
  }
  template <class Text>
  void debug(Text&& text) const {
    emit(LogLevel::Debug, std::forward<Text>(text));
  }

  // For the application that logs a line itself: what its callback throws, in whatever compiler's way, reaches it as it
  // was thrown, after the record was destroyed.
  void logForApplication(LogLevel level, const wchar_t* text) const;

  bool engaged() const noexcept { return engaged_; }

 private:
  void emit(LogLevel level, std::wstring_view text) const;
  void emit(LogLevel level, const wchar_t* text) const { emit(level, std::wstring_view(text)); }
  void emit(LogLevel level, std::wstring&& text) const;
  void hand(const Log& log) const;

  void* context_ = nullptr;
  KivLogCallback callback_ = nullptr;
  bool engaged_ = false;
};

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivLogger> {
  using Type = kiv::impl::Logger;
};
