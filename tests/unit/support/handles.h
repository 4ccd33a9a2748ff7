// Owners of the handles that the library's creating functions return, for tests of the C interface.
#pragma once

#include <memory>

#include "kiv/kiv.hpp"

namespace kiv::test {

template <class Handle>
using UniqueHandle = std::unique_ptr<Handle, kiv::detail::Destruct>;

using UniqueLog = UniqueHandle<KivLog>;
using UniqueLogger = UniqueHandle<KivLogger>;
using UniqueCred = UniqueHandle<KivCred>;
using UniqueSecStr = UniqueHandle<KivSecStr>;
using UniqueProxyConfig = UniqueHandle<KivProxyConfig>;
using UniqueHttpClient = UniqueHandle<KivHttpClient>;

}  // namespace kiv::test
