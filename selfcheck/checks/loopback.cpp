// Sockets of the checks themselves on 127.0.0.1, for what the servers of the ground do not show: connections, and bytes
// that are no requests. They need a ground, which uses Winsock as long as it lives.
#include "checks/loopback.h"

#include <utility>

#include "ground/patience.h"

namespace selfcheck {
namespace {

using kiv::session::SystemError;
using kiv::session::UniqueSocket;

constexpr std::string_view kEmptyLine = "\r\n\r\n";

[[noreturn]] void throwSocketError() { throw SystemError{static_cast<DWORD>(WSAGetLastError())}; }

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

UniqueSocket newSocket() {
  UniqueSocket made(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  if (!made) throwSocketError();
  return made;
}

bool isReadable(SOCKET socket, std::uint32_t milliseconds) {
  fd_set sockets;
  FD_ZERO(&sockets);
  FD_SET(socket, &sockets);
  timeval limit{static_cast<long>(milliseconds / 1000), static_cast<long>(milliseconds % 1000 * 1000)};
  return select(0, &sockets, nullptr, nullptr, &limit) == 1;
}

}  // namespace

LoopbackConnection::LoopbackConnection(UniqueSocket socket) : socket_(std::move(socket)) {}

LoopbackConnection LoopbackConnection::to(std::uint16_t port) {
  UniqueSocket connecting = newSocket();
  const sockaddr_in address = loopback(port);
  if (connect(connecting.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) throwSocketError();
  return LoopbackConnection(std::move(connecting));
}

std::string LoopbackConnection::readSome() {
  char buffer[4096];
  if (!isReadable(socket_.get(), Patience().left())) return {};
  const int count = recv(socket_.get(), buffer, sizeof(buffer), 0);
  return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : std::string();
}

std::string LoopbackConnection::read(std::size_t wanted) {
  std::string bytes;
  while (bytes.size() < wanted) {
    std::string more(wanted - bytes.size(), '\0');
    if (!isReadable(socket_.get(), Patience().left())) break;
    const int count = recv(socket_.get(), more.data(), static_cast<int>(more.size()), 0);
    if (count <= 0) break;
    bytes.append(more, 0, static_cast<std::size_t>(count));
  }
  return bytes;
}

std::string LoopbackConnection::readHead() {
  std::string head;
  while (head.find(kEmptyLine) == std::string::npos) {
    const std::string more = readSome();
    if (more.empty()) break;
    head += more;
  }
  return head;
}

bool LoopbackConnection::write(std::string_view bytes) {
  return send(socket_.get(), bytes.data(), static_cast<int>(bytes.size()), 0) == static_cast<int>(bytes.size());
}

LoopbackListener::LoopbackListener(int backlog) : socket_(newSocket()) {
  const BOOL exclusive = TRUE;
  sockaddr_in address = loopback(0);
  int size = sizeof(address);
  if (setsockopt(socket_.get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&exclusive),
                 sizeof(exclusive)) != 0 ||
      bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      listen(socket_.get(), backlog) != 0) {
    throwSocketError();
  }
  port_ = ntohs(address.sin_port);
}

std::optional<LoopbackConnection> LoopbackListener::accept(std::uint32_t milliseconds) {
  if (!isReadable(socket_.get(), milliseconds)) return std::nullopt;
  UniqueSocket accepted(::accept(socket_.get(), nullptr, nullptr));
  if (!accepted) return std::nullopt;
  return LoopbackConnection(std::move(accepted));
}

FullBacklog::FullBacklog() {
  constexpr int kMoreThanFit = 8;
  const sockaddr_in address = loopback(listener_.port());
  for (int i = 0; i < kMoreThanFit; ++i) {
    u_long nonBlocking = 1;
    UniqueSocket& waiting = waiting_.emplace_back(newSocket());
    if (ioctlsocket(waiting.get(), static_cast<long>(FIONBIO), &nonBlocking) != 0) throwSocketError();
    // Some are connected, the others wait until there is space.
    (void)connect(waiting.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  }
}

}  // namespace selfcheck
