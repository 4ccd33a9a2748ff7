// The one parser for proxy addresses and URLs.
#include "config/address.h"

#include <algorithm>
#include <array>

#include "config/address_grammar.h"
#include "support/number.h"
#include "support/text.h"

namespace kiv::impl {
namespace {

struct SchemeWord {
  std::wstring_view word;
  AddressScheme kind;
  bool forProxiesOnly;
};

constexpr std::array kSchemeWords = {
    SchemeWord{L"", AddressScheme::Http, false},        SchemeWord{L"http", AddressScheme::Http, false},
    SchemeWord{L"proxy", AddressScheme::Http, true},    SchemeWord{L"https", AddressScheme::Https, false},
    SchemeWord{L"socks4", AddressScheme::Socks, false}, SchemeWord{L"socks", AddressScheme::Socks, false},
    SchemeWord{L"socks5", AddressScheme::Socks, false},
};

std::optional<AddressScheme> kindOf(std::wstring_view scheme, bool acceptProxyWord) {
  const auto* const found = std::ranges::find(kSchemeWords, scheme, &SchemeWord::word);
  if (found == kSchemeWords.end() || (found->forProxiesOnly && !acceptProxyWord)) return std::nullopt;
  return found->kind;
}

// More than this has no ASCII form of a host name's length, and converting it can take the system minutes.
constexpr std::size_t kLongestHost = 2048;

// A host that has no ASCII form becomes empty, and the address stays one: whoever uses it will fail with a clear error.
std::wstring toAscii(std::wstring_view host) {
  std::array<wchar_t, 255> ascii{};
  if (host.size() > kLongestHost ||
      !IdnToAscii(0, host.data(), static_cast<int>(host.size()), ascii.data(), static_cast<int>(ascii.size()))) {
    return {};
  }
  return {ascii.begin(), std::ranges::find(ascii, L'\0')};
}

// Ports wrap around at 16 bits.
std::optional<std::uint16_t> portOf(std::wstring_view digits) {
  if (digits.empty()) return std::nullopt;
  return static_cast<std::uint16_t>(support::toSigned32(digits));
}

}  // namespace

std::optional<ParsedAddress> parseAddress(std::wstring_view text, bool acceptProxyWord) {
  const std::optional<AddressParts> parts = splitAddress(text);
  if (!parts) return std::nullopt;
  ParsedAddress address;
  address.host = toAscii(parts->host);
  address.scheme = support::toLower(parts->scheme);
  address.kind = kindOf(address.scheme, acceptProxyWord);
  address.port = portOf(parts->port);
  address.path = parts->path;
  address.query = parts->query;
  if (!parts->user.empty()) address.cred = Cred::create(parts->user, parts->password);
  return address;
}

std::wstring urlText(const ParsedAddress& address) {
  std::wstring text;
  if (!address.scheme.empty()) text += address.scheme + L"://";
  text += address.host;
  if (address.port) text += L":" + support::decimal(*address.port);
  if (!address.path.empty() || !address.query.empty()) text += L"/" + address.path;
  if (!address.query.empty()) text += L"?" + address.query;
  return text;
}

}  // namespace kiv::impl
