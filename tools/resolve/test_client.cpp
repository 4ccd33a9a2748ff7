// The client that tests candidates: the library's own, whose requests can be given up after a time.
#include "resolve/test_client.h"

#include <future>
#include <memory>
#include <mutex>
#include <thread>

namespace kiv::tool {
namespace {

int requested(HttpClient& client, Method method, const Logger& logger) {
  return method == Method::Get ? client.get(logger) : client.head(logger);
}

// A request on a thread of its own. Nothing can end the library's request, so after the limit it goes on unheard, with
// the client that belongs to it.
struct Sending {
  HttpClient client;
  Method method;
  std::promise<int> status;
  std::mutex mutex;
  const TestClient::Log* log;  // null once nobody listens

  void run() {
    const Logger logger([this](const LogRecord& record) {
      const std::lock_guard lock(mutex);
      if (log) (*log)(record);
    });
    try {
      status.set_value(requested(client, method, logger));
    } catch (...) {
      status.set_exception(std::current_exception());
    }
  }
};

}  // namespace

TestClient::TestClient(std::wstring url, std::wstring userAgent, bool ignoreCertErrors,
                       std::optional<std::chrono::milliseconds> limit)
    : url_(std::move(url)),
      userAgent_(std::move(userAgent)),
      ignoreCertErrors_(ignoreCertErrors),
      limit_(limit),
      client_(made()) {}

std::optional<int> TestClient::send(Method method, const Log& log) {
  return limit_ ? sendWithin(*limit_, method, log) : requested(client_, method, Logger(log));
}

std::optional<int> TestClient::sendWithin(std::chrono::milliseconds limit, Method method, const Log& log) {
  const auto sending = std::make_shared<Sending>();
  sending->client = std::move(client_);
  sending->method = method;
  sending->log = &log;
  std::future<int> status = sending->status.get_future();
  std::thread([sending] { sending->run(); }).detach();
  const bool ended = status.wait_for(limit) == std::future_status::ready;
  const std::lock_guard lock(sending->mutex);
  sending->log = nullptr;
  // A new client has neither proxy nor credentials; the library sets both before it tests the next candidate.
  client_ = ended ? std::move(sending->client) : made();
  if (!ended) return std::nullopt;
  return status.get();
}

}  // namespace kiv::tool
