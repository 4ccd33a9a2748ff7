// Owners of the library's handles.
#pragma once

#include <memory>

#include "kiv/kiv.h"

namespace kiv::tool {

template <auto Destruct>
struct Destroyer {
  template <class Handle>
  void operator()(Handle* handle) const noexcept {
    Destruct(handle);
  }
};

using UniqueProxyConfig = std::unique_ptr<KivProxyConfig, Destroyer<KivProxyConfig_Destruct>>;
using UniqueCred = std::unique_ptr<KivCred, Destroyer<KivCred_Destruct>>;
using UniqueHttpClient = std::unique_ptr<KivHttpClient, Destroyer<KivHttpClient_Destruct>>;
using UniqueLogger = std::unique_ptr<KivLogger, Destroyer<KivLogger_Destruct>>;

}  // namespace kiv::tool
