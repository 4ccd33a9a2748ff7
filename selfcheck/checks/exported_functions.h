// The exports of a DLL: are they those of a table, and does each answer a call whose answer is known?
#pragma once

#include <exception>
#include <span>
#include <string_view>
#include <vector>

#include "checks/check.h"

namespace selfcheck {

/// One export. `answers` calls it, and returns whether it answered as documented; `World` is what calls need.
template <class World>
struct ExportedFunction {
  std::string_view name;
  bool (*answers)(World& world);
};

// A pass if the loaded DLL exports the functions that were called and no other, and none of them answered otherwise
// than documented.
Finding judgeExports(const wchar_t* dll, std::span<const std::string_view> called,
                     std::span<const std::string_view> wrong);

template <class World>
bool answers(const ExportedFunction<World>& function, World& world) {
  try {
    return function.answers(world);
  } catch (const std::exception&) {
    return false;
  }
}

template <class World>
Finding checkExports(const wchar_t* dll, std::span<const ExportedFunction<World>> table, World& world) {
  std::vector<std::string_view> called;
  std::vector<std::string_view> wrong;
  for (const ExportedFunction<World>& function : table) {
    called.push_back(function.name);
    if (!answers(function, world)) wrong.push_back(function.name);
  }
  return judgeExports(dll, called, wrong);
}

}  // namespace selfcheck
