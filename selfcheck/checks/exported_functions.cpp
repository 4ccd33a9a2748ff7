// The exports of a DLL: are they those of a table, and does each answer a call whose answer is known?
#include "checks/exported_functions.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

namespace selfcheck {
namespace {

using Names = std::set<std::string_view>;

// The names in the export directory of a DLL that is loaded. They live as long as it is.
Names exportsOf(const wchar_t* dll) {
  const auto* const base = reinterpret_cast<const std::byte*>(GetModuleHandleW(dll));
  if (!base) return {};
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const auto& entry = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (entry.Size == 0) return {};
  const auto* const exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
  const auto* const offsets = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
  Names names;
  for (const DWORD offset : std::span(offsets, exports->NumberOfNames)) {
    names.insert(reinterpret_cast<const char*>(base + offset));
  }
  return names;
}

// Appends "KivCred_Copy, KivCred_Move: what they are. "
void complain(std::string& text, const auto& names, std::string_view what) {
  if (std::empty(names)) return;
  std::string_view separator;
  for (const std::string_view name : names) {
    text.append(separator).append(name);
    separator = ", ";
  }
  text.append(": ").append(what).append(". ");
}

Names without(const Names& names, const Names& others) {
  Names left;
  std::ranges::set_difference(names, others, std::inserter(left, left.end()));
  return left;
}

}  // namespace

Finding judgeExports(const wchar_t* dll, std::span<const std::string_view> called,
                     std::span<const std::string_view> wrong) {
  const Names exported = exportsOf(dll);
  const Names known(called.begin(), called.end());
  std::string problems;
  complain(problems, without(known, exported), "not exported");
  complain(problems, without(exported, known), "exported, and not known to this program");
  complain(problems, wrong, "answered otherwise than documented");
  if (!problems.empty()) return {Verdict::Fail, problems};
  return {Verdict::Pass, std::to_string(exported.size()) + " functions are exported; each answers as documented"};
}

}  // namespace selfcheck
