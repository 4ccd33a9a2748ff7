// The addresses of a host, of both families, as every program gets them.
#include "probe/addresses.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>

#include "support/owners.h"

namespace kiv::tool {
namespace {

// Windows counts them.
class Sockets {
 public:
  Sockets() : error_(WSAStartup(MAKEWORD(2, 2), &data_)) {}
  Sockets(const Sockets&) = delete;
  Sockets& operator=(const Sockets&) = delete;
  ~Sockets() {
    if (error_ == 0) WSACleanup();
  }

  int error() const { return error_; }

 private:
  WSADATA data_{};
  int error_;
};

struct FreeAddresses {
  void operator()(ADDRINFOW* addresses) const noexcept { FreeAddrInfoW(addresses); }
};

std::wstring textOf(const ADDRINFOW& address) {
  std::array<wchar_t, NI_MAXHOST> text{};
  const int failed = GetNameInfoW(address.ai_addr, static_cast<socklen_t>(address.ai_addrlen), text.data(),
                                  static_cast<DWORD>(text.size()), nullptr, 0, NI_NUMERICHOST);
  return failed ? std::wstring() : std::wstring(text.data());
}

void addOnce(std::vector<std::wstring>& texts, std::wstring text) {
  if (!text.empty() && std::ranges::count(texts, text) == 0) texts.push_back(std::move(text));
}

}  // namespace

Addresses lookUp(const std::wstring& host) {
  Addresses found{.host = host, .ipv4 = {}, .ipv6 = {}};
  const Sockets sockets;
  ADDRINFOW hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  support::Unique<ADDRINFOW*, FreeAddresses> list;
  const int failed = sockets.error() ? sockets.error() : GetAddrInfoW(host.c_str(), nullptr, &hints, list.put());
  if (failed) {
    found.error = static_cast<unsigned>(failed);
    return found;
  }
  for (const ADDRINFOW* address = list.get(); address; address = address->ai_next) {
    if (address->ai_family == AF_INET) addOnce(found.ipv4, textOf(*address));
    if (address->ai_family == AF_INET6) addOnce(found.ipv6, textOf(*address));
  }
  return found;
}

}  // namespace kiv::tool
