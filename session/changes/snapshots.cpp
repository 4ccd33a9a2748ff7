// What is compared when the system says that something has changed: the user's proxy settings, and this machine's
// addresses.
#include "changes/snapshots.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

#include "changes/ip_helper.h"
#include "changes/system_functions.h"

namespace kiv::session {
namespace {

using Address = Addresses::Address;
using Text = support::UniqueGlobalText<wchar_t>;

std::wstring copyOf(const Text& text) { return text ? std::wstring(text.get()) : std::wstring(); }

bool isLocal(const Address& address) {
  const auto& bytes = address.bytes;
  if (!address.isIpv6) return bytes[0] == 127 || (bytes[0] == 169 && bytes[1] == 254);
  if (bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80) return true;
  constexpr std::array<std::uint8_t, 16> kLoopback{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  return bytes == kLoopback;
}

// An address that is still being checked for duplicates cannot be used; when it can, that is a change of its own
// ("CreateUnicastIpAddressEntry function").
bool isUsable(const MIB_UNICASTIPADDRESS_ROW& row) {
  return row.DadState == IpDadStatePreferred || row.DadState == IpDadStateDeprecated;
}

Address addressIn(const MIB_UNICASTIPADDRESS_ROW& row) {
  Address address;
  static_assert(sizeof(row.InterfaceLuid) == sizeof(address.interfaceId));
  std::memcpy(&address.interfaceId, &row.InterfaceLuid, sizeof(address.interfaceId));
  address.prefix = row.OnLinkPrefixLength;
  address.isIpv6 = row.Address.si_family == AF_INET6;
  if (address.isIpv6) {
    std::memcpy(address.bytes.data(), &row.Address.Ipv6.sin6_addr, sizeof(row.Address.Ipv6.sin6_addr));
  } else {
    std::memcpy(address.bytes.data(), &row.Address.Ipv4.sin_addr, sizeof(row.Address.Ipv4.sin_addr));
  }
  return address;
}

// The system's table, and the library whose function frees it.
class AddressTable {
 public:
  AddressTable() noexcept
      : library_(loadFromSystem(L"iphlpapi.dll")),
        free_(lookUp<decltype(&FreeMibTable)>(library_.get(), "FreeMibTable")) {
    const auto read = lookUp<decltype(&GetUnicastIpAddressTable)>(library_.get(), "GetUnicastIpAddressTable");
    if (read && free_ && read(AF_UNSPEC, &table_) != ERROR_SUCCESS) table_ = nullptr;
  }
  AddressTable(const AddressTable&) = delete;
  AddressTable& operator=(const AddressTable&) = delete;
  ~AddressTable() {
    if (table_) free_(table_);
  }

  std::span<const MIB_UNICASTIPADDRESS_ROW> rows() const noexcept {
    if (!table_) return {};
    return {table_->Table, table_->NumEntries};
  }

 private:
  support::UniqueModule library_;
  decltype(&FreeMibTable) free_;
  PMIB_UNICASTIPADDRESS_TABLE table_ = nullptr;
};

}  // namespace

ProxySettings ProxySettings::read() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG user{};
  const bool read = WinHttpGetIEProxyConfigForCurrentUser(&user);
  const DWORD error = read ? ERROR_SUCCESS : GetLastError();
  const Text autoConfigUrl(user.lpszAutoConfigUrl);
  const Text proxy(user.lpszProxy);
  const Text bypass(user.lpszProxyBypass);
  return {error, user.fAutoDetect != FALSE, copyOf(autoConfigUrl), copyOf(proxy), copyOf(bypass)};
}

Addresses Addresses::read() {
  const AddressTable table;
  Addresses addresses;
  for (const MIB_UNICASTIPADDRESS_ROW& row : table.rows()) {
    const Address address = addressIn(row);
    if (isUsable(row) && !isLocal(address)) addresses.all.push_back(address);
  }
  std::ranges::sort(addresses.all);
  return addresses;
}

}  // namespace kiv::session
