// A bypass list as a NO_PROXY list, which can say less.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::tool {

// What became of an entry of a bypass list.
struct BypassEntry {
  std::wstring text;
  std::wstring becomes;  // the entry for NO_PROXY; empty if it has none
  std::wstring reason;   // why it was changed or dropped; empty for an entry that stays as it is
};

// What a program reads in its list of exceptions, beside names.
struct ExceptionsRead {
  bool networks = true;  // such as 10.0.0.0/8
  bool ports = true;
};

// `targetHost` was found to need a proxy, so an entry that would exempt it is dropped too.
std::vector<BypassEntry> convertBypassList(std::wstring_view list, std::wstring_view targetHost, ExceptionsRead reads);

// The entries that remain, separated by commas, each once.
std::wstring noProxyText(const std::vector<BypassEntry>& entries);

}  // namespace kiv::tool
