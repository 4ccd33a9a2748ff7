// Bypass lists, evaluated entry by entry with the regular expressions.
#include "oracle/bypass_oracle.h"

#include <cstdint>
#include <cwctype>
#include <stdexcept>

namespace kiv::test {
namespace {

std::wstring trimmed(const std::wstring& text) {
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && std::iswspace(text[first]) != 0) ++first;
  while (first < last && std::iswspace(text[last - 1]) != 0) --last;
  return text.substr(first, last - first);
}

std::uint16_t portOf(std::wstring_view digits) {
  const std::uint64_t value = std::stoul(std::wstring(digits));
  if (value > 0xFFFFFFFF) throw std::out_of_range("port");
  return static_cast<std::uint16_t>(value);
}

}  // namespace

std::vector<bool> BypassOracle::verdicts(std::wstring_view list, const BypassTarget& target) {
  std::vector<std::wstring> entries = {L""};
  for (const wchar_t c : list) {
    if (c == L';') {
      entries.emplace_back();
    } else {
      entries.back().push_back(c);
    }
  }
  std::vector<bool> all;
  for (const std::wstring& entry : entries) {
    if (const std::optional<bool> verdict = entryVerdict(trimmed(entry), target)) all.push_back(*verdict);
  }
  return all;
}

std::optional<bool> BypassOracle::entryVerdict(std::wstring_view entry, const BypassTarget& target) {
  if (entry == L"<local>") return plain_.matches(target.host);
  const std::optional<AddressOracle::Groups> groups = address_.split(entry);
  if (!groups) return std::nullopt;
  const auto& [scheme, user, password, host, port, path, query] = *groups;
  const bool portMatches = port.empty() || portOf(port) == target.port;
  const bool schemeMatches = scheme.empty() || wildcard_.matches(scheme, target.scheme);
  return wildcard_.matches(host, target.host) && schemeMatches && portMatches;
}

}  // namespace kiv::test
