// The bytes of one connection that a server of the ground accepted.
#pragma once

#include "ground/stream.h"
#include "network/sockets.h"

namespace selfcheck {

class SocketStream : public Stream {
 public:
  // Takes no part in owning either. What is signalled by `stop` ends reads.
  SocketStream(SOCKET socket, HANDLE stop);

  std::size_t read(std::span<char> buffer) override;
  bool write(std::string_view bytes) override;

  // Says that no more will be written, and waits until the client closes: what it has not read yet is not lost.
  void close();
  // Closing the socket from now on resets the connection.
  void makeResetting();

 private:
  SOCKET socket_;
  HANDLE stop_;
  kiv::support::UniqueEvent arrived_;
};

}  // namespace selfcheck
