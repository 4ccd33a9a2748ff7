// A credential: a user name in clear and a password that is kept encrypted.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "config/secure_string.h"
#include "kiv/cred.h"
#include "support/border.h"

namespace kiv::impl {

class Cred {
 public:
  // Protects the password; nothing if the system cannot.
  static std::optional<Cred> create(std::wstring_view username, std::wstring_view password);

  const std::wstring& username() const noexcept { return username_; }
  // Decrypts a copy of the password; an empty string if the system cannot.
  SecureString password() const;

 private:
  Cred(std::wstring_view username, SecureWideBuffer&& password, std::uint64_t length);

  std::wstring username_;
  SecureWideBuffer password_;  // encrypted
  std::uint64_t length_;       // characters of the password in clear
};

// Takes the credential away from `source`, so that an emptied handle says that it has none.
inline std::optional<Cred> take(std::optional<Cred>& source) noexcept { return std::exchange(source, std::nullopt); }

}  // namespace kiv::impl

template <>
struct kiv::support::ObjectOf<KivCred> {
  using Type = std::optional<kiv::impl::Cred>;
};
