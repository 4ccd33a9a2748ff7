// The one parser for proxy addresses and URLs.
#include "config/address.h"

#include <algorithm>
#include <array>

#include "support/number.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

// The scheme words of addresses, in lower case; an address may have none.
struct AddressWord {
  std::wstring_view word;
  AddressScheme kind;
  bool forProxiesOnly;
};

constexpr std::array kAddressWords = {
    AddressWord{L"", AddressScheme::Http, false},        AddressWord{L"http", AddressScheme::Http, false},
    AddressWord{L"https", AddressScheme::Https, false},  AddressWord{L"proxy", AddressScheme::Http, true},
    AddressWord{L"socks4", AddressScheme::Socks, false}, AddressWord{L"socks", AddressScheme::Socks, false},
    AddressWord{L"socks5", AddressScheme::Socks, false},
};

std::optional<AddressScheme> kindOf(std::wstring_view scheme, bool acceptProxyWord) {
  for (const AddressWord& known : kAddressWords) {
    if (known.word == scheme && (acceptProxyWord || !known.forProxiesOnly)) return known.kind;
  }
  return std::nullopt;
}

// How many characters the ASCII form of a host can have.
constexpr std::size_t kLongestAscii = 255;

struct CharacterRange {
  wchar_t first;
  wchar_t last;
};

// What the conversion drops from a name: table B.1 of RFC 3454, which nameprep (RFC 3491) maps to nothing.
constexpr std::array kDropped = {
    CharacterRange{0x00AD, 0x00AD}, CharacterRange{0x034F, 0x034F}, CharacterRange{0x1806, 0x1806},
    CharacterRange{0x180B, 0x180D}, CharacterRange{0x200B, 0x200D}, CharacterRange{0x2060, 0x2060},
    CharacterRange{0xFE00, 0xFE0F}, CharacterRange{0xFEFF, 0xFEFF},
};

bool isKept(wchar_t c) {
  return std::ranges::none_of(kDropped, [c](CharacterRange range) { return c >= range.first && c <= range.last; });
}

// Whether a host is too long to have an ASCII form. Unicode's normalization makes one character of at most four, and
// each takes at least one in the ASCII form. Such a host must not reach the system: Wine's conversion takes time that
// grows with the square of the length, minutes for a host of a million characters.
bool isTooLong(std::wstring_view host) {
  constexpr std::size_t kMostKept = 4 * kLongestAscii;
  return host.size() > kMostKept && static_cast<std::size_t>(std::ranges::count_if(host, isKept)) > kMostKept;
}

// A host that has no ASCII form becomes empty, and the address stays one: whoever uses it will fail with a clear error.
std::wstring toAscii(std::wstring_view host) {
  if (isTooLong(host)) return {};
  std::array<wchar_t, kLongestAscii> ascii;  // not filled: that would take longer than all that is done with it
  const int length =
      IdnToAscii(0, host.data(), static_cast<int>(host.size()), ascii.data(), static_cast<int>(ascii.size()));
  return std::wstring(support::upToNul(std::wstring_view(ascii.data(), static_cast<std::size_t>(length))));
}

// Ports wrap around at 16 bits.
std::optional<std::uint16_t> portOf(std::wstring_view digits) {
  if (digits.empty()) return std::nullopt;
  return static_cast<std::uint16_t>(support::toSigned32(digits));
}

}  // namespace

ParsedAddress::ParsedAddress(const AddressParts& parts, bool acceptProxyWord)
    : scheme(support::toLower(parts.scheme)),
      kind(kindOf(scheme, acceptProxyWord)),
      host(toAscii(parts.host)),
      port(portOf(parts.port)),
      path(parts.path),
      query(parts.query),
      cred(parts.user.empty() ? std::nullopt : Cred::create(parts.user, parts.password)) {}

std::optional<ParsedAddress> parseAddress(std::wstring_view text, bool acceptProxyWord) {
  const std::optional<AddressParts> parts = splitAddress(text);
  if (!parts) return std::nullopt;
  return std::optional<ParsedAddress>(std::in_place, *parts, acceptProxyWord);
}

std::wstring urlText(const ParsedAddress& address) {
  std::wstring text;
  if (!address.scheme.empty()) text += address.scheme + L"://";
  text += address.host;
  if (address.port) text.append(L":").append(support::Decimal(*address.port).view());
  if (!address.path.empty() || !address.query.empty()) text += L"/" + address.path;
  if (!address.query.empty()) text += L"?" + address.query;
  return text;
}

}  // namespace kiv::impl
