// Winsock: sockets that never block, their network events, and the lookup of names; all against a scripted network.
#include <algorithm>
#include <bit>
#include <cstring>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using Noise = Entry::Noise;
using std::chrono::milliseconds;

void* toHandle(SOCKET socket) { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(socket)); }

// A socket's error, in the place of its result.
int failOnSocket(Entry& call, int code) { return call.fail(static_cast<DWORD>(code), SOCKET_ERROR); }

int injectedFault(Entry& call) { return call.fail(*call.fault(), SOCKET_ERROR); }

bool isStarted(Entry& call) {
  if (!call.state().network.startups.empty()) return true;
  call.state().complaints.push_back(call.name() + " was called before WSAStartup");
  return call.fail(WSANOTINITIALISED, false);
}

// Finds an open socket; if there is none, makes the call fail.
Socket* find(Entry& call, SOCKET socket) {
  call.handle(L"socket", socket == INVALID_SOCKET ? nullptr : toHandle(socket));
  if (!isStarted(call)) return nullptr;
  void* handle = socket == INVALID_SOCKET ? nullptr : toHandle(socket);
  if (call.state().check(handle, Kind::Socket, call.name())) return &call.state().network.sockets.at(handle);
  return call.fail(WSAENOTSOCK, static_cast<Socket*>(nullptr));
}

// Records a network event and signals the event object, if the library wants to hear of it now.
void note(State& state, Socket& socket, int bit, int error = 0) {
  const LONG flag = LONG{1} << bit;
  if (!(socket.selected & socket.enabled & flag)) return;
  socket.enabled &= ~flag;
  socket.noted |= flag;
  socket.errors[static_cast<std::size_t>(bit)] = error;
  state.signal(socket.event);
}

// The other side's end is told when all that came before it was received.
void noteArrivals(State& state, Socket& socket) {
  if (!socket.incoming.empty()) {
    note(state, socket, FD_READ_BIT);
  } else if (socket.reset || socket.ended) {
    note(state, socket, FD_CLOSE_BIT, socket.reset ? WSAECONNRESET : 0);
  }
}

// The socket, if it is open and has not begun another connection since.
Socket* findConnection(State& state, void* handle, std::size_t connection) {
  const auto found = state.network.sockets.find(handle);
  return found != state.network.sockets.end() && found->second.connection == connection ? &found->second : nullptr;
}

// Runs the job later, under the lock, if the connection is there still.
template <class Action>
void laterOn(State& state, milliseconds delay, void* handle, std::size_t connection, Action action) {
  state.later(delay, [&state, handle, connection, action] {
    const MemoryWatch::Pause pause;
    const std::lock_guard lock(state.mutex);
    if (Socket* socket = findConnection(state, handle, connection)) action(*socket);
  });
}

// Sends the reply on its way here, in pieces if the listener is of that kind. They arrive in the order of their
// sending.
void sendBack(State& state, void* handle, Socket& socket, const Reply& reply) {
  const std::size_t size = socket.listener.pieces.value_or(std::max<std::size_t>(reply.bytes.size(), 1));
  milliseconds delay = reply.after;
  for (std::size_t at = 0; at < reply.bytes.size() || at == 0; at += size) {
    const bool last = at + size >= reply.bytes.size();
    socket.outgoing.push_back(
        {.bytes = reply.bytes.substr(at, size), .closes = last && reply.closes, .resets = last && reply.resets});
    laterOn(state, delay, handle, socket.connection, [&state](Socket& receiver) {
      const Reply piece = std::move(receiver.outgoing.front());
      receiver.outgoing.pop_front();
      if (receiver.ended || receiver.reset) return;
      receiver.incoming += piece.bytes;
      receiver.ended = piece.closes;
      receiver.reset = piece.resets;
      noteArrivals(state, receiver);
    });
    delay += milliseconds(1);
  }
}

void hear(State& state, void* handle, Socket& socket) {
  if (!socket.listener.dialogue) return;
  const Reply reply = socket.listener.dialogue(state.network.connections[socket.connection].received);
  if (!reply.bytes.empty() || reply.closes || reply.resets) sendBack(state, handle, socket, reply);
}

void establish(State& state, void* handle, Socket& socket) {
  socket.stage = Socket::Stage::Connected;
  state.network.connections[socket.connection].connected = true;
  note(state, socket, FD_CONNECT_BIT);
  note(state, socket, FD_WRITE_BIT);
  hear(state, handle, socket);
}

void refuse(State& state, Socket& socket) {
  socket.stage = Socket::Stage::Unconnected;
  note(state, socket, FD_CONNECT_BIT, socket.listener.error);
}

