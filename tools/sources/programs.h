// What programs are documented to read.
#pragma once

#include <span>
#include <string_view>

namespace kiv::tool {

struct Program {
  std::wstring_view name;
  std::wstring_view version;  // that the documentation is about
  std::wstring_view reads;    // in this order
  std::wstring_view source;
};

std::span<const Program> knownPrograms();

}  // namespace kiv::tool
