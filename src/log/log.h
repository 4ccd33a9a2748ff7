// A log record: a level and a text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "kiv/log.h"
#include "support/border.h"

namespace kiv::impl {

enum class LogLevel : std::uint32_t { Error = 0, Warn = 1, Info = 2, Debug = 3 };

class Log {
 public:
  Log(LogLevel level, std::wstring_view message) : level_(level), message_(message) {}
  Log(LogLevel level, std::wstring&& message) noexcept : level_(level), message_(std::move(message)) {}

  LogLevel level() const noexcept { return level_; }
  const std::wstring& message() const noexcept { return message_; }

 private:
  LogLevel level_;
  std::wstring message_;
};

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivLog> {
  using Type = kiv::impl::Log;
};
