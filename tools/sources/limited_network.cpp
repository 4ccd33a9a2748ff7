// The network, with limits of the time that it is asked.
#include "sources/limited_network.h"

#include <winhttp.h>

namespace kiv::tool {

Detected LimitedNetwork::detect(DetectionBy way) const {
  return limits_.within(Detected{PlaceState::NotReadable, {}, ERROR_WINHTTP_TIMEOUT},
                        [way] { return WindowsNetwork().detect(way); });
}

FetchedScript LimitedNetwork::fetch(const std::wstring& url) const {
  return limits_.within(FetchedScript{.error = ERROR_WINHTTP_TIMEOUT}, [url] { return WindowsNetwork().fetch(url); });
}

std::optional<std::int64_t> LimitedNetwork::dateOf(const std::wstring& host, std::uint16_t port) const {
  return limits_.within(std::optional<std::int64_t>(), [=] { return WindowsNetwork().dateOf(host, port); });
}

}  // namespace kiv::tool
