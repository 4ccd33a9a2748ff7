// Connecting to a port, and through a SOCKS proxy to the target behind it, with sockets of the session's own.
#include "network/connector.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "loop/event_wait.h"
#include "network/sockets.h"
#include "network/socks_dialogue.h"

namespace kiv::session {
namespace {

constexpr std::size_t kMostAddresses = 4;
constexpr Time kNextAddressAfter = 250;  // ms
constexpr LONG kNetworkEvents = FD_CONNECT | FD_READ | FD_WRITE | FD_CLOSE;

struct SocketAddress {
  SOCKADDR_INET address{};
  int length = 0;
};

struct Lookup {
  int error = 0;  // a Winsock error
  UniqueAddresses list;
};

// Blocks, unless `flags` say that the host is an address.
Lookup lookUp(const std::wstring& host, int flags) {
  ADDRINFOW hints{};
  hints.ai_flags = flags;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  Lookup lookup;
  lookup.error = GetAddrInfoW(host.c_str(), nullptr, &hints, lookup.list.put());
  return lookup;
}

// The port stands at the same place in both kinds of address.
std::optional<SocketAddress> toSocketAddress(const ADDRINFOW& entry, std::uint16_t port) {
  const bool isIpv4 = entry.ai_family == AF_INET && entry.ai_addrlen >= sizeof(SOCKADDR_IN);
  const bool isIpv6 = entry.ai_family == AF_INET6 && entry.ai_addrlen >= sizeof(SOCKADDR_IN6);
  if (!isIpv4 && !isIpv6) return std::nullopt;
  SocketAddress result;
  result.length = isIpv4 ? int{sizeof(SOCKADDR_IN)} : int{sizeof(SOCKADDR_IN6)};
  std::memcpy(&result.address, entry.ai_addr, static_cast<std::size_t>(result.length));
  result.address.Ipv4.sin_port = htons(port);
  return result;
}

// In the system's order, but the families alternate: one that leads nowhere costs one address's time.
std::vector<SocketAddress> inTurns(const ADDRINFOW* list, std::uint16_t port) {
  std::vector<SocketAddress> left;
  for (const ADDRINFOW* entry = list; entry; entry = entry->ai_next) {
    if (const auto address = toSocketAddress(*entry, port)) left.push_back(*address);
  }
  std::vector<SocketAddress> chosen;
  while (!left.empty() && chosen.size() < kMostAddresses) {
    auto next = left.begin();
    if (!chosen.empty()) {
      const auto last = chosen.back().address.si_family;
      next = std::ranges::find_if(left, [&](const auto& other) { return other.address.si_family != last; });
      if (next == left.end()) next = left.begin();
    }
    chosen.push_back(*next);
    left.erase(next);
  }
  return chosen;
}

SocksTarget socksTarget(const Origin& target) {
  SocksTarget result;
  std::wstring host(target.host());
  if (host.starts_with(L'[')) host = host.substr(1, host.size() - 2);
  for (const wchar_t c : host) result.name += static_cast<char>(c);
  result.port = target.port();
  const Lookup literal = lookUp(host, AI_NUMERICHOST);
  if (literal.error != 0 || !literal.list) return result;
  const auto address = toSocketAddress(*literal.list.get(), target.port());
  if (!address) return result;
  const bool isIpv4 = address->address.si_family == AF_INET;
  const auto* const bytes = isIpv4 ? reinterpret_cast<const std::uint8_t*>(&address->address.Ipv4.sin_addr)
                                   : reinterpret_cast<const std::uint8_t*>(&address->address.Ipv6.sin6_addr);
  result.address.assign(bytes, bytes + (isIpv4 ? 4 : 16));
  return result;
}

class PendingConnector;

// One that nobody waits for any more ends by itself.
class NameLookup final : public Job {
 public:
  NameLookup(std::wstring host, PendingConnector& connector) : host_(std::move(host)), connector_(&connector) {}

  void abandon() noexcept { connector_ = nullptr; }

 private:
  ~NameLookup() override = default;

  void work() noexcept override { lookup_ = lookUp(host_, 0); }
  void run() noexcept override;

  Winsock winsock_;
  std::wstring host_;
  PendingConnector* connector_;
  Lookup lookup_{.error = ERROR_BAD_IMPERSONATION_LEVEL, .list = {}};
};

// A connection that is being made, or has been.
class Connection {
 public:
  // Throws SystemError.
  Connection(EventLoop& loop, const SocketAddress& address);

  enum class State : std::uint8_t { Connecting, Connected, Failed };
  State state() const noexcept { return state_; }
  DWORD error() const noexcept { return error_; }
  // Looks what has happened, and lets `task` run when more does.
  void look(Task& task) noexcept;
  void waitForMore(Task& task) noexcept { wait_.arm(event_.get(), task); }

  // How many bytes; 0 if that would block, or at an error, after which the state is Failed.
  std::size_t send(const std::uint8_t* bytes, std::size_t count) noexcept;
  std::size_t receive(std::uint8_t* bytes, std::size_t capacity) noexcept;

