// The network, with a limit of the time for all that it is asked.
#include "sources/limited_network.h"

#include <winhttp.h>

#include <future>
#include <thread>
#include <utility>

namespace kiv::tool {
namespace {

// Nothing can end WinHTTP's detection, so when the time is up it goes on unheard, on its thread.
template <class Answer, class Ask>
Answer within(const std::optional<std::chrono::steady_clock::time_point>& deadline, Answer tooLate, Ask ask) {
  if (!deadline) return ask();
  std::packaged_task<Answer()> work(std::move(ask));
  auto answer = work.get_future();
  std::thread(std::move(work)).detach();
  return answer.wait_until(*deadline) == std::future_status::ready ? answer.get() : tooLate;
}

}  // namespace

LimitedNetwork::LimitedNetwork(std::optional<std::chrono::milliseconds> maxTime) {
  if (maxTime) deadline_ = std::chrono::steady_clock::now() + *maxTime;
}

Detected LimitedNetwork::detect(DetectionBy way) const {
  const Detected tooLate = {PlaceState::NotReadable, {}, ERROR_WINHTTP_TIMEOUT};
  return within(deadline_, tooLate, [way] { return WindowsNetwork().detect(way); });
}

FetchedScript LimitedNetwork::fetch(const std::wstring& url) const {
  return within(deadline_, FetchedScript{.error = ERROR_WINHTTP_TIMEOUT},
                [url] { return WindowsNetwork().fetch(url); });
}

std::optional<std::int64_t> LimitedNetwork::dateOf(const std::wstring& host, std::uint16_t port) const {
  return within(deadline_, std::optional<std::int64_t>(), [=] { return WindowsNetwork().dateOf(host, port); });
}

}  // namespace kiv::tool
