// Proves that the simulated sockets connect, speak and report as scripted, and notice how they are misused.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "platform/platform_test.h"
#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using Lines = std::vector<std::string>;
using std::chrono::milliseconds;
using namespace std::string_literals;

constexpr milliseconds kLong(100);
constexpr LONG kAll = FD_CONNECT | FD_READ | FD_WRITE | FD_CLOSE;

sockaddr_in toAddress(const std::string& text, unsigned port) {
  SOCKADDR_INET address{};
  EXPECT_TRUE(parseAddress(text, port, address));
  return address.Ipv4;
}

int tryToConnect(SOCKET socket, const std::string& text, unsigned port) {
  const sockaddr_in address = toAddress(text, port);
  return connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

// Started Winsock, and one socket with its event.
class SimulatedSockets : public PlatformTest {
 protected:
  SimulatedSockets() {
    WSADATA data{};
    WSAStartup(MAKEWORD(2, 2), &data);
    open();
  }
  ~SimulatedSockets() override {
    close();
    WSACleanup();
  }

  void open() {
    socket_ = WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED);
    event_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    WSAEventSelect(socket_, event_, kAll);
  }

  void close() {
    if (!event_) return;
    closesocket(socket_);
    CloseHandle(event_);
    event_ = nullptr;
  }

  bool isSignaled() const { return WaitForSingleObject(event_, 0) == WAIT_OBJECT_0; }

  WSANETWORKEVENTS events() const {
    WSANETWORKEVENTS events{};
    EXPECT_EQ(WSAEnumNetworkEvents(socket_, event_, &events), 0);
    return events;
  }

  void connectTo(const std::string& address, unsigned port) const {
    EXPECT_EQ(tryToConnect(socket_, address, port), SOCKET_ERROR);
    EXPECT_EQ(WSAGetLastError(), WSAEWOULDBLOCK);
  }

  // Connects to a listener of that kind, and forgets the events of it.
  void connectTo(const Listener& listener) {
    windows.network.listeners[{"10.0.0.1", 1080}] = listener;
    connectTo("10.0.0.1", 1080);
    time.advance(kLong);
    events();
  }

  int send(std::string_view bytes) const { return ::send(socket_, bytes.data(), static_cast<int>(bytes.size()), 0); }

  std::string receive(int size = 100) const {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    const int received = recv(socket_, bytes.data(), size, 0);
    return received < 0 ? "error " + std::to_string(WSAGetLastError())
                        : bytes.substr(0, static_cast<std::size_t>(received));
  }

  std::chrono::milliseconds passed() const { return time.now() - start_; }

  VirtualTime time{windows};
  const std::chrono::milliseconds start_ = time.now();
  SOCKET socket_ = INVALID_SOCKET;
  HANDLE event_ = nullptr;
};

TEST_F(SimulatedSockets, ConnectAfterTheScriptedTime) {
  windows.network.listeners[{"10.0.0.1", 8080}] = {.after = milliseconds(20)};
  connectTo("10.0.0.1", 8080);
  EXPECT_EQ(tryToConnect(socket_, "10.0.0.1", 8080), SOCKET_ERROR);
  EXPECT_EQ(WSAGetLastError(), WSAEALREADY);
  time.advance(milliseconds(19));
  EXPECT_FALSE(isSignaled());
  time.advance(milliseconds(1));
  EXPECT_TRUE(isSignaled());
  const WSANETWORKEVENTS told = events();
  EXPECT_EQ(told.lNetworkEvents, FD_CONNECT | FD_WRITE);
  EXPECT_EQ(told.iErrorCode[FD_CONNECT_BIT], 0);
  EXPECT_FALSE(isSignaled()) << "to enumerate resets the event";
  EXPECT_EQ(events().lNetworkEvents, 0);
}

TEST_F(SimulatedSockets, AreRefusedAfterTheScriptedTimeAndMayTryAgain) {
  windows.network.listeners[{"10.0.0.1", 8080}] = {.answer = Listener::Answer::Refuses, .after = milliseconds(5)};
  windows.network.otherwise = {.answer = Listener::Answer::Refuses, .error = WSAEHOSTUNREACH};
  for (const auto& [address, error] :
       std::vector<std::pair<std::string, int>>{{"10.0.0.1", WSAECONNREFUSED}, {"10.0.0.2", WSAEHOSTUNREACH}}) {
    connectTo(address, 8080);
    time.advance(kLong);
    const WSANETWORKEVENTS told = events();
    EXPECT_EQ(told.lNetworkEvents, FD_CONNECT);
    EXPECT_EQ(told.iErrorCode[FD_CONNECT_BIT], error);
  }
  EXPECT_EQ(windows.connections()[1].when - start_, kLong);
}

