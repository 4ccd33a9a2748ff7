// The network, with a limit of the time for all that it is asked.
#pragma once

#include <chrono>
#include <optional>

#include "sources/network.h"

namespace kiv::tool {

// A question that is not answered in time gets ERROR_WINHTTP_TIMEOUT for an answer.
class LimitedNetwork : public Network {
 public:
  // Nothing: no limit.
  explicit LimitedNetwork(std::optional<std::chrono::milliseconds> maxTime);

  Detected detect(DetectionBy way) const override;
  FetchedScript fetch(const std::wstring& url) const override;
  std::optional<std::int64_t> dateOf(const std::wstring& host, std::uint16_t port) const override;

 private:
  std::optional<std::chrono::steady_clock::time_point> deadline_;
};

}  // namespace kiv::tool