 private:
  void fail(int error) noexcept;
  std::size_t done(int count) noexcept;

  support::UniqueEvent event_;
  UniqueSocket socket_;
  State state_ = State::Connecting;
  DWORD error_ = ERROR_SUCCESS;
  EventWait wait_;  // ends before the event is closed
};

support::UniqueEvent makeEvent() {
  support::UniqueEvent event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!event) throwLastError();
  return event;
}

[[noreturn]] void throwSocketError() { throw SystemError{static_cast<DWORD>(WSAGetLastError())}; }

UniqueSocket makeSocket(int family) {
  UniqueSocket socket(
      WSASocketW(family, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
  if (!socket) throwSocketError();
  return socket;
}

// WSAEventSelect makes the socket non-blocking.
Connection::Connection(EventLoop& loop, const SocketAddress& address)
    : event_(makeEvent()), socket_(makeSocket(address.address.si_family)), wait_(loop) {
  if (WSAEventSelect(socket_.get(), event_.get(), kNetworkEvents) != 0) throwSocketError();
  if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address.address), address.length) == 0) return;
  if (WSAGetLastError() != WSAEWOULDBLOCK) throwSocketError();
}

void Connection::look(Task& task) noexcept {
  WSANETWORKEVENTS events{};
  if (WSAEnumNetworkEvents(socket_.get(), event_.get(), &events) != 0) {
    fail(WSAGetLastError());
    return;
  }
  if (state_ == State::Connecting && (events.lNetworkEvents & FD_CONNECT) != 0) {
    if (const int error = events.iErrorCode[FD_CONNECT_BIT]) {
      fail(error);
      return;
    }
    state_ = State::Connected;
  }
  waitForMore(task);
}

std::size_t Connection::send(const std::uint8_t* bytes, std::size_t count) noexcept {
  return done(::send(socket_.get(), reinterpret_cast<const char*>(bytes), static_cast<int>(count), 0));
}

std::size_t Connection::receive(std::uint8_t* bytes, std::size_t capacity) noexcept {
  const int count = ::recv(socket_.get(), reinterpret_cast<char*>(bytes), static_cast<int>(capacity), 0);
  if (count == 0) fail(WSAECONNRESET);  // closed before it had said everything
  return done(count);
}

std::size_t Connection::done(int count) noexcept {
  if (count >= 0) return static_cast<std::size_t>(count);
  if (const int error = WSAGetLastError(); error != WSAEWOULDBLOCK) fail(error);
  return 0;
}

void Connection::fail(int error) noexcept {
  state_ = State::Failed;
  error_ = static_cast<DWORD>(error);
}

class PendingConnector final : public Connector {
 public:
  PendingConnector(EventLoop& loop, ConnectorPlan plan, ConnectorListener& listener)
      : loop_(&loop), plan_(std::move(plan)), listener_(&listener), deadline_(loop, *this), next_(loop, *this) {}

  void open();
  void stop() noexcept override;
  void found(const Lookup& lookup) noexcept;

 private:
  ~PendingConnector() override = default;

  void run() noexcept override;
  void proceed();
  void useAddresses(const ADDRINFOW* list);
  void connectToNext() noexcept;
  bool isConnecting() const noexcept;
  bool lookAtAll() noexcept;
  void connected(std::size_t winner);
  void speak();
  void sendOutput();
  void end(DWORD error) noexcept;
  void overdue() noexcept { end(WSAETIMEDOUT); }

  Ref<EventLoop> loop_;
  Winsock winsock_;  // ends after the sockets
  ConnectorPlan plan_;
  ConnectorListener* listener_;  // null when it hears nothing any more
  DeadlineOf<PendingConnector, &PendingConnector::overdue> deadline_;
  DeadlineOf<PendingConnector, &PendingConnector::connectToNext> next_;

  Ref<NameLookup> lookup_;
  std::vector<SocketAddress> addresses_;
  std::size_t begun_ = 0;  // of them
  DWORD lastError_ = WSAHOST_NOT_FOUND;
  std::array<std::optional<Connection>, kMostAddresses> connections_;

  Connection* winner_ = nullptr;
  std::optional<SocksDialogue> dialogue_;
  SecureBytes output_;
  std::size_t sent_ = 0;
};

void NameLookup::run() noexcept {
  if (connector_) connector_->found(lookup_);
}

// The reference is given back when it has ended or was stopped.
void PendingConnector::open() {
  if (!loop_->worksAsItsUser()) throw SystemError{ERROR_BAD_IMPERSONATION_LEVEL};
  if (plan_.socks != RouteKind::Direct) dialogue_.emplace(plan_.socks, socksTarget(plan_.target.value()), plan_.cred);
  const Lookup literal = lookUp(plan_.host, AI_NUMERICHOST);
  if (literal.error == 0) {
    useAddresses(literal.list.get());
    loop_->post(*this);
  } else {
    auto lookup = makeRef<NameLookup>(plan_.host, *this);
    if (!loop_->start(*lookup)) throw SystemError{ERROR_NOT_ENOUGH_MEMORY};
    lookup_ = std::move(lookup);
  }
  deadline_.set(EventLoop::now() + plan_.connectTimeOut);
  retain();
}

