// The network, with limits of the time that it is asked.
#pragma once

#include "common/time_limits.h"
#include "sources/network.h"

namespace kiv::tool {

// A question that is not answered in time gets ERROR_WINHTTP_TIMEOUT for an answer.
class LimitedNetwork : public Network {
 public:
  explicit LimitedNetwork(TimeLimits limits) : limits_(limits) {}

  Detected detect(DetectionBy way) const override;
  FetchedScript fetch(const std::wstring& url) const override;
  std::optional<std::int64_t> dateOf(const std::wstring& host, std::uint16_t port) const override;

 private:
  TimeLimits limits_;
};

}  // namespace kiv::tool
