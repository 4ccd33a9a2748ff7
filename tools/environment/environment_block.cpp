// The environment of a program to be started, as CreateProcess takes it.
#include "environment/environment_block.h"

#include <algorithm>
#include <cwchar>
#include <new>

#include "support/owners.h"

namespace kiv::tool {
namespace {

using std::wstring_view;

struct FreeStrings {
  void operator()(wchar_t* block) const noexcept { FreeEnvironmentStringsW(block); }
};

// The names of the drives' folders begin with "=": "=C:=C:\Users".
wstring_view nameOf(wstring_view entry) { return entry.substr(0, entry.find(L'=', 1)); }

int compareNames(wstring_view left, wstring_view right) {
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(), static_cast<int>(right.size()),
                              TRUE) -
         CSTR_EQUAL;
}

std::vector<wstring_view> entriesOf(wstring_view block) {
  std::vector<wstring_view> entries;
  while (!block.empty() && block.front() != L'\0') {
    const std::size_t end = std::min(block.find(L'\0'), block.size());
    entries.push_back(block.substr(0, end));
    block.remove_prefix(std::min(end + 1, block.size()));
  }
  return entries;
}

Wiped<wchar_t> entryOf(const Variable& variable) {
  Wiped<wchar_t> entry(variable.name.begin(), variable.name.end());
  entry.push_back(L'=');
  entry.insert(entry.end(), variable.value->begin(), variable.value->end());
  return entry;
}

}  // namespace

Wiped<wchar_t> mergedBlock(wstring_view inherited, const std::vector<Variable>& variables) {
  std::vector<wstring_view> entries = entriesOf(inherited);
  std::vector<Wiped<wchar_t>> added;
  for (const Variable& variable : variables) {
    std::erase_if(entries, [&](wstring_view entry) { return compareNames(nameOf(entry), variable.name) == 0; });
    if (variable.value) added.push_back(entryOf(variable));
  }
  for (const Wiped<wchar_t>& entry : added) entries.push_back(viewOf(entry));
  std::ranges::stable_sort(
      entries, [](wstring_view left, wstring_view right) { return compareNames(nameOf(left), nameOf(right)) < 0; });
  Wiped<wchar_t> block;
  for (const wstring_view entry : entries) {
    block.insert(block.end(), entry.begin(), entry.end());
    block.push_back(L'\0');
  }
  // Two, also if there is no variable at all.
  if (entries.empty()) block.push_back(L'\0');
  block.push_back(L'\0');
  return block;
}

Wiped<wchar_t> ownEnvironment() {
  const support::Unique<wchar_t*, FreeStrings> strings(GetEnvironmentStringsW());
  if (!strings) throw std::bad_alloc();
  const wchar_t* const begin = strings.get();
  const wchar_t* end = begin;
  while (*end != L'\0') end += std::wcslen(end) + 1;
  return {begin, end};
}

}  // namespace kiv::tool
