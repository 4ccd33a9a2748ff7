// What a URL is reduced to: scheme, host and port. Nothing else of it is kept, sent or logged.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "routes/host.h"

namespace kiv::session {

enum class OriginScheme : std::uint8_t { Http, Https };  // ws counts as http, wss as https

// Has its characters in itself, so that a lookup allocates nothing.
class Origin {
 public:
  static constexpr std::size_t kLongestUrl = 1'048'576;

  // Copy the characters that there are, and no more.
  Origin(const Origin& other) noexcept;
  Origin& operator=(const Origin& other) noexcept;
  ~Origin() = default;

  // Reads an absolute http, https, ws or wss URL; nothing for any other text. Allocates nothing.
  static std::optional<Origin> parse(std::wstring_view url) noexcept;

  OriginScheme scheme() const noexcept { return scheme_; }
  bool isHttps() const noexcept { return scheme_ == OriginScheme::Https; }
  // In ASCII form, in lower case; an IPv6 address in brackets.
  std::wstring_view host() const noexcept { return {host_.data(), length_}; }
  std::uint16_t port() const noexcept { return port_; }
  // scheme://host:port/, as scripts, log, callbacks and test requests see it.
  std::wstring url() const;
  std::size_t hash() const noexcept { return hash_; }
  bool operator==(const Origin& other) const noexcept;

 private:
  friend class Decision;  // which keeps one in parts

  // `host` is in the form that host() gives.
  Origin(OriginScheme scheme, std::wstring_view host, std::uint16_t port) noexcept;

  OriginScheme scheme_;
  std::uint16_t port_;
  std::size_t length_;
  std::size_t hash_;
  std::array<wchar_t, kLongestHost> host_;  // not filled beyond its length
};

}  // namespace kiv::session