void PendingConnector::stop() noexcept {
  if (!std::exchange(listener_, nullptr)) return;
  deadline_.clear();
  next_.clear();
  if (lookup_) lookup_->abandon();
  winner_ = nullptr;
  for (auto& connection : connections_) connection.reset();
  output_ = {};
  loop_->postAndRelease(*this);
}

void PendingConnector::end(DWORD error) noexcept {
  ConnectorListener* const listener = listener_;
  if (!listener) return;
  stop();
  listener->connectorEnded(*this, error);
}

void PendingConnector::found(const Lookup& lookup) noexcept {
  if (lookup.error != 0) {
    end(static_cast<DWORD>(lookup.error));
    return;
  }
  try {
    useAddresses(lookup.list.get());
  } catch (const std::bad_alloc&) {
    end(ERROR_NOT_ENOUGH_MEMORY);
    return;
  }
  run();
}

void PendingConnector::useAddresses(const ADDRINFOW* list) { addresses_ = inTurns(list, plan_.port); }

void PendingConnector::run() noexcept {
  if (!listener_) return;
  if (!loop_->worksAsItsUser()) {
    end(ERROR_BAD_IMPERSONATION_LEVEL);
    return;
  }
  try {
    proceed();
  } catch (const std::bad_alloc&) {
    end(ERROR_NOT_ENOUGH_MEMORY);
  }
}

void PendingConnector::proceed() {
  if (winner_) {
    winner_->look(*this);
    speak();
    return;
  }
  const bool oneFailed = lookAtAll();
  const auto winner = std::ranges::find_if(
      connections_, [](const auto& each) { return each && each->state() == Connection::State::Connected; });
  if (winner != connections_.end()) {
    connected(static_cast<std::size_t>(winner - connections_.begin()));
  } else if (oneFailed || begun_ == 0) {
    connectToNext();
  }
}

// Whether one has failed.
bool PendingConnector::lookAtAll() noexcept {
  bool oneFailed = false;
  for (auto& connection : connections_) {
    if (!connection) continue;
    connection->look(*this);
    if (connection->state() != Connection::State::Failed) continue;
    lastError_ = connection->error();
    connection.reset();
    oneFailed = true;
  }
  return oneFailed;
}

bool PendingConnector::isConnecting() const noexcept {
  return std::ranges::any_of(connections_, [](const auto& each) { return each.has_value(); });
}

// One that cannot even begin makes room for the next at once.
void PendingConnector::connectToNext() noexcept {
  next_.clear();
  bool began = false;
  while (!began && begun_ < addresses_.size()) {
    const std::size_t index = begun_++;
    try {
      connections_[index].emplace(*loop_, addresses_[index]);
      connections_[index]->waitForMore(*this);
      began = true;
    } catch (const SystemError& failure) {
      lastError_ = failure.code;
    }
  }
  if (!began && !isConnecting()) {
    end(lastError_);
  } else if (begun_ < addresses_.size()) {
    next_.set(EventLoop::now() + kNextAddressAfter);
  }
}

void PendingConnector::connected(std::size_t winner) {
  next_.clear();
  for (std::size_t i = 0; i < connections_.size(); ++i) {
    if (i != winner) connections_[i].reset();
  }
  winner_ = &*connections_[winner];
  deadline_.set(EventLoop::now() + plan_.answerTimeOut);
  listener_->portAnswered(*this);
  if (!listener_) return;
  if (dialogue_) {
    speak();
  } else {
    end(ERROR_SUCCESS);
  }
}

// Whatever the events say, it is tried: they come once for each time that trying would have blocked.
void PendingConnector::speak() {
  std::array<std::uint8_t, 512> bytes;
  std::size_t count = 0;
  do {
    sendOutput();
    if (winner_->state() == Connection::State::Failed) break;
    count = winner_->receive(bytes.data(), bytes.size());
    dialogue_->receive(bytes.data(), count);
  } while (count > 0 && !dialogue_->isFinished());
  if (dialogue_->isFinished()) {
    end(dialogue_->error());
  } else if (winner_->state() == Connection::State::Failed) {
    end(winner_->error());
  }
}

void PendingConnector::sendOutput() {
  if (output_.empty()) output_ = dialogue_->takeOutput();
  while (sent_ < output_.size()) {
    const std::size_t count = winner_->send(output_.data() + sent_, output_.size() - sent_);
    if (count == 0) return;
    sent_ += count;
  }
  output_ = {};
  sent_ = 0;
}

}  // namespace

Ref<Connector> Connector::start(EventLoop& loop, ConnectorPlan plan, ConnectorListener& listener) {
  const auto connector = makeRef<PendingConnector>(loop, std::move(plan), listener);
  connector->open();
  return connector;
}

}  // namespace kiv::session