TEST_F(SimulatedSockets, HearNothingFromAFullBacklog) {
  windows.network.listeners[{"10.0.0.1", 8080}] = {.answer = Listener::Answer::Silent};
  connectTo("10.0.0.1", 8080);
  time.advance(kLong);
  EXPECT_FALSE(isSignaled());
  EXPECT_EQ(receive(), "error " + std::to_string(WSAENOTCONN));
}

TEST_F(SimulatedSockets, SignalNothingOnceTheyAreClosed) {
  windows.network.listeners[{"10.0.0.1", 8080}] = {.after = milliseconds(20)};
  connectTo("10.0.0.1", 8080);
  closesocket(socket_);
  time.advance(kLong);
  EXPECT_FALSE(isSignaled());
  CloseHandle(event_);
  event_ = nullptr;
  EXPECT_FALSE(windows.connections()[0].connected);
}

TEST_F(SimulatedSockets, SignalNothingOnceTheSelectionIsCancelled) {
  windows.network.listeners[{"10.0.0.1", 8080}] = {};
  connectTo("10.0.0.1", 8080);
  EXPECT_EQ(WSAEventSelect(socket_, nullptr, 0), 0);
  time.advance(kLong);
  EXPECT_FALSE(isSignaled());
  EXPECT_EQ(WSAEventSelect(socket_, event_, FD_WRITE), 0);
  EXPECT_TRUE(isSignaled()) << "what is so already is told at once";
}

TEST_F(SimulatedSockets, RecordConnectionsAndHowManyWereOpenAtOnce) {
  windows.network.listeners[{"10.0.0.1", 8080}] = {};
  connectTo("10.0.0.1", 8080);
  const SOCKET other = WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0);
  WSAEventSelect(other, event_, FD_CONNECT);
  tryToConnect(other, "10.0.0.2", 81);
  time.advance(kLong);
  EXPECT_EQ(windows.openConnections(), 2U);
  closesocket(other);
  const auto connections = windows.connections();
  ASSERT_EQ(connections.size(), 2U);
  EXPECT_EQ(connections[0].address, "10.0.0.1");
  EXPECT_EQ(connections[0].port, 8080U);
  EXPECT_TRUE(connections[0].connected);
  EXPECT_FALSE(connections[0].closed);
  EXPECT_EQ(connections[1].address, "10.0.0.2");
  EXPECT_FALSE(connections[1].connected);
  EXPECT_TRUE(connections[1].closed);
  EXPECT_EQ(windows.openConnections(), 1U);
  EXPECT_EQ(windows.mostConnections(), 2U);
  EXPECT_EQ(windows.arguments("connect"), L"socket=socket 1, address=10.0.0.1, port=8080");
}

TEST_F(SimulatedSockets, SpeakADialogue) {
  connectTo({.dialogue = says({{"\5\1\0"s, "\5\0"s}, {"ask", "answer"}})});
  EXPECT_EQ(receive(), "error " + std::to_string(WSAEWOULDBLOCK));
  EXPECT_EQ(send("\5\1"s), 2);
  time.advance(kLong);
  EXPECT_FALSE(isSignaled()) << "the greeting is not whole";
  EXPECT_EQ(send("\0"s), 1);
  time.advance(kLong);
  EXPECT_EQ(events().lNetworkEvents, FD_READ);
  EXPECT_EQ(receive(), "\5\0"s);
  EXPECT_EQ(send("ask"), 3);
  time.advance(kLong);
  EXPECT_EQ(receive(3), "ans");
  EXPECT_EQ(receive(), "wer");
  EXPECT_EQ(windows.connections()[0].received, "\5\1\0ask"s);
}

TEST_F(SimulatedSockets, AreResetByADialogueThatExpectedSomethingElse) {
  connectTo({.dialogue = says({{"expected", "answer"}})});
  send("exotic");
  time.advance(kLong);
  const WSANETWORKEVENTS told = events();
  EXPECT_EQ(told.lNetworkEvents, FD_CLOSE);
  EXPECT_EQ(told.iErrorCode[FD_CLOSE_BIT], WSAECONNRESET);
  EXPECT_EQ(receive(), "error " + std::to_string(WSAECONNRESET));
  EXPECT_EQ(send("more"), SOCKET_ERROR);
}

TEST_F(SimulatedSockets, TellOfTheEndWhenEverythingBeforeItWasReceived) {
  connectTo({.dialogue = [](std::string_view received) {
    return received.empty() ? Reply{} : Reply{.bytes = "bye", .after = milliseconds(7), .closes = true};
  }});
  send("x");
  time.advance(milliseconds(6));
  EXPECT_FALSE(isSignaled());
  time.advance(milliseconds(1));
  EXPECT_EQ(events().lNetworkEvents, FD_READ);
  EXPECT_EQ(receive(2), "by");
  EXPECT_EQ(events().lNetworkEvents, FD_READ) << "to receive asks for the next event";
  EXPECT_EQ(receive(), "e");
  EXPECT_EQ(events().lNetworkEvents, FD_CLOSE);
  EXPECT_EQ(receive(), "");
}

