// The one parser for proxy addresses and URLs.
#include "config/address.h"

#include <array>

#include "config/ascii_host.h"
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

// Ports wrap around at 16 bits.
std::optional<std::uint16_t> portOf(std::wstring_view digits) {
  if (digits.empty()) return std::nullopt;
  return static_cast<std::uint16_t>(support::toSigned32(digits));
}

}  // namespace

// A host that has no ASCII form becomes empty, and the address stays one: whoever uses it will fail with a clear error.
ParsedAddress::ParsedAddress(const AddressParts& parts, bool acceptProxyWord)
    : scheme(support::toLower(parts.scheme)),
      kind(kindOf(scheme, acceptProxyWord)),
      host(AsciiHost(parts.host).view()),
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
