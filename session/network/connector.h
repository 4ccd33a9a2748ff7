// Connecting to a port, and through a SOCKS proxy to the target behind it, with sockets of the session's own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config/cred.h"
#include "loop/event_loop.h"
#include "routes/origin.h"
#include "routes/route.h"

namespace kiv::session {

class Connector;

class ConnectorListener {
 public:
  // In the loop, when the port answered. With SOCKS the handshake still follows.
  virtual void portAnswered(Connector& connector) noexcept = 0;
  // In the loop, last and once: 0, or a Winsock or Windows error (WSAETIMEDOUT for both time-outs; WSAECONNREFUSED if a
  // SOCKS proxy refuses the target; ERROR_LOGON_FAILURE if it refuses the credentials). Not after stop().
  virtual void connectorEnded(Connector& connector, DWORD error) noexcept = 0;

 protected:
  ~ConnectorListener() = default;
};

struct ConnectorPlan {
  std::wstring host;  // a name in ASCII form, or an address without brackets
  std::uint16_t port = 0;
  std::uint32_t connectTimeOut = 0;     // ms, name resolution included
  std::uint32_t answerTimeOut = 0;      // ms, of the whole SOCKS handshake
  RouteKind socks = RouteKind::Direct;  // Socks4 or Socks5 for a handshake
  std::optional<Origin> target;         // of the handshake
  std::optional<impl::Cred> cred;       // for a SOCKS5 proxy that wants user name and password
};

// All under the loop's lock. Keeps itself alive while it works.
class Connector : public Task {
 public:
  // Throws std::bad_alloc and SystemError; the listener then hears nothing. It hears nothing before this has returned.
  static Ref<Connector> start(EventLoop& loop, ConnectorPlan plan, ConnectorListener& listener);
  // Closes the socket; the listener hears nothing any more. Any number of times.
  virtual void stop() noexcept = 0;
};

}  // namespace kiv::session
