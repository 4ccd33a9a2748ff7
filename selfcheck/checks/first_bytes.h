// A server that learns in which language it is spoken to: it reads what comes first on each connection, and closes it.
#pragma once

#include <set>
#include <string>

#include "checks/loopback.h"
#include "ground/listeners.h"

namespace selfcheck {

class FirstBytes {
 public:
  FirstBytes();
  FirstBytes(const FirstBytes&) = delete;
  FirstBytes& operator=(const FirstBytes&) = delete;
  ~FirstBytes();

  std::wstring address() const { return listener_.address(); }
  // Ends the server. "nothing", "a SOCKS 4 request", or several: "an HTTP request, a SOCKS 5 request".
  std::string heard();

 private:
  void serve();
  void stop();

  LoopbackListener listener_;
  kiv::support::UniqueEvent stop_;
  std::set<std::string> heard_;
  Thread thread_;  // ends first
};

}  // namespace selfcheck