std::size_t countOpen(const std::vector<ConnectionRecord>& connections) {
  return static_cast<std::size_t>(std::ranges::count(connections, false, &ConnectionRecord::closed));
}

void startConnection(Entry& call, void* handle, Socket& socket, const SOCKADDR_INET& address) {
  State& state = call.state();
  SocketState& network = state.network;
  const Network& script = call.windows().network;
  const std::string text = formatAddress(address);
  const USHORT port = std::uint16_t{address.Ipv4.sin_port};
  const unsigned hostPort = (port & 0xFFU) << 8 | port >> 8U;
  call.text(L"address", std::wstring_view(toWide(text))).number(L"port", hostPort);
  const auto listener = script.listeners.find({text, hostPort});
  socket.listener = listener == script.listeners.end() ? script.otherwise : listener->second;
  socket.stage = Socket::Stage::Connecting;
  if (socket.connection != kNoConnection) network.connections[socket.connection].closed = true;
  socket.connection = network.connections.size();
  network.connections.push_back({.address = text, .port = hostPort, .when = state.needTime(call.name()).now()});
  network.mostOpen = std::max(network.mostOpen, countOpen(network.connections));
  const auto answer = socket.listener.answer;
  if (answer == Listener::Answer::Silent) return;
  laterOn(state, socket.listener.after, handle, socket.connection, [&state, handle, answer](Socket& connecting) {
    answer == Listener::Answer::Accepts ? establish(state, handle, connecting) : refuse(state, connecting);
  });
}

// What a socket that may block would do in this place, nobody wants to wait for.
void checkNonBlocking(Entry& call, const Socket& socket) {
  if (socket.nonBlocking) return;
  call.state().complaints.push_back(call.name() + " was called for a socket that blocks");
}

bool isLowerCaseEqual(wchar_t a, wchar_t b) { return (a >= L'A' && a <= L'Z' ? a + 32 : int{a}) == int{b}; }

const NameAnswer* findName(const Network& network, std::wstring_view name) {
  for (const auto& [known, answer] : network.names) {
    if (std::ranges::equal(name, known, isLowerCaseEqual)) return &answer;
  }
  return nullptr;
}

bool readPort(PCWSTR service, unsigned& port) {
  port = 0;
  for (; service && *service; ++service) {
    if (*service < L'0' || *service > L'9') return false;
    port = port * 10 + static_cast<unsigned>(*service - L'0');
    if (port > 65535) return false;
  }
  return true;
}

// One block that holds the entries and, behind them, the addresses.
PADDRINFOW newAddressList(State& state, const std::vector<SOCKADDR_INET>& addresses, const ADDRINFOW& hints) {
  const std::size_t count = addresses.size();
  const std::vector<std::byte> nothing(count * (sizeof(ADDRINFOW) + sizeof(SOCKADDR_INET)));
  auto* entries = static_cast<PADDRINFOW>(state.newBlock(Kind::AddressList, nothing.data(), nothing.size()));
  auto* places = reinterpret_cast<SOCKADDR_INET*>(entries + count);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(&places[i], &addresses[i], sizeof addresses[i]);
    entries[i].ai_family = addresses[i].si_family;
    entries[i].ai_socktype = hints.ai_socktype;
    entries[i].ai_protocol = hints.ai_protocol;
    entries[i].ai_addrlen = addresses[i].si_family == AF_INET ? sizeof(SOCKADDR_IN) : sizeof(SOCKADDR_IN6);
    entries[i].ai_addr = reinterpret_cast<sockaddr*>(&places[i]);
    entries[i].ai_next = i + 1 < count ? &entries[i + 1] : nullptr;
  }
  return entries;
}

// The addresses of a name, or the error; takes as long as the script says.
int lookUp(Entry& call, const std::wstring& name, int flags, std::vector<std::string>& addresses) {
  SOCKADDR_INET literal{};
  std::string narrow = toNarrow(name);
  if (parseAddress(narrow, 0, literal)) {
    addresses.push_back(std::move(narrow));
    return 0;
  }
  const NameAnswer* known = findName(call.windows().network, name);
  if (!known || flags & AI_NUMERICHOST) return WSAHOST_NOT_FOUND;
  const NameAnswer answer = *known;
  if (!call.spend(answer.after)) return WSATRY_AGAIN;
  addresses = answer.addresses;
  return answer.error;
}

}  // namespace

