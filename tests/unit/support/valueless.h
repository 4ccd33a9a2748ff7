// The state in which an assignment that failed leaves a proxy configuration, for tests.
#pragma once

#include "config/proxy_config.h"

namespace kiv::impl {

struct ProxyConfigAccess {
  // Takes the kind away; credentials stay.
  static void makeValueless(ProxyConfig& config) {
    struct Failing {
      explicit(false) operator ProxyConfig::Http() const { throw 1; }
    };
    try {
      config.server_.emplace<ProxyConfig::Http>(Failing());
    } catch (int) {  // NOLINT(bugprone-empty-catch): the failure is what was wanted
    }
  }
  static bool isValueless(const ProxyConfig& config) { return config.server_.valueless_by_exception(); }
};

}  // namespace kiv::impl
