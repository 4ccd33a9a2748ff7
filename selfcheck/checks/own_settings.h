// Proxy settings that only this process sees: the user's are neither changed nor read as long as they stand.
#pragma once

#include <string>

#include "support/owners.h"

namespace selfcheck {

struct ProxySettings {
  std::wstring proxies{};  // "127.0.0.1:8080;127.0.0.1:8081"
  std::wstring bypass{};
  std::wstring script{};  // the URL of a PAC script
};

/// Stands in for HKEY_CURRENT_USER of this process (see "RegOverridePredefKey function") with a key that ends with the
/// object, at the latest when the user logs off. There is one such object at a time.
class OwnSettings {
 public:
  // Throws kiv::session::SystemError.
  explicit OwnSettings(const ProxySettings& settings);
  OwnSettings(const OwnSettings&) = delete;
  OwnSettings& operator=(const OwnSettings&) = delete;
  ~OwnSettings();

  // Whether WinHTTP reads them. Documentation does not say where it looks for the user's settings.
  bool areRead() const;

 private:
  struct DeleteKey {
    void operator()(HKEY key) const noexcept;
  };

  ProxySettings settings_;
  kiv::support::Unique<HKEY, DeleteKey> key_;
};

}  // namespace selfcheck
