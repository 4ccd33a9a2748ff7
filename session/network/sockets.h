// The socket headers, in the one order in which they compile, and owners of what they hand out.
#pragma once

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
// clang-format on

#include <utility>

#include "loop/system_error.h"
#include "support/owners.h"

namespace kiv::session {

// The use of Winsock; each is paired with an end.
class Winsock {
 public:
  // Throws SystemError.
  Winsock() {
    WSADATA data{};
    if (const int error = WSAStartup(MAKEWORD(2, 2), &data)) throw SystemError{static_cast<DWORD>(error)};
  }
  Winsock(const Winsock&) = delete;
  Winsock& operator=(const Winsock&) = delete;
  ~Winsock() { WSACleanup(); }
};

class UniqueSocket {
 public:
  UniqueSocket() = default;
  explicit UniqueSocket(SOCKET socket) noexcept : socket_(socket) {}
  UniqueSocket(UniqueSocket&& other) noexcept : socket_(std::exchange(other.socket_, INVALID_SOCKET)) {}
  UniqueSocket& operator=(UniqueSocket&& other) noexcept {
    std::swap(socket_, other.socket_);
    return *this;
  }
  UniqueSocket(const UniqueSocket&) = delete;
  UniqueSocket& operator=(const UniqueSocket&) = delete;
  ~UniqueSocket() {
    if (socket_ != INVALID_SOCKET) closesocket(socket_);
  }

  SOCKET get() const noexcept { return socket_; }
  explicit operator bool() const noexcept { return socket_ != INVALID_SOCKET; }

 private:
  SOCKET socket_ = INVALID_SOCKET;
};

struct FreeAddresses {
  void operator()(PADDRINFOW list) const noexcept { FreeAddrInfoW(list); }
};
using UniqueAddresses = support::Unique<PADDRINFOW, FreeAddresses>;

}  // namespace kiv::session
