// Accepts connections on several ports, and serves each connection on a thread of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "loop/lock.h"
#include "network/sockets.h"

namespace selfcheck {

// A thread, which is waited for.
class Thread {
 public:
  Thread() = default;
  // Throws SystemError.
  explicit Thread(std::function<void()> body);
  Thread(Thread&&) = default;
  Thread& operator=(Thread&&) = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread();

  HANDLE handle() const { return handle_.get(); }

 private:
  kiv::support::UniqueEvent handle_;
};

class Listeners {
 public:
  // Serves a connection; must return soon after `stop` was signalled.
  using Serve = std::function<void(std::size_t listener, SOCKET connection, HANDLE stop)>;

  explicit Listeners(Serve serve);
  Listeners(const Listeners&) = delete;
  Listeners& operator=(const Listeners&) = delete;
  ~Listeners();

  // A port of 127.0.0.1 or ::1 that the system chooses and that no other program can take; 0 if there is none. Of a
  // dead listener nobody accepts anything: to connect is refused.
  std::uint16_t add(std::size_t listener, int family, bool dead);
  // To be called once, behind the last add().
  void start();
  bool waitUntilIdle();

 private:
  struct Listener {
    std::size_t number;
    kiv::session::UniqueSocket socket;
  };
  struct Connection {
    kiv::session::UniqueSocket socket;
    Thread thread;  // ends first
  };

  void acceptAll();
  void accepted(const Listener& listener, kiv::session::UniqueSocket socket);

  Serve serve_;
  kiv::support::UniqueEvent arrived_;
  kiv::support::UniqueEvent stop_;
  std::vector<Listener> listeners_;
  kiv::session::Lock lock_;
  std::vector<std::shared_ptr<Connection>> connections_;
  Thread acceptor_;
};

}  // namespace selfcheck
