// The bytes of one connection that a server of the ground accepted.
#include "ground/socket_stream.h"

#include <algorithm>
#include <array>

namespace selfcheck {

SocketStream::SocketStream(SOCKET socket, HANDLE stop)
    : socket_(socket), stop_(stop), arrived_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  if (!arrived_) kiv::session::throwLastError();
  constexpr DWORD kSendingTimeout = 10'000;
  setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&kSendingTimeout), sizeof kSendingTimeout);
}

std::size_t SocketStream::read(std::span<char> buffer) {
  OVERLAPPED operation{};
  operation.hEvent = arrived_.get();
  WSABUF part{static_cast<ULONG>(buffer.size()), buffer.data()};
  DWORD flags = 0;
  DWORD size = 0;
  if (WSARecv(socket_, &part, 1, nullptr, &flags, &operation, nullptr) == 0 || WSAGetLastError() == WSA_IO_PENDING) {
    const std::array<HANDLE, 2> events{arrived_.get(), stop_};
    if (WaitForMultipleObjects(2, events.data(), FALSE, INFINITE) != WAIT_OBJECT_0) {
      CancelIo(reinterpret_cast<HANDLE>(socket_));
    }
    if (!WSAGetOverlappedResult(socket_, &operation, &size, TRUE, &flags)) return 0;
  }
  return size;
}

bool SocketStream::write(std::string_view bytes) {
  while (!bytes.empty()) {
    constexpr std::size_t kMost = 64 * 1024;
    const int sent = send(socket_, bytes.data(), static_cast<int>(std::min(bytes.size(), kMost)), 0);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void SocketStream::close() {
  std::array<char, 4096> ignored{};
  shutdown(socket_, SD_SEND);
  while (read(ignored) != 0) continue;
}

void SocketStream::makeResetting() {
  const linger none{1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&none), sizeof none);
}

}  // namespace selfcheck
