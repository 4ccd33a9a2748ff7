// What a test client is set to: the values that a request is made from.
#pragma once

#include <optional>
#include <string>

#include "config/address.h"
#include "config/cred.h"
#include "config/proxy_config.h"
#include "support/platform.h"

namespace kiv::impl {

struct ClientSettings {
  std::wstring userAgent;
  // Present only if it is an http or https URL: the client is valid.
  std::optional<ParsedAddress> server;
  std::optional<Cred> serverCred;
  ProxyConfig proxy;
  bool ignoreCertErrors = false;

  bool https() const { return server->kind == AddressScheme::Https; }
};

// The schemes chosen after challenges, kept so that later requests need none.
struct ChosenSchemes {
  std::optional<DWORD> proxy;
  std::optional<DWORD> server;
};

}  // namespace kiv::impl
