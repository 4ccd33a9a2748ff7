// What a URL is reduced to: scheme, host and port.
#include "routes/origin.h"

#include <algorithm>

#include "support/find_any.h"
#include "support/text.h"

namespace kiv::session {
namespace {

struct SchemeWord {
  std::wstring_view start;
  OriginScheme scheme;
  std::uint16_t port;
};

constexpr std::array kSchemeWords = {
    SchemeWord{L"https://", OriginScheme::Https, 443},
    SchemeWord{L"http://", OriginScheme::Http, 80},
    SchemeWord{L"wss://", OriginScheme::Https, 443},
    SchemeWord{L"ws://", OriginScheme::Http, 80},
};

const SchemeWord* schemeOf(std::wstring_view url) {
  const auto startsUrl = [&](const SchemeWord& word) {
    return std::ranges::equal(url.substr(0, word.start.size()), word.start, {},
                              [](wchar_t c) { return c > support::kLastAscii ? c : support::toLower(c); });
  };
  const auto found = std::ranges::find_if(kSchemeWords, startsUrl);
  return found == kSchemeWords.end() ? nullptr : &*found;
}

// Some readers of URLs drop these, or take a backslash for a slash, and so see another host.
bool isAmbiguous(wchar_t c) { return c <= L' ' || c == support::kLastAscii || c == L'\\'; }

std::size_t hashOf(OriginScheme scheme, std::wstring_view host, std::uint16_t port) {
  // FNV-1a, a character at a time; the last lines bring what the high bits know into the low ones.
  constexpr std::uint64_t kPrime = 0x100000001B3;
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const wchar_t c : host) hash = (hash ^ static_cast<std::uint64_t>(c)) * kPrime;
  hash = (hash ^ port) * kPrime;
  hash = (hash ^ static_cast<std::uint64_t>(scheme)) * kPrime;
  hash ^= hash >> 32U;
  return static_cast<std::size_t>(hash ^ hash >> 15U);
}

}  // namespace

Origin::Origin(OriginScheme scheme, std::wstring_view host, std::uint16_t port) noexcept
    : scheme_(scheme), port_(port), length_(host.size()), hash_(hashOf(scheme, host, port)) {
  std::ranges::copy(host, host_.begin());
}

Origin::Origin(const Origin& other) noexcept
    : scheme_(other.scheme_), port_(other.port_), length_(other.length_), hash_(other.hash_) {
  std::ranges::copy(other.host(), host_.begin());
}

Origin& Origin::operator=(const Origin& other) noexcept {
  if (this == &other) return *this;
  scheme_ = other.scheme_;
  port_ = other.port_;
  length_ = other.length_;
  hash_ = other.hash_;
  std::ranges::copy(other.host(), host_.begin());
  return *this;
}

std::optional<Origin> Origin::parse(std::wstring_view url) noexcept {
  const SchemeWord* const word = url.size() > kLongestUrl ? nullptr : schemeOf(url);
  if (!word) return std::nullopt;
  url.remove_prefix(word->start.size());
  std::wstring_view authority = url.substr(0, support::findAny<L'/', L'?', L'#'>(url));
  if (std::ranges::any_of(authority, isAmbiguous)) return std::nullopt;
  if (const std::size_t at = authority.rfind(L'@'); at != std::wstring_view::npos) authority.remove_prefix(at + 1);
  const std::optional<HostAndPort> parts = splitHostAndPort(authority);
  if (!parts) return std::nullopt;
  const std::optional<std::uint16_t> port = readPort(parts->port, word->port);
  if (!port) return std::nullopt;
  std::array<wchar_t, kLongestHost> host;  // not filled
  const std::size_t length = writeHost(parts->host, host);
  if (length == 0) return std::nullopt;
  return Origin(word->scheme, {host.data(), length}, *port);
}

std::wstring Origin::url() const {
  std::wstring text(isHttps() ? L"https://" : L"http://");
  return text.append(host()).append(L":").append(support::Decimal(port_).view()).append(L"/");
}

bool Origin::operator==(const Origin& other) const noexcept {
  return hash_ == other.hash_ && scheme_ == other.scheme_ && port_ == other.port_ && host() == other.host();
}

}  // namespace kiv::session
