// The question to a proxy over Winsock.
#include "environment/proxy_question.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <optional>

namespace kiv::tool {
namespace {

using Clock = std::chrono::steady_clock;

class Winsock {
 public:
  Winsock() : started_(WSAStartup(MAKEWORD(2, 2), &data_) == 0) {}
  Winsock(const Winsock&) = delete;
  Winsock& operator=(const Winsock&) = delete;
  ~Winsock() {
    if (started_) WSACleanup();
  }
  explicit operator bool() const { return started_; }

 private:
  WSADATA data_{};
  bool started_;
};

class AddressList {
 public:
  explicit AddressList(const ProxyServer& proxy) {
    ADDRINFOW hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    if (GetAddrInfoW(proxy.host.c_str(), std::to_wstring(proxy.port).c_str(), &hints, &first_) != 0) first_ = nullptr;
  }
  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;
  ~AddressList() {
    if (first_) FreeAddrInfoW(first_);
  }
  const ADDRINFOW* first() const { return first_; }

 private:
  ADDRINFOW* first_ = nullptr;
};

// A connection whose every wait ends at the deadline.
class Connection {
 public:
  Connection(const ADDRINFOW& address, Clock::time_point deadline)
      : socket_(socket(address.ai_family, address.ai_socktype, address.ai_protocol)), deadline_(deadline) {
    u_long nonBlocking = 1;
    if (socket_ == INVALID_SOCKET || ioctlsocket(socket_, FIONBIO, &nonBlocking) != 0) return;
    const bool done = connect(socket_, address.ai_addr, static_cast<int>(address.ai_addrlen)) == 0;
    connected_ = done || (WSAGetLastError() == WSAEWOULDBLOCK && canWrite());
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() {
    if (socket_ != INVALID_SOCKET) closesocket(socket_);
  }
  explicit operator bool() const { return connected_; }

  bool write(std::string_view text) {
    while (!text.empty()) {
      const int sent = send(socket_, text.data(), static_cast<int>(text.size()), 0);
      if (sent > 0) {
        text.remove_prefix(static_cast<std::size_t>(sent));
      } else if (WSAGetLastError() != WSAEWOULDBLOCK || !canWrite()) {
        return false;
      }
    }
    return true;
  }

  // The next bytes; none if the proxy has closed the connection, or has been silent until the deadline.
  std::string_view read() {
    while (true) {
      const int received = recv(socket_, part_.data(), static_cast<int>(part_.size()), 0);
      if (received >= 0) return {part_.data(), static_cast<std::size_t>(received)};
      if (WSAGetLastError() != WSAEWOULDBLOCK || !canRead()) return {};
    }
  }

 private:
  bool canWrite() {
    // select reports a connection that failed as an exception.
    fd_set writable = set();
    fd_set failed = set();
    return wait(nullptr, &writable, &failed) && FD_ISSET(socket_, &writable);
  }
  bool canRead() {
    fd_set readable = set();
    return wait(&readable, nullptr, nullptr);
  }

  fd_set set() const { return {.fd_count = 1, .fd_array = {socket_}}; }

  bool wait(fd_set* readable, fd_set* writable, fd_set* failed) const {
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline_ - Clock::now()).count();
    if (left <= 0) return false;
    timeval time{};
    time.tv_sec = static_cast<long>(left / 1'000'000);
    time.tv_usec = static_cast<long>(left % 1'000'000);
    return select(0, readable, writable, failed, &time) > 0;
  }

  SOCKET socket_;
  Clock::time_point deadline_;
  bool connected_ = false;
  std::array<char, 4096> part_{};
};

std::optional<std::string> headFrom(Connection& connection, const std::string& question) {
  constexpr std::size_t kMost = 65536;
  if (!connection || !connection.write(question)) return std::nullopt;
  std::string head;
  while (head.size() < kMost && head.find("\r\n\r\n") == std::string::npos) {
    const std::string_view part = connection.read();
    if (part.empty()) break;
    head += part;
  }
  return head.substr(0, head.find("\r\n\r\n"));
}

}  // namespace

ProxyAnswer askProxy(const ProxyServer& proxy, const std::string& question, std::chrono::milliseconds limit) {
  const Winsock winsock;
  if (!winsock) return {};
  const AddressList addresses(proxy);
  const auto deadline = Clock::now() + limit;
  for (const ADDRINFOW* address = addresses.first(); address; address = address->ai_next) {
    Connection connection(*address, deadline);
    if (const auto head = headFrom(connection, question)) return readAnswer(*head);
  }
  return {};
}

}  // namespace kiv::tool
