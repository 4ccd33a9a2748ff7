// A server that learns in which language it is spoken to: it reads what comes first on each connection, and closes it.
#include "checks/first_bytes.h"

#include <algorithm>
#include <cctype>

#include "loop/system_error.h"

namespace selfcheck {
namespace {

std::string languageOf(const std::string& bytes) {
  if (bytes.empty()) return "a connection without a byte";
  switch (bytes.front()) {
    case 4:
      return "a SOCKS 4 request";
    case 5:
      return "a SOCKS 5 request";
    case 22:
      return "a TLS handshake";
    default:
      return std::isupper(static_cast<unsigned char>(bytes.front())) ? "an HTTP request" : "bytes of another kind";
  }
}

kiv::support::UniqueEvent newEvent() {
  kiv::support::UniqueEvent event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) kiv::session::throwLastError();
  return event;
}

}  // namespace

FirstBytes::FirstBytes() : stop_(newEvent()), thread_([this] { serve(); }) {}

FirstBytes::~FirstBytes() { stop(); }

void FirstBytes::serve() {
  constexpr std::uint32_t kLookForStopEvery = 50;
  for (bool stopping = false; !stopping;) {
    // Who connected before the stop is heard too.
    stopping = WaitForSingleObject(stop_.get(), 0) == WAIT_OBJECT_0;
    while (auto connection = listener_.accept(stopping ? 0 : kLookForStopEvery)) {
      heard_.insert(languageOf(connection->readSome()));
    }
  }
}

void FirstBytes::stop() {
  SetEvent(stop_.get());
  thread_ = Thread();
}

std::string FirstBytes::heard() {
  stop();
  if (heard_.empty()) return "nothing";
  std::string text;
  for (const std::string& language : heard_) text.append(text.empty() ? "" : ", ").append(language);
  return text;
}

}  // namespace selfcheck
