// Serves one PAC script over loopback, because WinHTTP runs no script that it has not downloaded.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include <winsock2.h>

#include "support/owners.h"

namespace kiv::tool {

class WinsockUse {
 public:
  WinsockUse();
  WinsockUse(const WinsockUse&) = delete;
  WinsockUse& operator=(const WinsockUse&) = delete;
  ~WinsockUse() { WSACleanup(); }
};

class Socket {
 public:
  explicit Socket(SOCKET socket) : socket_(socket) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (*this) closesocket(socket_);
  }

  SOCKET get() const { return socket_; }
  explicit operator bool() const { return socket_ != INVALID_SOCKET; }

 private:
  SOCKET socket_;
};

// Serves until it is destroyed, at an address that no other program can guess and that WinHTTP, which keeps scripts by
// their addresses, has not seen before. Throws std::system_error if the system has no socket for it.
class ScriptServer {
 public:
  explicit ScriptServer(const std::string& script);
  ScriptServer(const ScriptServer&) = delete;
  ScriptServer& operator=(const ScriptServer&) = delete;
  ~ScriptServer();

  const std::wstring& url() const { return url_; }

 private:
  void serve() const;
  void answer(SOCKET client) const;

  std::string requestLine_;  // of the one request that is answered
  std::string response_;
  WinsockUse winsock_;
  Socket listener_;
  support::UniqueEvent wake_;  // somebody connects, or it is to stop
  std::wstring url_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace kiv::tool
