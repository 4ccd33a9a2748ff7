// What the simulator knows about sockets, keys, registrations for changes, and security contexts.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/simulated_changes.h"
#include "platform/simulated_network.h"
#include "platform/simulated_security.h"

namespace kiv::test {

inline constexpr std::size_t kNoConnection = static_cast<std::size_t>(-1);

struct Socket {
  enum class Stage { Unconnected, Connecting, Connected };

  Stage stage = Stage::Unconnected;
  int family = 0;
  bool nonBlocking = false;
  bool ended = false;  // the other side closed
  bool reset = false;  // the other side reset
  bool mayNotSend = false;
  bool mayNotReceive = false;

  HANDLE event = nullptr;
  LONG selected = 0;  // network events that the library wants to hear of
  LONG enabled = 0;   // those of which it would hear now
  LONG noted = 0;     // those that it has not asked for yet
  std::array<int, FD_MAX_EVENTS> errors{};

  std::size_t connection = kNoConnection;  // its place in the record
  Listener listener;
  std::string incoming;        // arrived, and not received yet
  std::deque<Reply> outgoing;  // on its way here
  std::size_t underWay = 0;    // how many bytes are on their way to the other side
};

struct SocketState {
  std::map<void*, Socket> sockets;  // the open ones
  std::vector<void*> startups;
  std::vector<ConnectionRecord> connections;
  std::size_t mostOpen = 0;
};

struct RegistryKey {
  std::wstring path;  // in lower case: "hkcu\software"
  REGSAM access = 0;
  bool refusedAgnostic = false;  // as Windows 7 does, which does not know the flag
};

// One call of RegNotifyChangeKeyValue that has not been answered.
struct Watch {
  HKEY key = nullptr;
  bool subtree = false;
  DWORD filter = 0;
  HANDLE event = nullptr;
};

struct RegistryState {
  std::map<void*, RegistryKey> keys;
  std::vector<Watch> watches;
};

// One registration for notifications by callback.
struct Registration {
  enum class Of { Addresses, WinHttpProxy, Power };

  Of of = Of::Addresses;
  std::function<void(ULONG type)> tell = {};
  std::size_t running = 0;  // callbacks
  bool cancelled = false;
};

struct ChangeState {
  std::vector<UnicastAddress> addresses{{.address = "192.0.2.10"}};
  std::map<void*, Registration> registrations;
  std::map<void*, std::wstring> modules;  // that were loaded or asked for, by handle
};

struct SecurityContext {
  std::size_t record = 0;
  bool wantsCompletion = false;
  bool finished = false;
};

struct SecurityState {
  std::map<void*, std::size_t> credentials;  // handle to place among the identities
  std::map<void*, SecurityContext> contexts;
  std::vector<IdentityRecord> identities;
  std::vector<HandshakeRecord> handshakes;
};

// Reads an address in its usual form; false if it is none.
bool parseAddress(std::string_view text, unsigned port, SOCKADDR_INET& address);
std::string formatAddress(const SOCKADDR_INET& address);

}  // namespace kiv::test
