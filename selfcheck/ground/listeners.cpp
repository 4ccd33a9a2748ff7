// Accepts connections on several ports, and serves each connection on a thread of its own.
#include "ground/listeners.h"

#include <process.h>

#include <algorithm>
#include <array>

#include "ground/patience.h"

namespace selfcheck {
namespace {

using kiv::session::LockGuard;
using kiv::session::UniqueSocket;
using kiv::support::UniqueEvent;

using Body = std::function<void()>;

unsigned __stdcall runBody(void* body) {
  (*std::unique_ptr<Body>(static_cast<Body*>(body)))();
  return 0;
}

UniqueEvent newEvent() {
  UniqueEvent event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) kiv::session::throwLastError();
  return event;
}

// The loopback address of a family, and its length.
struct Loopback {
  sockaddr_storage address{};
  int size = 0;
};

Loopback loopbackOf(int family) {
  Loopback loopback;
  loopback.address.ss_family = static_cast<ADDRESS_FAMILY>(family);
  if (family == AF_INET6) {
    reinterpret_cast<sockaddr_in6&>(loopback.address).sin6_addr.s6_addr[15] = 1;
    loopback.size = sizeof(sockaddr_in6);
  } else {
    reinterpret_cast<sockaddr_in&>(loopback.address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    loopback.size = sizeof(sockaddr_in);
  }
  return loopback;
}

bool hasEnded(const Thread& thread, std::uint32_t patience) {
  return WaitForSingleObject(thread.handle(), patience) == WAIT_OBJECT_0;
}

}  // namespace

Thread::Thread(Body body) {
  auto owned = std::make_unique<Body>(std::move(body));
  handle_ = UniqueEvent(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, runBody, owned.get(), 0, nullptr)));
  if (!handle_) kiv::session::throwLastError();
  static_cast<void>(owned.release());
}

Thread::~Thread() {
  if (handle_) WaitForSingleObject(handle_.get(), INFINITE);
}

Listeners::Listeners(Serve serve) : serve_(std::move(serve)), arrived_(newEvent()), stop_(newEvent()) {}

Listeners::~Listeners() {
  SetEvent(stop_.get());
  acceptor_ = Thread();
  connections_.clear();
}

std::uint16_t Listeners::add(std::size_t listener, int family, bool dead) {
  UniqueSocket socket(::socket(family, SOCK_STREAM, IPPROTO_TCP));
  if (!socket) return 0;
  const BOOL exclusive = TRUE;
  setsockopt(socket.get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&exclusive),
             sizeof exclusive);
  Loopback loopback = loopbackOf(family);
  auto* const address = reinterpret_cast<sockaddr*>(&loopback.address);
  if (bind(socket.get(), address, loopback.size) != 0) return 0;
  if (getsockname(socket.get(), address, &loopback.size) != 0) return 0;
  if (!dead && listen(socket.get(), SOMAXCONN) != 0) return 0;
  if (!dead && WSAEventSelect(socket.get(), arrived_.get(), FD_ACCEPT) != 0) return 0;
  listeners_.push_back({listener, std::move(socket)});
  // At the same place in both families.
  return ntohs(reinterpret_cast<const sockaddr_in&>(loopback.address).sin_port);
}

void Listeners::start() {
  acceptor_ = Thread([this] {
    const std::array<HANDLE, 2> events{stop_.get(), arrived_.get()};
    while (WaitForMultipleObjects(2, events.data(), FALSE, INFINITE) != WAIT_OBJECT_0) acceptAll();
  });
}

// accept() lets the event be set again, so that what comes while this runs is not lost.
void Listeners::acceptAll() {
  ResetEvent(arrived_.get());
  for (const Listener& listener : listeners_) {
    while (UniqueSocket socket{accept(listener.socket.get(), nullptr, nullptr)}) accepted(listener, std::move(socket));
  }
}

void Listeners::accepted(const Listener& listener, UniqueSocket socket) {
  // An accepted socket has the listener's mode, which does not block.
  u_long nonBlocking = 0;
  WSAEventSelect(socket.get(), nullptr, 0);
  ioctlsocket(socket.get(), static_cast<long>(FIONBIO), &nonBlocking);
  auto connection = std::make_shared<Connection>();
  connection->socket = std::move(socket);
  connection->thread = Thread([this, number = listener.number, &connection = *connection] {
    serve_(number, connection.socket.get(), stop_.get());
    connection.socket = UniqueSocket();
  });
  const LockGuard guard(lock_);
  std::erase_if(connections_, [](const auto& former) { return hasEnded(former->thread, 0); });
  connections_.push_back(std::move(connection));
}

bool Listeners::waitUntilIdle() {
  const Patience patience;
  while (true) {
    std::shared_ptr<Connection> oldest;
    {
      const LockGuard guard(lock_);
      if (connections_.empty()) return true;
      oldest = connections_.front();
    }
    if (!hasEnded(oldest->thread, patience.left())) return false;
    const LockGuard guard(lock_);
    std::erase(connections_, oldest);
  }
}

}  // namespace selfcheck
