// Addresses as text and back, in the form in which people write them.
#include <algorithm>
#include <charconv>
#include <cstdio>

#include "platform/simulated_network_state.h"

namespace kiv::test {
namespace {

// Reads one number and the separator behind it, if there is one.
template <class Number>
bool takeNumber(std::string_view& text, int base, Number highest, char separator, Number& number) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || value > highest) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  number = static_cast<Number>(value);
  if (text.empty()) return true;
  if (text.front() != separator || text.size() == 1) return false;
  text.remove_prefix(1);
  return true;
}

bool parseFour(std::string_view text, UCHAR* bytes) {
  for (int i = 0; i < 4; ++i) {
    if (text.empty() || !takeNumber<UCHAR>(text, 10, 255, '.', bytes[i])) return false;
  }
  return text.empty();
}

bool parseGroups(std::string_view text, std::vector<USHORT>& groups) {
  while (!text.empty()) {
    if (!takeNumber<USHORT>(text, 16, 0xFFFF, ':', groups.emplace_back())) return false;
  }
  return true;
}

bool parseSix(std::string_view text, UCHAR* bytes) {
  const std::size_t gap = text.find("::");
  std::vector<USHORT> groups, behind;
  if (!parseGroups(text.substr(0, gap), groups)) return false;
  if (gap != std::string_view::npos) {
    if (!parseGroups(text.substr(gap + 2), behind) || groups.size() + behind.size() > 7) return false;
    groups.resize(8 - behind.size());
    groups.insert(groups.end(), behind.begin(), behind.end());
  }
  if (groups.size() != 8) return false;
  for (const USHORT group : groups) {
    *bytes++ = static_cast<UCHAR>(group >> 8);
    *bytes++ = static_cast<UCHAR>(group & 0xFF);
  }
  return true;
}

// Without the zeros in front, and with "::" for the longest run of two or more groups of zeros.
std::string formatSix(const UCHAR* bytes) {
  std::array<unsigned, 8> groups{};
  for (std::size_t i = 0; i < 8; ++i) groups[i] = bytes[2 * i] * 256U + bytes[2 * i + 1];
  std::size_t gap = 8, length = 1;
  for (std::size_t i = 0; i < 8; ++i) {
    std::size_t end = i;
    while (end < 8 && groups[end] == 0) ++end;
    if (end - i > length) gap = i, length = end - i;
  }
  std::string text;
  for (std::size_t i = 0; i < 8; ++i) {
    if (i == gap) {
      text += "::";
      i += length - 1;
      continue;
    }
    std::array<char, 8> digits{};
    std::snprintf(digits.data(), digits.size(), "%x", groups[i]);
    if (!text.empty() && text.back() != ':') text += ':';
    text += digits.data();
  }
  return text;
}

}  // namespace

bool parseAddress(std::string_view text, unsigned port, SOCKADDR_INET& address) {
  address = {};
  const auto networkPort = static_cast<USHORT>((port & 0xFF) << 8 | port >> 8);
  if (parseFour(text, reinterpret_cast<UCHAR*>(&address.Ipv4.sin_addr))) {
    address.Ipv4.sin_family = AF_INET;
    address.Ipv4.sin_port = networkPort;
    return true;
  }
  address = {};
  if (!parseSix(text, address.Ipv6.sin6_addr.s6_addr)) return false;
  address.Ipv6.sin6_family = AF_INET6;
  address.Ipv6.sin6_port = networkPort;
  return true;
}

std::string formatAddress(const SOCKADDR_INET& address) {
  if (address.si_family == AF_INET6) return formatSix(address.Ipv6.sin6_addr.s6_addr);
  const auto* bytes = reinterpret_cast<const UCHAR*>(&address.Ipv4.sin_addr);
  std::string text;
  for (int i = 0; i < 4; ++i) text.append(i ? "." : "").append(std::to_string(bytes[i]));
  return text;
}

}  // namespace kiv::test