TEST_F(SimulatedSockets, ReceiveInPieces) {
  windows.network.listeners[{"10.0.0.1", 1080}] = {.dialogue = says({{"", "12345"}}), .pieces = 2};
  connectTo("10.0.0.1", 1080);
  Lines pieces;
  for (int i = 0; i < 3; ++i) {
    time.advance(milliseconds(i ? 1 : 0));
    pieces.push_back(receive());
  }
  EXPECT_EQ(pieces, (Lines{"12", "34", "5"}));
}

TEST_F(SimulatedSockets, SendAsMuchAsThereIsRoomFor) {
  connectTo({.room = 4});
  EXPECT_EQ(send("123456"), 4);
  EXPECT_EQ(send("56"), SOCKET_ERROR);
  EXPECT_EQ(WSAGetLastError(), WSAEWOULDBLOCK);
  EXPECT_FALSE(isSignaled());
  time.advance(kLong);
  EXPECT_EQ(events().lNetworkEvents, FD_WRITE);
  EXPECT_EQ(send("56"), 2);
  time.advance(kLong);
  EXPECT_FALSE(isSignaled()) << "only a send that failed asks for the event";
  EXPECT_EQ(windows.connections()[0].received, "123456");
}

TEST_F(SimulatedSockets, DoNotSendAfterShutdown) {
  connectTo({});
  EXPECT_EQ(shutdown(socket_, SD_SEND), 0);
  EXPECT_EQ(send("x"), SOCKET_ERROR);
  EXPECT_EQ(WSAGetLastError(), WSAESHUTDOWN);
  EXPECT_EQ(receive(), "error " + std::to_string(WSAEWOULDBLOCK));
}

TEST_F(SimulatedSockets, DeliverWhatWasSentBeforeTheyAreClosed) {
  connectTo({});
  send("x");
  close();
  time.advance(kLong);
  EXPECT_EQ(windows.connections()[0].received, "x");
}

TEST_F(SimulatedSockets, LookNamesUpInTheScriptedTime) {
  windows.network.names[L"proxy"] = {.addresses = {"10.0.0.1", "fd00::1"}, .after = milliseconds(30)};
  PADDRINFOW list = nullptr;
  ASSERT_EQ(GetAddrInfoW(L"Proxy", L"8080", nullptr, &list), 0);
  EXPECT_EQ(passed(), milliseconds(30));
  Lines found;
  for (PADDRINFOW entry = list; entry; entry = entry->ai_next) {
    SOCKADDR_INET address{};
    std::memcpy(&address, entry->ai_addr, entry->ai_addrlen);
    EXPECT_EQ(entry->ai_family, address.si_family);
    EXPECT_EQ(ntohs(address.Ipv4.sin_port), 8080);
    found.push_back(formatAddress(address));
  }
  FreeAddrInfoW(list);
  EXPECT_EQ(found, (Lines{"10.0.0.1", "fd00::1"}));
}

TEST_F(SimulatedSockets, LookNamesUpAsTheHintsWant) {
  windows.network.names[L"both"] = {.addresses = {"10.0.0.1", "fd00::1"}};
  windows.network.names[L"broken"] = {.error = WSATRY_AGAIN};
  struct Case {
    const wchar_t* name;
    int family;
    int flags;
    int error;
  };
  for (const Case& c :
       {Case{L"both", AF_INET6, 0, 0}, Case{L"both", AF_INET, AI_NUMERICHOST, WSAHOST_NOT_FOUND},
        Case{L"10.1.2.3", AF_UNSPEC, AI_NUMERICHOST, 0}, Case{L"10.1.2.3", AF_INET6, 0, WSANO_DATA},
        Case{L"unknown", AF_UNSPEC, 0, WSAHOST_NOT_FOUND}, Case{L"broken", AF_UNSPEC, 0, WSATRY_AGAIN}}) {
    SCOPED_TRACE(testing::Message() << c.name << " " << c.family);
    ADDRINFOW hints{};
    hints.ai_family = c.family;
    hints.ai_flags = c.flags;
    hints.ai_socktype = SOCK_STREAM;
    PADDRINFOW list = nullptr;
    EXPECT_EQ(GetAddrInfoW(c.name, nullptr, &hints, &list), c.error);
    EXPECT_EQ(list == nullptr, c.error != 0);
    if (!list) continue;
    EXPECT_EQ(list->ai_next, nullptr);
    EXPECT_EQ(list->ai_socktype, SOCK_STREAM);
    FreeAddrInfoW(list);
  }
}

