// Serves one PAC script over loopback, because WinHTTP runs no script that it has not downloaded.
#include "pac/script_server.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <system_error>

#include "common/console.h"

namespace kiv::tool {
namespace {

constexpr const char* kNotFound = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

[[noreturn]] void fail(const char* what, int error) { throw std::system_error(error, std::system_category(), what); }

// 128 random bits: on Windows std::random_device is a generator for cryptography.
std::string randomPath() {
  std::random_device random;
  std::array<char, 33> digits{};
  for (std::size_t at = 0; at < 32; at += 8) {
    std::snprintf(digits.data() + at, 9, "%08x", static_cast<unsigned>(random()));
  }
  return std::string("/") + digits.data() + ".pac";
}

std::string responseWith(const std::string& script) {
  return "HTTP/1.1 200 OK\r\nContent-Type: application/x-ns-proxy-autoconfig\r\nCache-Control: no-store\r\n"
         "Connection: close\r\nContent-Length: " +
         std::to_string(script.size()) + "\r\n\r\n" + script;
}

// Binds to a free port of 127.0.0.1 and returns it.
std::uint16_t listenOnLoopback(SOCKET listener) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof(address);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, any, size) != 0 || listen(listener, SOMAXCONN) != 0 || getsockname(listener, any, &size) != 0) {
    fail("loopback", WSAGetLastError());
  }
  return ntohs(address.sin_port);
}

// The request up to its body, as far as it comes in time; requests that are answered are short.
std::string readRequest(SOCKET client) {
  constexpr std::size_t kLongest = 8192;
  std::string request;
  std::array<char, 2048> part{};
  while (request.size() < kLongest && request.find("\r\n\r\n") == std::string::npos) {
    const int size = recv(client, part.data(), static_cast<int>(part.size()), 0);
    if (size <= 0) break;
    request.append(part.data(), static_cast<std::size_t>(size));
  }
  return request;
}

void sendAll(SOCKET client, std::string_view text) {
  while (!text.empty()) {
    const int sent = send(client, text.data(), static_cast<int>(text.size()), 0);
    if (sent <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// An accepted socket has the listener's mode, which does not block.
void makeBlocking(SOCKET client) {
  constexpr DWORD kPatience = 5'000;
  u_long nonBlocking = 0;
  WSAEventSelect(client, nullptr, 0);
  ioctlsocket(client, static_cast<long>(FIONBIO), &nonBlocking);
  for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
    setsockopt(client, SOL_SOCKET, option, reinterpret_cast<const char*>(&kPatience), sizeof(kPatience));
  }
}

}  // namespace

WinsockUse::WinsockUse() {
  WSADATA data{};
  if (const int error = WSAStartup(MAKEWORD(2, 2), &data)) fail("Winsock", error);
}

ScriptServer::ScriptServer(const std::string& script)
    : response_(responseWith(script)),
      listener_(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)),
      wake_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  if (!listener_ || !wake_) fail("loopback", listener_ ? static_cast<int>(GetLastError()) : WSAGetLastError());
  const std::string path = randomPath();
  requestLine_ = "GET " + path + " HTTP/1.";
  url_ = toWide("http://127.0.0.1:" + std::to_string(listenOnLoopback(listener_.get())) + path);
  if (WSAEventSelect(listener_.get(), wake_.get(), FD_ACCEPT) != 0) fail("loopback", WSAGetLastError());
  thread_ = std::thread([this] { serve(); });
}

ScriptServer::~ScriptServer() {
  stopping_ = true;
  SetEvent(wake_.get());
  thread_.join();
}

void ScriptServer::serve() const {
  while (true) {
    WaitForSingleObject(wake_.get(), INFINITE);
    // Asked after the event was reset: a wish to stop that comes later sets it again.
    WSANETWORKEVENTS events{};
    WSAEnumNetworkEvents(listener_.get(), wake_.get(), &events);
    if (stopping_) return;
    while (const Socket client{accept(listener_.get(), nullptr, nullptr)}) answer(client.get());
  }
}

void ScriptServer::answer(SOCKET client) const {
  makeBlocking(client);
  sendAll(client, readRequest(client).starts_with(requestLine_) ? response_ : kNotFound);
  shutdown(client, SD_SEND);
}

}  // namespace kiv::tool
