// Owners of the handles that the library's creating functions return, for tests.
#pragma once

#include <memory>

#include "kiv/cred.h"
#include "kiv/log.h"
#include "kiv/proxy_config.h"

namespace kiv::test {

template <auto kDestruct>
struct Destructs {
  template <class Handle>
  void operator()(Handle* handle) const {
    kDestruct(handle);
  }
};

using UniqueLog = std::unique_ptr<KivLog, Destructs<KivLog_Destruct>>;
using UniqueLogger = std::unique_ptr<KivLogger, Destructs<KivLogger_Destruct>>;
using UniqueCred = std::unique_ptr<KivCred, Destructs<KivCred_Destruct>>;
using UniqueSecStr = std::unique_ptr<KivSecStr, Destructs<KivSecStr_Destruct>>;
using UniqueProxyConfig = std::unique_ptr<KivProxyConfig, Destructs<KivProxyConfig_Destruct>>;

}  // namespace kiv::test
