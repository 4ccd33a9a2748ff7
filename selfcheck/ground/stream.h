// The bytes between a server of the ground and its client, with or without TLS.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace selfcheck {

class Stream {
 public:
  Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  virtual ~Stream() = default;

  // How many bytes came; 0 when no more will come.
  virtual std::size_t read(std::span<char> buffer) = 0;
  // False if the client cannot be written to.
  virtual bool write(std::string_view bytes) = 0;
};

}  // namespace selfcheck
