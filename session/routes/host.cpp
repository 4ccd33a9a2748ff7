// Hosts and ports, as URLs and proxy lists write them.
#include "routes/host.h"

#include <algorithm>
#include <array>

#include "config/ascii_host.h"
#include "support/text.h"

namespace kiv::session {
namespace {

constexpr std::size_t kAsciiCharacters = 128;

// Which characters a name can have, and what they become: none of those that the URL Standard forbids in a domain.
constexpr auto kNameCharacters = [] {
  std::array<wchar_t, kAsciiCharacters> table = {};  // zero: forbidden
  for (wchar_t c = L' ' + 1; c < support::kLastAscii; ++c) {
    if (std::wstring_view(L"#%/:<>?@[\\]^|").find(c) == std::wstring_view::npos) table[c] = c;
  }
  for (wchar_t c = L'A'; c <= L'Z'; ++c) table[c] = c - L'A' + L'a';
  return table;
}();

bool isAscii(wchar_t c) { return static_cast<std::uint32_t>(c) < kAsciiCharacters; }

// The length of what was written; 0 if a character does not belong in a name.
std::size_t writeName(std::wstring_view name, std::span<wchar_t, kLongestHost> out) {
  if (name.size() > out.size()) return 0;
  for (std::size_t i = 0; i < name.size(); ++i) {
    out[i] = isAscii(name[i]) ? kNameCharacters[name[i]] : L'\0';
    if (out[i] == L'\0') return 0;
  }
  return name.size();
}

bool isDecimal(wchar_t c) { return c >= L'0' && c <= L'9'; }

bool isHexadecimal(wchar_t c) { return isDecimal(c) || (c >= L'a' && c <= L'f') || (c >= L'A' && c <= L'F'); }

// A number up to 255, without leading zeros.
bool isOctet(std::wstring_view text) {
  if (text.empty() || text.size() > 3 || !std::ranges::all_of(text, isDecimal)) return false;
  if (text.size() > 1 && text.front() == L'0') return false;
  return text.size() < 3 || text <= L"255";
}

bool isIpv4(std::wstring_view text) {
  for (int octets = 1; octets < 4; ++octets) {
    const std::size_t dot = text.find(L'.');
    if (dot == std::wstring_view::npos || !isOctet(text.substr(0, dot))) return false;
    text.remove_prefix(dot + 1);
  }
  return isOctet(text);
}

// The forms of RFC 4291 (2.2): eight groups; "::" in place of one or more; an IPv4 address in place of the last two.
bool isIpv6(std::wstring_view text) {
  constexpr std::size_t kLongestAddress = 45;
  if (text.size() > kLongestAddress) return false;
  int groups = 0;
  bool shortened = text.starts_with(L"::");
  if (shortened) text.remove_prefix(2);
  for (bool more = !shortened || !text.empty(); more;) {
    const std::size_t colon = text.find(L':');
    const std::wstring_view group = text.substr(0, colon);
    more = colon != std::wstring_view::npos;
    const bool isAddress = !more && isIpv4(group);
    if (!isAddress && (group.empty() || group.size() > 4 || !std::ranges::all_of(group, isHexadecimal))) return false;
    groups += isAddress ? 2 : 1;
    if (!more) break;
    text.remove_prefix(colon + 1);
    if (!text.starts_with(L':')) continue;
    if (shortened) return false;
    shortened = true;
    text.remove_prefix(1);
    more = !text.empty();
  }
  return shortened ? groups < 8 : groups == 8;
}

}  // namespace

std::optional<HostAndPort> splitHostAndPort(std::wstring_view text) noexcept {
  const bool bracketed = text.starts_with(L'[');
  const std::size_t end =
      bracketed ? std::min(text.find(L']'), text.size() - 1) + 1 : std::min(text.find(L':'), text.size());
  HostAndPort parts = {text.substr(0, end), text.substr(end)};
  if (parts.port.empty()) return parts;
  if (parts.port.front() != L':') return std::nullopt;
  parts.port.remove_prefix(1);
  return parts;
}

std::size_t writeHost(std::wstring_view text, std::span<wchar_t, kLongestHost> out) noexcept {
  if (text.starts_with(L'[')) {
    if (!text.ends_with(L']') || !isIpv6(text.substr(1, text.size() - 2))) return 0;
    std::ranges::transform(text, out.begin(), [](wchar_t c) { return support::toLower(c); });
    return text.size();
  }
  // The conversion drops white space and makes delimiters of some characters, so what it gives is looked at as well.
  if (!std::ranges::all_of(text, isAscii)) return writeName(impl::AsciiHost(text).view(), out);
  return writeName(text, out);
}

std::optional<std::uint16_t> readPort(std::wstring_view digits, std::uint16_t missing) noexcept {
  if (digits.empty()) return missing;
  std::uint32_t port = 0;
  for (const wchar_t digit : digits) {
    if (!isDecimal(digit)) return std::nullopt;
    port = port * 10 + static_cast<std::uint32_t>(digit - L'0');
    if (port > 0xFFFF) return std::nullopt;
  }
  if (port == 0) return std::nullopt;
  return static_cast<std::uint16_t>(port);
}

}  // namespace kiv::session
