// The host's logger, as the rest of the library uses it.
#pragma once

#include <string_view>

#include "kiv/log.h"
#include "log/log.h"
#include "support/border.h"

namespace kiv::impl {

// A logger that is not engaged drops every line; it stands in wherever a host gave none, so that nothing else tests for
// null. A logger that was moved from stays engaged, with nothing to call: it may only be overwritten or destroyed.
class Logger {
 public:
  Logger() = default;
  Logger(void* context, KivLogCallback callback) : context_(context), callback_(callback), engaged_(true) {}
  Logger(const Logger&) = default;
  Logger& operator=(const Logger&) = default;
  Logger(Logger&& other) noexcept;
  Logger& operator=(Logger&& other) noexcept;
  ~Logger() = default;

  // Each hands one record to the callback, on this thread, with the text as it is. What the callback throws passes
  // through. The process ends if memory runs out for the record.
  void error(std::wstring_view text) const { emit(LogLevel::Error, text); }
  void warn(std::wstring_view text) const { emit(LogLevel::Warn, text); }
  void info(std::wstring_view text) const { emit(LogLevel::Info, text); }
  void debug(std::wstring_view text) const { emit(LogLevel::Debug, text); }

  bool engaged() const noexcept { return engaged_; }

 private:
  void emit(LogLevel level, std::wstring_view text) const;

  void* context_ = nullptr;
  KivLogCallback callback_ = nullptr;
  bool engaged_ = false;
};

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivLogger> {
  using Type = kiv::impl::Logger;
};
