// Raw candidates in tests: how they are printed.
#pragma once

#include <gtest/gtest.h>

#include <ostream>

#include "discovery/proxy_list.h"

namespace kiv::impl {

static inline void PrintTo(const ProxyListEntry& entry, std::ostream* out) {
  *out << "{" << testing::PrintToString(entry.type) << ", " << testing::PrintToString(entry.host) << ", " << entry.port
       << "}";
}

}  // namespace kiv::impl
