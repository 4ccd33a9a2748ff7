// Sockets of the checks themselves on 127.0.0.1, for what the servers of the ground do not show: connections, and bytes
// that are no requests. They need a ground, which uses Winsock as long as it lives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "network/sockets.h"

namespace selfcheck {

// One end of a connection. Nothing waits longer than what happens at once may take.
class LoopbackConnection {
 public:
  explicit LoopbackConnection(kiv::session::UniqueSocket socket);
  // Connects to a port. Throws kiv::session::SystemError.
  static LoopbackConnection to(std::uint16_t port);

  // As many bytes as wanted, or fewer if no more come.
  std::string read(std::size_t wanted);
  // What has come by now, when something has; empty if nothing comes.
  std::string readSome();
  // Up to the empty line that ends the head of an HTTP message, or to what comes before the connection ends.
  std::string readHead();
  bool write(std::string_view bytes);

 private:
  kiv::session::UniqueSocket socket_;
};

// A port that the system chooses and that no other program can take.
class LoopbackListener {
 public:
  // Throws kiv::session::SystemError.
  explicit LoopbackListener(int backlog = SOMAXCONN);

  std::uint16_t port() const { return port_; }
  // "127.0.0.1:PORT"
  std::wstring address() const { return L"127.0.0.1:" + std::to_wstring(port_); }
  // The next connection; nothing if none comes within these milliseconds.
  std::optional<LoopbackConnection> accept(std::uint32_t milliseconds);

 private:
  kiv::session::UniqueSocket socket_;
  std::uint16_t port_ = 0;
};

// A port that lets nobody connect any more, because its queue of connections is full.
class FullBacklog {
 public:
  // Throws kiv::session::SystemError.
  FullBacklog();

  std::wstring address() const { return listener_.address(); }

 private:
  LoopbackListener listener_{1};
  std::vector<kiv::session::UniqueSocket> waiting_;
};

}  // namespace selfcheck
