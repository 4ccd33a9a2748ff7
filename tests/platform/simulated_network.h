// The network behind the simulated sockets: what names stand for, who listens where, and what has been connected. It
// takes place in virtual time.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/simulated_headers.h"

namespace kiv::test {

// What becomes of the lookup of a name. Literal addresses need none.
struct NameAnswer {
  std::vector<std::string> addresses = {};  // in their usual form, "10.0.0.1" or "fd00::1"; handed out in this order
  std::chrono::milliseconds after{0};       // how long it takes; kNever: until virtual time ends, then it fails
  int error = 0;                            // 0: the lookup succeeds
};

// What the other side of a connection does next.
struct Reply {
  std::string bytes = {};              // may be nothing
  std::chrono::milliseconds after{0};  // how long it takes
  bool closes = false;                 // the connection, in good order, behind the bytes
  bool resets = false;                 // the connection, behind the bytes
};

// Asked when a connection stands, with nothing, and whenever bytes arrive, with all that were received so far. Runs
// under the simulator's lock: it must not call the library.
using Dialogue = std::function<Reply(std::string_view received)>;

// A server that expects each first text, in order, and answers it with the second; it resets the connection when it
// receives anything else. An expectation of nothing is met at once.
Dialogue says(std::vector<std::pair<std::string, std::string>> exchanges);

// What a port does with those who connect.
struct Listener {
  enum class Answer { Accepts, Refuses, Silent };  // silent: a full backlog, nothing ever comes back

  Answer answer = Answer::Accepts;
  std::chrono::milliseconds after{0};
  int error = WSAECONNREFUSED;  // of one that refuses
  Dialogue dialogue = {};       // without one, it listens and says nothing
  // If set, what it says arrives in pieces of that many bytes, 1 ms apart.
  std::optional<std::size_t> pieces = std::nullopt;
  // If set, that many bytes can be sent, and no more until they have arrived, 1 ms later.
  std::optional<std::size_t> room = std::nullopt;
};

struct Network {
  std::map<std::wstring, NameAnswer> names = {};  // in lower case; what is not here does not exist
  std::map<std::pair<std::string, unsigned>, Listener> listeners = {};  // by address, in its usual form, and port
  Listener otherwise = {.answer = Listener::Answer::Refuses};           // all other addresses and ports
};

// All that is known about one call of connect.
struct ConnectionRecord {
  std::string address;
  unsigned port = 0;
  std::chrono::milliseconds when{0};  // on the simulated clock
  bool connected = false;             // it stood, once
  bool closed = false;                // the socket was closed
  std::string received = {};          // what has arrived on the other side
};

}  // namespace kiv::test
