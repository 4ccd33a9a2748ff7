// Owners of the handles that the library's creating functions return, for tests of the C interface.
#pragma once

#include <memory>

#include "kiv/kiv.hpp"

namespace kiv::test {

template <class Handle>
using Unique = std::unique_ptr<Handle, kiv::detail::Destruct>;

using UniqueLog = Unique<KivLog>;
using UniqueLogger = Unique<KivLogger>;
using UniqueCred = Unique<KivCred>;
using UniqueSecStr = Unique<KivSecStr>;
using UniqueProxyConfig = Unique<KivProxyConfig>;
using UniqueHttpClient = Unique<KivHttpClient>;

}  // namespace kiv::test