TEST_F(SimulatedSockets, FailWhereTheyAreToldTo) {
  windows.failOnce("connect", WSAENOBUFS);
  EXPECT_EQ(tryToConnect(socket_, "10.0.0.1", 80), SOCKET_ERROR);
  EXPECT_EQ(WSAGetLastError(), WSAENOBUFS);
  EXPECT_TRUE(windows.connections().empty());
  windows.failOnce("WSASocketW", WSAEMFILE);
  EXPECT_EQ(WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0), INVALID_SOCKET);
  windows.failOnce("GetAddrInfoW", WSANO_RECOVERY);
  PADDRINFOW list = nullptr;
  EXPECT_EQ(GetAddrInfoW(L"10.0.0.1", nullptr, nullptr, &list), WSANO_RECOVERY);
  for (const char* release : {"closesocket", "WSACleanup", "FreeAddrInfoW"}) {
    EXPECT_FALSE(SimulatedWindows::canFail(release)) << release;
  }
}

TEST(SimulatedLookups, ThatNeverEndFailWhenTheTimeDoes) {
  SimulatedWindows windows;
  int result = -1;
  {
    VirtualTime time(windows);
    WSADATA data{};
    WSAStartup(MAKEWORD(2, 2), &data);
    windows.network.names[L"never"] = {.addresses = {"10.0.0.1"}, .after = kNever};
    time.startThread([&] {
      PADDRINFOW list = nullptr;
      result = GetAddrInfoW(L"never", nullptr, nullptr, &list);
    });
    time.advance(std::chrono::hours(30));
    EXPECT_EQ(result, -1);
  }
  EXPECT_EQ(result, WSATRY_AGAIN);
  WSACleanup();
  EXPECT_EQ(windows.complaints(), Lines{});
}

TEST(MisusedSockets, AreComplainedAbout) {
  SimulatedWindows windows;
  VirtualTime time(windows);
  EXPECT_EQ(WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0), INVALID_SOCKET);
  EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
  WSADATA data{};
  EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  const SOCKET socket = WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0);
  tryToConnect(socket, "10.0.0.1", 80);
  HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  WSAEventSelect(socket, event, FD_CONNECT);
  CloseHandle(event);
  time.advance(kLong);
  closesocket(socket);
  EXPECT_EQ(closesocket(socket), SOCKET_ERROR);
  EXPECT_EQ(closesocket(INVALID_SOCKET), SOCKET_ERROR);
  const SOCKET leaked = WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0);
  EXPECT_NE(leaked, INVALID_SOCKET);
  PADDRINFOW list = nullptr;
  EXPECT_EQ(GetAddrInfoW(L"::1", nullptr, nullptr, &list), 0);
  WSACleanup();
  EXPECT_EQ(windows.complaints(),
            (Lines{"WSASocketW was called before WSAStartup", "connect was called for a socket that blocks",
                   "event 1 was closed while socket 1 would signal it", "socket 1 was released twice",
                   "use of Winsock 1 was never released", "socket 2 was never released",
                   "address list 1 was never released"}));
  WSACleanup();
  EXPECT_EQ(windows.complaints()[4], "socket 2 was open at the last WSACleanup");
  EXPECT_EQ(WSACleanup(), SOCKET_ERROR);
}

TEST(Addresses, AreReadAndWritten) {
  struct Case {
    const char* text;
    const char* written;
  };
  for (const Case& c : {Case{"10.0.0.1", "10.0.0.1"}, Case{"255.255.255.255", "255.255.255.255"}, Case{"::", "::"},
                        Case{"::1", "::1"}, Case{"fe80::", "fe80::"}, Case{"2001:DB8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
                        Case{"1:0:2:3:4:5:6:7", "1:0:2:3:4:5:6:7"}, Case{"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8"}}) {
    SOCKADDR_INET address{};
    EXPECT_TRUE(parseAddress(c.text, 0, address)) << c.text;
    EXPECT_EQ(formatAddress(address), c.written);
  }
  for (const char* text : {"", "10", "10.0.0", "10.0.0.1.", "10.0.0.256", "10.0.0.1.2", "proxy", ":", "1:", "1::2::3",
                           "1:2:3:4:5:6:7:8:9", "::12345", "g::"}) {
    SOCKADDR_INET address{};
    EXPECT_FALSE(parseAddress(text, 0, address)) << text;
  }
}

TEST(NetworkOrder, TurnsNumbersRound) {
  EXPECT_EQ(htons(0x1234), 0x3412);
  EXPECT_EQ(ntohs(0x1234), 0x3412);
  EXPECT_EQ(htonl(0x12345678), 0x78563412U);
  EXPECT_EQ(ntohl(0x12345678), 0x78563412U);
}

}  // namespace
}  // namespace kiv::test
