// What a PAC script answers for a URL: as WinHTTP returns it, and as kiv reads that.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/time_limits.h"
#include "support/owners.h"

namespace kiv::tool {

struct PacAnswer {
  std::optional<unsigned> error{};         // of WinHTTP, which then returned nothing
  std::wstring list{};                     // as WinHTTP returns it; empty: no proxy
  std::vector<std::wstring> candidates{};  // that kiv.dll makes of the list, in order
  std::chrono::milliseconds duration{};

  // A duration makes no difference.
  bool differsFrom(const PacAnswer& other) const { return error != other.error || list != other.list; }
};

class ScriptRunner {
 public:
  // Throws std::system_error if there is no WinHTTP session.
  explicit ScriptRunner(TimeLimits limits);

  // Sends nothing to `url`. WinHTTP downloads the script and runs it, and functions of the script can ask DNS. Without
  // an answer in time the error is ERROR_WINHTTP_TIMEOUT.
  PacAnswer ask(const std::wstring& scriptUrl, const std::wstring& url) const;

 private:
  // A question that is given up goes on with it.
  std::shared_ptr<const support::UniqueInternet> session_;
  TimeLimits limits_;
};

// The candidates that kiv.dll makes of such a list, in order.
std::vector<std::wstring> candidatesIn(std::wstring_view list);

}  // namespace kiv::tool