Dialogue says(std::vector<std::pair<std::string, std::string>> exchanges) {
  // How many of the exchanges are over.
  return [exchanges = std::move(exchanges), done = std::size_t{0}](std::string_view received) mutable -> Reply {
    for (std::size_t i = 0; i < done; ++i) received.remove_prefix(exchanges[i].first.size());
    Reply reply;
    for (; done < exchanges.size(); ++done) {
      const std::string_view expected = exchanges[done].first;
      if (!received.starts_with(expected.substr(0, received.size()))) return {.resets = true};
      if (received.size() < expected.size()) return reply;
      received.remove_prefix(expected.size());
      reply.bytes += exchanges[done].second;
    }
    reply.resets = !received.empty();
    return reply;
  };
}

std::vector<ConnectionRecord> SimulatedWindows::connections() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->network.connections;
}

std::size_t SimulatedWindows::openConnections() const {
  const std::lock_guard lock(state_->mutex);
  return countOpen(state_->network.connections);
}

std::size_t SimulatedWindows::mostConnections() const {
  const std::lock_guard lock(state_->mutex);
  return state_->network.mostOpen;
}

void State::checkUnwatched(HANDLE event) {
  const std::string end = " would signal it";
  for (const auto& [handle, socket] : network.sockets) {
    if (socket.event == event) {
      complaints.push_back(resources.at(event).name + " was closed while " + resources.at(handle).name + end);
    }
  }
  for (const Watch& watch : registry.watches) {
    if (watch.event == event) {
      complaints.push_back(resources.at(event).name + " was closed while " + resources.at(watch.key).name + end);
    }
  }
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

int WSAAPI WSAStartup(WORD version, LPWSADATA data) {
  Entry call("WSAStartup");
  call.flags(L"version", version);
  // Its failure is its result; the last error says nothing.
  if (call.fault()) return static_cast<int>(call.fail(*call.fault(), *call.fault()));
  if (!data) return call.fail(WSAEFAULT, WSAEFAULT);
  *data = {};
  data->wVersion = version;
  data->wHighVersion = MAKEWORD(2, 2);
  State& state = call.state();
  state.network.startups.push_back(state.newHandle(Kind::Winsock, "use of Winsock"));
  return call.succeed(0);
}

int WSAAPI WSACleanup() {
  Entry call("WSACleanup");
  if (!isStarted(call)) return SOCKET_ERROR;
  State& state = call.state();
  state.release(state.network.startups.back(), Kind::Winsock, call.name());
  state.network.startups.pop_back();
  if (state.network.startups.empty()) {
    for (const auto& [handle, socket] : state.network.sockets) {
      state.complaints.push_back(state.resources.at(handle).name + " was open at the last WSACleanup");
    }
  }
  return call.succeed(0);
}

int WSAAPI WSAGetLastError() {
  const Entry call("WSAGetLastError", Noise::Quiet);
  return static_cast<int>(lastError());
}

SOCKET WSAAPI WSASocketW(int family, int type, int protocol, LPWSAPROTOCOL_INFOW info, GROUP group, DWORD flags) {
  Entry call("WSASocketW");
  call.number(L"family", static_cast<unsigned>(family)).number(L"type", static_cast<unsigned>(type));
  call.number(L"protocol", static_cast<unsigned>(protocol)).text(L"info", info ? L"set" : L"null");
  call.number(L"group", group).flags(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), SOCKET{INVALID_SOCKET});
  if (!isStarted(call)) return INVALID_SOCKET;
  if (type != SOCK_STREAM || (protocol != 0 && protocol != IPPROTO_TCP)) {
    return call.fail(WSAEINVAL, SOCKET{INVALID_SOCKET});
  }
  if (family != AF_INET && family != AF_INET6) return call.fail(WSAEAFNOSUPPORT, SOCKET{INVALID_SOCKET});
  void* handle = call.state().newHandle(Kind::Socket, "socket");
  call.state().network.sockets[handle].family = family;
  return call.succeed(static_cast<SOCKET>(reinterpret_cast<std::uintptr_t>(handle)));
}

int WSAAPI WSAEventSelect(SOCKET s, WSAEVENT event, LONG networkEvents) {
  Entry call("WSAEventSelect");
  Socket* socket = find(call, s);
  call.handle(L"event", event).flags(L"events", static_cast<DWORD>(networkEvents));
  if (call.fault()) return injectedFault(call);
  if (!socket) return SOCKET_ERROR;
  State& state = call.state();
  // Without network events to select it cancels, whatever the event.
  if (networkEvents && !state.check(event, Kind::Event, call.name())) return failOnSocket(call, WSAEINVAL);
  socket->nonBlocking = true;
  socket->event = networkEvents ? event : nullptr;
  socket->selected = networkEvents;
  socket->enabled = networkEvents;
  socket->noted = 0;
  if (socket->stage == Socket::Stage::Connected) {
    note(state, *socket, FD_CONNECT_BIT);
    note(state, *socket, FD_WRITE_BIT);
    noteArrivals(state, *socket);
  }
  return call.succeed(0);
}

int WSAAPI WSAEnumNetworkEvents(SOCKET s, WSAEVENT event, LPWSANETWORKEVENTS networkEvents) {
  Entry call("WSAEnumNetworkEvents");
  Socket* socket = find(call, s);
  call.handle(L"event", event);
  if (call.fault()) return injectedFault(call);
  if (!socket) return SOCKET_ERROR;
  State& state = call.state();
  if (event && !state.check(event, Kind::Event, call.name())) return failOnSocket(call, WSAEINVAL);
  if (!networkEvents) return failOnSocket(call, WSAEFAULT);
  if (event) state.events.at(event).signaled = false;
  networkEvents->lNetworkEvents = std::exchange(socket->noted, 0);
  std::ranges::copy(socket->errors, networkEvents->iErrorCode);
  return call.succeed(0);
}

int WSAAPI connect(SOCKET s, const sockaddr* name, int length) {
  Entry call("connect");
  Socket* socket = find(call, s);
  if (call.fault()) return injectedFault(call);
  if (!socket) return SOCKET_ERROR;
  if (socket->stage == Socket::Stage::Connecting) return failOnSocket(call, WSAEALREADY);
  if (socket->stage == Socket::Stage::Connected) return failOnSocket(call, WSAEISCONN);
  SOCKADDR_INET address{};
  const std::size_t needed = socket->family == AF_INET ? sizeof(SOCKADDR_IN) : sizeof(SOCKADDR_IN6);
  if (!name || length < static_cast<int>(needed)) return failOnSocket(call, WSAEFAULT);
  std::memcpy(&address, name, needed);
  if (address.si_family != socket->family) return failOnSocket(call, WSAEAFNOSUPPORT);
  checkNonBlocking(call, *socket);
  socket->enabled = socket->selected;
  startConnection(call, toHandle(s), *socket, address);
  return failOnSocket(call, WSAEWOULDBLOCK);
}

int WSAAPI send(SOCKET s, const char* buffer, int length, int flags) {
  Entry call("send");
  Socket* socket = find(call, s);
  call.number(L"length", static_cast<unsigned>(length)).number(L"flags", static_cast<unsigned>(flags));
  if (call.fault()) return injectedFault(call);
  if (!socket) return SOCKET_ERROR;
  if (socket->mayNotSend) return failOnSocket(call, WSAESHUTDOWN);
  if (socket->reset) return failOnSocket(call, WSAECONNRESET);
  if (socket->stage != Socket::Stage::Connected) return failOnSocket(call, WSAENOTCONN);
  if (!buffer || length < 0) return failOnSocket(call, WSAEFAULT);
  checkNonBlocking(call, *socket);
  auto size = static_cast<std::size_t>(length);
  if (const auto room = socket->listener.room) {
    if (size && socket->underWay >= *room) {
      socket->enabled |= socket->selected & FD_WRITE;
      return failOnSocket(call, WSAEWOULDBLOCK);
    }
    size = std::min(size, *room - socket->underWay);
  }
  socket->underWay += size;
  State& state = call.state();
  void* handle = toHandle(s);
  const milliseconds delay(socket->listener.room ? 1 : 0);
  state.later(delay, [&state, handle, connection = socket->connection, bytes = std::string(buffer, size)] {
    const MemoryWatch::Pause pause;
    const std::lock_guard lock(state.mutex);
    state.network.connections[connection].received += bytes;  // even if the socket was closed since
    Socket* sender = findConnection(state, handle, connection);
    if (!sender) return;
    sender->underWay -= bytes.size();
    note(state, *sender, FD_WRITE_BIT);
    hear(state, handle, *sender);
  });
  return call.succeed(static_cast<int>(size));
}

int WSAAPI recv(SOCKET s, char* buffer, int length, int flags) {
  Entry call("recv");
  Socket* socket = find(call, s);
  call.number(L"length", static_cast<unsigned>(length)).number(L"flags", static_cast<unsigned>(flags));
  if (call.fault()) return injectedFault(call);
  if (!socket) return SOCKET_ERROR;
  if (socket->stage != Socket::Stage::Connected) return failOnSocket(call, WSAENOTCONN);
  if (socket->mayNotReceive) return failOnSocket(call, WSAESHUTDOWN);
  if (flags) return failOnSocket(call, WSAEOPNOTSUPP);
  if (!buffer || length <= 0) return failOnSocket(call, WSAEFAULT);
  checkNonBlocking(call, *socket);
  const std::size_t size = std::min(socket->incoming.size(), static_cast<std::size_t>(length));
  std::ranges::copy_n(socket->incoming.begin(), static_cast<std::ptrdiff_t>(size), buffer);
  socket->incoming.erase(0, size);
  socket->enabled |= socket->selected & FD_READ;
  noteArrivals(call.state(), *socket);
  if (size == 0 && socket->reset) return failOnSocket(call, WSAECONNRESET);
  if (size == 0 && !socket->ended) return failOnSocket(call, WSAEWOULDBLOCK);
  return call.succeed(static_cast<int>(size));
}

int WSAAPI shutdown(SOCKET s, int how) {
  Entry call("shutdown");
  Socket* socket = find(call, s);
  call.number(L"how", static_cast<unsigned>(how));
  if (call.fault()) return injectedFault(call);
  if (!socket) return SOCKET_ERROR;
  if (socket->stage != Socket::Stage::Connected) return failOnSocket(call, WSAENOTCONN);
  if (how != SD_RECEIVE && how != SD_SEND && how != SD_BOTH) return failOnSocket(call, WSAEINVAL);
  socket->mayNotSend |= how != SD_RECEIVE;
  socket->mayNotReceive |= how != SD_SEND;
  return call.succeed(0);
}

int WSAAPI closesocket(SOCKET s) {
  Entry call("closesocket");
  void* handle = s == INVALID_SOCKET ? nullptr : toHandle(s);
  call.handle(L"socket", handle);
  if (!isStarted(call)) return SOCKET_ERROR;
  State& state = call.state();
  if (!state.release(handle, Kind::Socket, call.name())) return failOnSocket(call, WSAENOTSOCK);
  const Socket& socket = state.network.sockets.at(handle);
  if (socket.connection != kNoConnection) state.network.connections[socket.connection].closed = true;
  state.network.sockets.erase(handle);
  return call.succeed(0);
}

USHORT WSAAPI htons(USHORT number) { return static_cast<USHORT>(number << 8 | number >> 8); }

USHORT WSAAPI ntohs(USHORT number) { return htons(number); }

ULONG WSAAPI htonl(ULONG number) {
  return number << 24 | (number & 0xFF00U) << 8 | (number >> 8 & 0xFF00U) | number >> 24;
}

ULONG WSAAPI ntohl(ULONG number) { return htonl(number); }

INT WSAAPI GetAddrInfoW(PCWSTR node, PCWSTR service, const ADDRINFOW* hints, PADDRINFOW* result) {
  Entry call("GetAddrInfoW");
  const ADDRINFOW wanted = hints ? *hints : ADDRINFOW{};
  call.text(L"node", node).text(L"service", service).number(L"family", static_cast<unsigned>(wanted.ai_family));
  call.number(L"type", static_cast<unsigned>(wanted.ai_socktype));
  call.number(L"protocol", static_cast<unsigned>(wanted.ai_protocol));
  call.flags(L"flags", static_cast<unsigned>(wanted.ai_flags));
  const auto failed = [&](int code) { return call.fail(static_cast<DWORD>(code), code); };
  if (result) *result = nullptr;
  if (call.fault()) return failed(static_cast<int>(*call.fault()));
  if (!isStarted(call)) return WSANOTINITIALISED;
  unsigned port = 0;
  if (!node || !result || !readPort(service, port)) return failed(WSAEINVAL);
  std::vector<std::string> texts;
  if (const int error = lookUp(call, node, wanted.ai_flags, texts)) return failed(error);
  std::vector<SOCKADDR_INET> addresses;
  for (const std::string& text : texts) {
    SOCKADDR_INET address{};
    if (!parseAddress(text, port, address)) return failed(WSANO_RECOVERY);
    if (wanted.ai_family == AF_UNSPEC || wanted.ai_family == address.si_family) addresses.push_back(address);
  }
  if (addresses.empty()) return failed(WSANO_DATA);
  *result = newAddressList(call.state(), addresses, wanted);
  return call.succeed(0);
}

void WSAAPI FreeAddrInfoW(PADDRINFOW list) {
  Entry call("FreeAddrInfoW");
  call.handle(L"list", list);
  if (list) call.state().release(list, Kind::AddressList, call.name());
  lastError() = kClobbered;
}
